#include "process/sort/short_range.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "process/keys/record_precedes.h"
#include "process/sort/deciding_key.h"
#include "process/sort/range_insertion.h"

namespace tvsort {

namespace {

constexpr std::int32_t kEntriesMax = kShortRangeDistance + 1;
// Runs of this length are sorted by counting, for each entry, those that come before it.
constexpr std::int32_t kCountedRun = 8;
// More records with the same digits are left to the partition.
constexpr std::int32_t kAlikeEntriesMax = 8;

struct Entry {
    std::uint64_t digits;
    std::uint64_t index;  // of the record in the range, from 0
};

// Sorts `count` entries, at most kCountedRun, from `source` to `target`.
inline void sortByCounting(const Entry* source, Entry* target, std::int32_t count) {
    std::int32_t before[kCountedRun] = {};
    for (std::int32_t i = 1; i < count; ++i) {
        for (std::int32_t k = 0; k < i; ++k) {
            const bool behind = source[k].digits > source[i].digits;
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
        const bool takesRight = right->digits < left->digits;
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

// The entries of `count` records from `first` on. False when one has no digits.
template <LeadingKind kind, bool plain>
bool makeEntries(const DecidingKey& key, const Byte* first, std::uint32_t recordLength,
                 std::int32_t count, Entry* entries) {
    bool good = true;
    for (std::int32_t i = 0; i < count; ++i, first += recordLength) {
        std::uint64_t digits = 0;
        good &= decidingDigits<kind, plain>(key, first, digits);
        entries[i] = {digits, static_cast<std::uint64_t>(i)};
    }
    return good;
}

// A short range at work.
struct ShortRange {
    SortJob& job;
    const DecidingKey& key;
    std::uint32_t first;  // place of the first record
    std::int32_t count;
    bool keepsEquals;  // equal records are to stay in their order

    bool precedes(const Entry& left, const Entry& right) const {
        return recordPrecedes(job, placeOf(left), placeOf(right));
    }

  private:
    std::uint32_t placeOf(const Entry& entry) const {
        return first + static_cast<std::uint32_t>(entry.index) * job.recordLength;
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

// Orders the records that the digits leave alike, if there are few: by comparing them, where that
// can raise no code and has one outcome only. False when their order remains open.
bool settleAlike(const ShortRange& range, Entry* entries) {
    std::int32_t begin = 0;
    for (std::int32_t i = 1; i < range.count; ++i) {
        if (entries[i].digits != entries[begin].digits) {
            begin = i;
            continue;
        }
        if (range.key.isComplete && range.keepsEquals) continue;
        if (range.key.isComplete || i - begin >= kAlikeEntriesMax) return false;
        const FreeComparisons free = freeComparisons(range.job, range.key);
        if (!free.ofComparable || !free.areOrderly) return false;
        if (!insertAlike(range, entries, begin, i)) return false;
    }
    return true;
}

// Whether the digits tell all floats apart: under the tolerant rule they must be further apart than
// values that count as equal.
template <LeadingKind kind>
bool areApart(const DecidingKey& key, const Entry* entries, std::int32_t count) {
    bool apart = true;
    for (std::int32_t i = 1; i < count; ++i)
        apart &= entries[i].digits > alikeDigits<kind>(key, entries[i - 1].digits).high;
    return apart;
}

template <LeadingKind kind>
bool settleOrder(const ShortRange& range, Entry* entries) {
    if constexpr (isFloatKind(kind)) return areApart<kind>(range.key, entries, range.count);
    return settleAlike(range, entries);
}

// Moves each record once, by way of a copy of all, which `copy` has room for: at most
// kEntriesMax records in kRecordBufferBytes (sortShortRange).
void placeRecords(Byte* first, std::uint32_t recordLength, const Entry* entries, std::int32_t count,
                  Byte* copy) {
    std::memcpy(copy, first, static_cast<std::size_t>(count) * recordLength);
    for (std::int32_t i = 0; i < count; ++i)
        std::memcpy(first + static_cast<std::size_t>(i) * recordLength,
                    copy + entries[i].index * recordLength, recordLength);
}

// Whether every record can be compared with itself. A partition compares its pivot with its copy,
// and meets in keys behind the deciding one what no two records of the range would show.
bool areComparable(const ShortRange& range) {
    SortJob& job = range.job;
    if (freeComparisons(job, range.key).ofComparable) return true;
    std::uint32_t record = range.first;
    for (std::int32_t i = 0; i < range.count && !failed(job); ++i, record += job.recordLength)
        recordPrecedes(job, record, record);
    const bool comparable = !failed(job);
    job.errorCode = ErrorCode::kSuccess;  // the partition will raise it, or not, in its turn
    return comparable;
}

bool isInPlace(const Entry* entries, std::int32_t count) {
    bool inPlace = true;
    for (std::int32_t i = 0; i < count; ++i)
        inPlace &= entries[i].index == static_cast<std::uint64_t>(i);
    return inPlace;
}

}  // namespace

bool sortShortRange(SortJob& job, const HeldRecord& low, const HeldRecord& high, Byte* scratch) {
    const std::uint32_t recordLength = job.recordLength;
    const std::int32_t distance = high.recordNumber - low.recordNumber;
    const std::int32_t count = distance + 1;
    if (static_cast<std::uint32_t>(count) * recordLength > kRecordBufferBytes) return false;
    Byte* const first = recordAt(job, low.offset);
    const Byte* const middle = first + static_cast<std::size_t>(count / 2) * recordLength;
    const DecidingKey key = chooseDecidingKey(job, middle, first, recordAt(job, high.offset));
    const ShortRange range = {job, key, low.offset, count, distance < kInsertionDistance};
    return withDecidingKey(key, [&]<LeadingKind kind, bool plain>() {
        Entry entries[kEntriesMax];
        Entry second[kEntriesMax];
        if (!makeEntries<kind, plain>(key, first, recordLength, count, entries)) return false;
        Entry* const sorted = sortEntries(entries, second, count);
        if (!settleOrder<kind>(range, sorted)) return false;
        if (!range.keepsEquals && !areComparable(range)) return false;
        if (!isInPlace(sorted, count)) {
            placeRecords(first, recordLength, sorted, count, scratch);
            markDirty(job, low.frameIndex);
        }
        return true;
    });
}

}  // namespace tvsort
