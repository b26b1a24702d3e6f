#include "process/sort/short_range.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "process/keys/record_precedes.h"
#include "process/sort/entry.h"
#include "process/sort/pivot_judge.h"
#include "process/sort/range_insertion.h"

namespace tvsort {

namespace {

constexpr std::int32_t kEntriesMax = kShortRangeDistance + 1;
// Runs of this length are sorted by counting, for each entry, those that come before it.
constexpr std::int32_t kCountedRun = 8;
// More records with the same digits are left to the partition.
constexpr std::int32_t kAlikeEntriesMax = 8;

PivotJudge judge;

// Sorts `count` entries, at most kCountedRun, from `source` to `target`.
inline void sortByCounting(const Entry* source, Entry* target, std::int32_t count) {
    std::int32_t before[kCountedRun] = {};
    for (std::int32_t i = 1; i < count; ++i) {
        for (std::int32_t k = 0; k < i; ++k) {
            const bool behind = source[k].digits() > source[i].digits();
            before[k] += behind;
            before[i] += !behind;
        }
    }
    for (std::int32_t i = 0; i < count; ++i)
        target[before[i]] = source[i];
}

// Merges `leftCount` entries with the `rightCount` that follow them. Each step takes one entry of
// the two at the heads, by arithmetic instead of a branch.
void mergeRuns(const Entry* source, std::int32_t leftCount, std::int32_t rightCount,
               Entry* target) {
    const Entry* left = source;
    const Entry* const leftEnd = source + leftCount;
    const Entry* right = leftEnd;
    const Entry* const rightEnd = right + rightCount;
    while (left != leftEnd && right != rightEnd) {
        const bool takesRight = right->digits() < left->digits();
        const Entry* const head = takesRight ? right : left;
        *target++ = *head;
        right += takesRight;
        left += !takesRight;
    }
    target = std::copy(left, leftEnd, target);
    std::copy(right, rightEnd, target);
}

// Sorts the entries; `second` is of the same size. The result is in the array returned.
Entry* sortEntries(Entry* entries, Entry* second, std::int32_t count) {
    std::int32_t counted = 0;
    for (; counted + kCountedRun <= count; counted += kCountedRun)
        sortByCounting(entries + counted, second + counted, kCountedRun);
    sortByCounting(entries + counted, second + counted, count - counted);
    Entry* source = second;
    Entry* target = entries;
    for (std::int32_t run = kCountedRun; run < count; run *= 2) {
        for (std::int32_t start = 0; start < count; start += 2 * run) {
            const std::int32_t left = std::min(run, count - start);
            mergeRuns(source + start, left, std::min(run, count - start - left), target + start);
        }
        std::swap(source, target);
    }
    return source;
}

// The entries of `count` records from `first` on. False when one is not sure.
bool makeEntries(const Byte* first, std::uint32_t recordLength, std::uint32_t count,
                 Entry* entries) {
    return withJudgedWord(judge, [&](const auto& reader) {
        std::uint32_t sure = 1;
        const Byte* record = first;
        for (std::uint32_t i = 0; i < count; ++i, record += recordLength) {
            sure &= reader.isSure(record);
            entries[i] = makeEntry(reader.read(record), i);
        }
        return sure != 0;
    });
}

// Whether there is no doubt about any record.
bool areFreeOfDoubts(const NormalizedKey& key, const Byte* first, std::uint32_t recordLength,
                     std::int32_t count) {
    if (key.checkCount == 0) return true;
    Doubts doubts = kNoDoubts;
    for (std::int32_t i = 0; i < count; ++i, first += recordLength)
        doubts |= doubtsAbout(key, first);
    return doubts == kNoDoubts;
}

// A short range at work.
struct ShortRange {
    SortJob& job;
    std::uint32_t first;  // place of the first record
    std::int32_t count;
    bool keepsEquals;  // equal records are to stay in their order

    bool precedes(const Entry& left, const Entry& right) const {
        return recordPrecedes(job, placeOf(left), placeOf(right));
    }

  private:
    std::uint32_t placeOf(const Entry& entry) const {
        return first + entry.index * job.recordLength;
    }
};

// Puts entry `at` in its place among those before it that have the same digits. False where that
// leaves equal neighbours whose order is not known.
bool insertAlike(const ShortRange& range, Entry* entries, std::int32_t begin, std::int32_t at) {
    const Entry entry = entries[at];
    std::int32_t place = at;
    for (; place > begin && range.precedes(entry, entries[place - 1]); --place)
        entries[place] = entries[place - 1];
    entries[place] = entry;
    return range.keepsEquals || place == begin || range.precedes(entries[place - 1], entry);
}

// Orders the records that the digits leave alike, if there are few, by comparing them. False when
// their order remains open.
bool settleAlike(const ShortRange& range, Entry* entries) {
    std::int32_t begin = 0;
    for (std::int32_t i = 1; i < range.count; ++i) {
        if (entries[i].digits() != entries[begin].digits()) {
            begin = i;
            continue;
        }
        if (i - begin >= kAlikeEntriesMax || !insertAlike(range, entries, begin, i)) return false;
    }
    return true;
}

// Whether all words are further apart than floats that count as equal.
bool areApart(const Entry* entries, std::int32_t count) {
    bool apart = true;
    for (std::int32_t i = 1; i < count; ++i)
        apart &= entries[i].digits() - entries[i - 1].digits() > judge.span;
    return apart;
}

bool settleOrder(const ShortRange& range, Entry* entries) {
    if (isTolerantFloat(judge.word)) return areApart(entries, range.count);
    return (judge.isComplete && range.keepsEquals) || settleAlike(range, entries);
}

// Moves each record once, by way of a copy of all, which `copy` has room for: at most
// kEntriesMax records in kRecordBufferBytes (sortShortRange).
void placeRecords(Byte* first, std::uint32_t recordLength, const Entry* entries, std::int32_t count,
                  Byte* copy) {
    std::memcpy(copy, first, static_cast<std::size_t>(count) * recordLength);
    for (std::int32_t i = 0; i < count; ++i)
        std::memcpy(first + static_cast<std::size_t>(i) * recordLength,
                    copy + std::size_t{entries[i].index} * recordLength, recordLength);
}

bool isInPlace(const Entry* entries, std::int32_t count) {
    bool inPlace = true;
    for (std::int32_t i = 0; i < count; ++i)
        inPlace &= entries[i].index == static_cast<std::uint32_t>(i);
    return inPlace;
}

}  // namespace

bool sortShortRange(SortJob& job, const NormalizedKey& key, const HeldRecord& low,
                    const HeldRecord& high, Byte* scratch) {
    const std::uint32_t recordLength = job.recordLength;
    const std::int32_t distance = high.recordNumber - low.recordNumber;
    const std::int32_t count = distance + 1;
    if (!isFree(key) || static_cast<std::uint32_t>(count) * recordLength > kRecordBufferBytes)
        return false;
    Byte* const first = recordAt(job, low.offset);
    const Byte* const sample[] = {first + std::size_t{static_cast<std::uint32_t>(count) / 2} *
                                              recordLength,
                                  first, recordAt(job, high.offset)};
    appointJudge(key, sample, std::size(sample), judge);
    if (!judge.isAble) return false;
    const ShortRange range = {job, low.offset, count, distance < kInsertionDistance};
    Entry entries[kEntriesMax];
    Entry second[kEntriesMax];
    if (!makeEntries(first, recordLength, static_cast<std::uint32_t>(count), entries) ||
        !areFreeOfDoubts(key, first, recordLength, count)) {
        return false;
    }
    Entry* const sorted = sortEntries(entries, second, count);
    if (!settleOrder(range, sorted)) return false;
    if (!isInPlace(sorted, count)) {
        placeRecords(first, recordLength, sorted, count, scratch);
        markDirty(job, low.frameIndex);
    }
    return true;
}

}  // namespace tvsort
