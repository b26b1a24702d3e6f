#include "process/sort/entry_sort.h"

#include <algorithm>
#include <bit>

#include "process/keys/record_precedes.h"
#include "process/keys/value_compare.h"
#include "process/sort/copy_sort.h"
#include "process/sort/entry_order.h"
#include "process/sort/own_entries.h"
#include "process/sort/permutation.h"
#include "process/sort/pivot_judge.h"
#include "process/storage/record_address.h"
#include "process/storage/server_watch.h"
#include "protocol/data_type.h"

namespace tvsort {

namespace {

// How many entries ahead a record is asked for.
constexpr std::uint32_t kReadAhead = 16;
constexpr std::int64_t kExpectedCounterBytes = 262148;

NormalizedKey normalizedKey;
KeyWindow window;

std::int64_t bytesBehindData(const SortJob& job) {
    return std::int64_t{job.frameCount - job.fileBlocks} * frameBytes(job);
}

Byte* behindData(const SortJob& job) {
    return job.frameArea + std::size_t{frameBytes(job)} * static_cast<std::size_t>(job.fileBlocks);
}

EntryArea entryArea(const SortJob& job) {
    const auto count = static_cast<std::uint32_t>(job.recordCount);
    Entry* const entries = reinterpret_cast<Entry*>(behindData(job));
    return {entries, entries + count, count};
}

// Takes the digits of all records to their entries, and looks at what else a pass can tell.
struct EntrySink {
    const NormalizedKey& key;
    Entry* const entries;
    std::uint32_t count;
    Doubts doubts;
    bool ascends;  // no digits are below those of the record before
    bool rises;    // all are above
    std::uint64_t before;

    void start(const KeyWindow&) {
        count = 0;
        doubts = kNoDoubts;
        ascends = rises = true;
        before = 0;
    }
    void take(const Byte* record, std::uint64_t digits) {
        doubts |= doubtsAbout(key, record);
        ascends &= digits >= before;
        rises &= digits > before || count == 0;
        before = digits;
        entries[count] = makeEntry(digits, count);
        count += 1;
    }
};

// Reads all records through a window in which they differ, if there is one.
Continuation readRecords(SortJob& job, const RecordArray& records, EntrySink& sink) {
    const auto visit = [&](std::uint32_t step, auto look) { visitEvery(records, step, look); };
    Continuation after = startOf(sink.key);
    do {
        after = readThrough(sink.key, after, records.count, visit, sink, window);
        watchServer(job, std::size_t{records.count} * records.recordLength);
    } while (window.width == 0 && !after.endsKey);
    return after;
}

// --- Whether the order is the only one ------------------------------------------------------

// Whether a distance of the window's digits is one of floats: no other word is behind the float,
// and no float elsewhere.
bool windowShowsFloats(const NormalizedKey& key) {
    std::uint32_t floats = 0;
    for (std::uint32_t s = 0; s < key.segmentCount; ++s)
        floats += isTolerantFloat(key.segments[s].first) ? 1 : 0;
    return floats == 1 && window.wordCount > 0 &&
           isTolerantFloat(window.words[window.wordCount - 1].word);
}

bool countAsEqual(const KeyWord& word, const Byte* left, const Byte* right) {
    const Byte* const leftField = left + word.offset;
    const Byte* const rightField = right + word.offset;
    const ValueOrder order =
        word.kind == WordKind::kSingle
            ? compareFloats(double{loadAs<float>(leftField)}, double{loadAs<float>(rightField)},
                            kSingleTolerance, FloatRule::kTolerant)
            : compareFloats(loadAs<double>(leftField), loadAs<double>(rightField), kDoubleTolerance,
                            FloatRule::kTolerant);
    return order == ValueOrder::kEqual;
}

// Whether no neighbours in the order of the entries are open. `firstDigits`: all digits are those
// of the first window.
bool isOnlyOrder(SortJob& job, const NormalizedKey& key, const RecordArray& records,
                 const EntryArea& area, bool firstDigits, bool isChecked) {
    if (!(isChecked && key.isUnique()) && !key.hasTolerantFloats) return true;
    const bool digitsTell = !key.isUnique() && firstDigits && windowShowsFloats(key);
    const Entry* const entries = area.entries;
    const auto recordOf = [&](std::uint32_t place) {
        return records.at(boundedIndex(entries[place], area.count));
    };
    const auto areApart = [&](std::uint32_t place) {
        return entries[place].digits() - entries[place - 1].digits() > kAlikeFloatsMax;
    };
    for (std::uint32_t i = 1; i < area.count; ++i) {
        const std::uint32_t ahead = std::min(i + kReadAhead, area.count - 1);
        if (!digitsTell || !areApart(ahead)) {
            prefetchRecord(recordOf(ahead - 1), records.recordLength);
            prefetchRecord(recordOf(ahead), records.recordLength);
        }
        if (digitsTell && areApart(i)) continue;
        if (mayBeOtherwise(job, key, recordOf(i - 1), recordOf(i))) return false;
    }
    watchServer(job, std::size_t{area.count} * sizeof(Entry));
    return true;
}

// --- The sort -------------------------------------------------------------------------------

// What follows from the doubts that a pass has found.
enum class Outcome : std::uint8_t { kGoOn, kReadAgain, kGiveUp, kRefuse };

Outcome judgeDoubts(Doubts doubts, bool expectedStable) {
    if (doubts == kNoDoubts) return Outcome::kGoOn;
    if (!expectedStable || (doubts & kNotOrdered) != 0) return Outcome::kGiveUp;
    return (doubts & kNoDecimal) != 0 ? Outcome::kRefuse : Outcome::kReadAgain;
}

// Turns the order of the entries into each place's record, in the place of the other entries.
// Answers whether any record belongs elsewhere.
bool takeOrder(const EntryArea& area, std::uint32_t* order) {
    std::uint32_t moved = 0;
    for (std::uint32_t i = 0; i < area.count; ++i) {
        order[i] = area.entries[i].index;
        moved |= order[i] ^ i;
    }
    return moved != 0;
}

// Leaves the records' entries in order; gives up when there is another one.
Outcome orderRecords(SortJob& job, const NormalizedKey& key, const RecordArray& records,
                     const EntryArea& area, bool expectedStable) {
    EntrySink sink = {key, area.others, 0, kNoDoubts, true, true, 0};
    const Continuation after = readRecords(job, records, sink);
    const Outcome outcome = judgeDoubts(sink.doubts, expectedStable);
    if (outcome != Outcome::kGoOn) return outcome;
    bool firstDigits = true;
    if (sink.rises || (sink.ascends && after.endsKey)) {
        std::copy_n(area.others, area.count, area.entries);
    } else {
        firstDigits = orderEntries(key, records, area, window.width, after);
    }
    const bool only = isOnlyOrder(job, key, records, area, firstDigits, !expectedStable);
    return only ? Outcome::kGoOn : Outcome::kGiveUp;
}

void markAllDirty(SortJob& job) {
    for (std::int32_t frame = 0; frame < job.fileBlocks; ++frame)
        markDirty(job, frame);
}

// Whether the copy sort is faster: for short records, and where the first window leaves many
// records alike. What goes on with such is at hand in the copy, and nowhere in place.
bool copyPays(const SortJob& job) {
    constexpr std::uint32_t kAlikeShare = 8;
    if (job.recordLength <= kCopiedBytesMax) return true;
    const RecordArray records = recordsInFrames(job);
    const std::uint32_t step = records.count / kSampleRecords;
    const auto visitSample = [&](auto look) {
        visitEvery(records, step,
                   [&](const Byte* record) { look(record, record == records.first); });
    };
    fitWindow(normalizedKey, kKeyStart, fitFor(records.count, true), visitSample, window);
    std::uint32_t sampled = 0;
    visitSample([&](const Byte* record, bool) {
        ownEntries[sampled++] = makeEntry(WindowReader{window}.readFitted(record), 0);
    });
    orderOwnEntries(normalizedKey, records, sampled, {kKeyStart, true, false});
    std::uint32_t alike = 0;
    for (std::uint32_t i = 1; i < sampled; ++i)
        alike += ownEntries[i].digits() == ownEntries[i - 1].digits() ? 1 : 0;
    return alike * kAlikeShare > sampled;
}

// In sort modes 8 and 9: looks at neighbours that differ in nothing but the last key.
void checkUniqueness(SortJob& job) {
    for (std::int32_t n = 1; normalizedKey.isUnique() && n < job.recordCount && !failed(job); ++n)
        recordPrecedes(job, placeInFrames(job, n), placeInFrames(job, n + 1));
}

// Sorts by way of the copy that there is room for, where the order of arrival is expected. Answers
// in `isSorted` whether the entries have nothing left to do.
Outcome sortCopied(SortJob& job, bool hasEntries, bool& isSorted) {
    const RecordArray records = recordsInFrames(job);
    const Outcome outcome = judgeDoubts(doubtsAboutAll(job, normalizedKey, records), true);
    if (outcome != Outcome::kGoOn) return outcome;
    isSorted = sortByCopy(normalizedKey, records, behindData(job), hasEntries);
    if (isSorted) checkUniqueness(job);
    return outcome;
}

Outcome sortEntries(SortJob& job, bool expectedStable, Byte* scratch) {
    const RecordArray records = recordsInFrames(job);
    const EntryArea area = entryArea(job);
    const Outcome outcome = orderRecords(job, normalizedKey, records, area, expectedStable);
    if (outcome != Outcome::kGoOn) return outcome;
    auto* const order = reinterpret_cast<std::uint32_t*>(area.others);
    if (takeOrder(area, order)) {
        permuteRecords(job, records, order, scratch);
        if (!expectedStable) markAllDirty(job);
    }
    if (expectedStable) checkUniqueness(job);
    return Outcome::kGoOn;
}

bool isExpectedType(const KeyDescriptor& key) {
    switch (static_cast<DataType>(key.dataType)) {
        case DataType::kInteger:
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
        case DataType::kBytes:
            return true;
        case DataType::kString:
            return key.geometryType == kGeometryTypeNone && key.fieldLength >= kLengthPrefixBytes;
        default:
            return false;
    }
}

}  // namespace

bool entriesFit(const SortJob& job) {
    return std::int64_t{job.recordCount} * kEntriesBytes <= bytesBehindData(job);
}

bool mayBeOtherwise(const SortJob& job, const NormalizedKey& key, const Byte* left,
                    const Byte* right) {
    if (!key.isUnique() && !key.hasTolerantFloats) return false;
    const KeyOrder found = compareKeys(key, kKeyStart, left, right);
    if (key.isUnique() && found.segment >= key.uniqueSegment) {
        const bool leftExcused = isExcused(job, left);
        const bool rightExcused = isExcused(job, right);
        return (found.order != 0 || leftExcused != rightExcused) && !(leftExcused && rightExcused);
    }
    if (found.order == 0) return false;
    const KeyWord& word = key.segments[found.segment].first;
    return isTolerantFloat(word) && countAsEqual(word, left, right);
}

bool orderByEntries(SortJob& job, const NormalizedKey& key, const RecordArray& records,
                    const EntryArea& area) {
    return orderRecords(job, key, records, area, false) == Outcome::kGoOn;
}

bool isExpectedStable(const SortJob& job) {
    if (job.recordCount < kStableRecordsMin) return false;
    const std::int64_t copyBytes = std::int64_t{job.recordLength} * job.recordCount;
    const std::int64_t frames = (copyBytes + kExpectedCounterBytes) / frameBytes(job);
    if (frames + job.fileBlocks + 1 > job.frameCount) return false;
    return std::all_of(job.keyOrder, job.keyOrder + job.keyCount,
                       [](const KeyDescriptor* key) { return isExpectedType(*key); });
}

bool sortByEntries(SortJob& job, Byte* scratch) {
    const bool expectedStable = isExpectedStable(job);
    const bool hasEntries = entriesFit(job);
    if (job.recordCount < kEntryRecordsMin || (!hasEntries && !expectedStable)) return false;
    describeKey(job, normalizedKey);
    if (!normalizedKey.isWhole) return false;
    const bool copies =
        !hasEntries || (expectedStable && !normalizedKey.isUnique() && copyPays(job));
    const auto sort = [&] {
        bool isSorted = false;
        const Outcome copied = copies ? sortCopied(job, hasEntries, isSorted) : Outcome::kGoOn;
        if (isSorted || copied != Outcome::kGoOn) return copied;
        return sortEntries(job, expectedStable, scratch);
    };
    Outcome outcome = sort();
    if (outcome == Outcome::kReadAgain) {
        admitWideDecimals(normalizedKey);
        outcome = sort();
    }
    if (outcome == Outcome::kRefuse) raise(job, ErrorCode::kDecimalInvalid);
    return outcome != Outcome::kGiveUp;
}

}  // namespace tvsort
