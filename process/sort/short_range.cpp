#include "process/sort/short_range.h"

#include <cstring>
#include <iterator>

#include "process/keys/record_precedes.h"
#include "process/sort/own_entries.h"
#include "process/sort/pivot_judge.h"

namespace tvsort {

namespace {

PivotJudge judge;

// The first place from `first` on whose record `inserted` precedes; `previous`, the last place
// before `inserted`, is known to be one.
std::uint32_t placeFor(SortJob& job, std::uint32_t inserted, std::uint32_t first,
                       std::uint32_t previous) {
    std::uint32_t place = first;
    while (place < previous && !recordPrecedes(job, inserted, place))
        place += job.recordLength;
    return place;
}

// Makes an entry of each record, with the judge's word as its digits. False when one is not sure,
// or when there are doubts about it.
bool makeEntries(const NormalizedKey& key, const RecordArray& records) {
    return withJudgedWord(judge, [&](const auto& reader) {
        std::uint32_t sure = 1;
        std::uint32_t index = 0;
        visitRecords(records, 0, records.count, [&](const Byte* record) {
            sure &= reader.isSure(record) && doubtsAbout(key, record) == kNoDoubts ? 1 : 0;
            ownEntries[index] = makeEntry(reader.read(record), index);
            index += 1;
        });
        return sure != 0;
    });
}

// Whether all words differ, and are further apart than floats that count as equal.
bool areApart(std::uint32_t count) {
    bool apart = true;
    for (std::uint32_t i = 1; i < count; ++i)
        apart &= ownEntries[i].digits() - ownEntries[i - 1].digits() > judge.span;
    return apart;
}

// Whether no two records are equal in all that comes behind the judge's word.
bool areUnlike(const NormalizedKey& key, const RecordArray& records) {
    for (std::uint32_t i = 1; i < records.count; ++i) {
        const Entry& left = ownEntries[i - 1];
        const Entry& right = ownEntries[i];
        if (left.digits() != right.digits()) continue;
        const Byte* const leftRecord = records.at(left.index);
        if (compareKeys(key, judge.next, leftRecord, records.at(right.index)).order == 0)
            return false;
    }
    return true;
}

// Orders the entries. False when there may be another order, or must be one of equal records that
// only the partition knows. Of a key with tolerant floats only the judge's word is trusted.
bool orderShortRange(const NormalizedKey& key, const RecordArray& records, bool keepsEquals) {
    const bool wordOnly = key.hasTolerantFloats || judge.endsKey;
    orderOwnEntries(key, records, records.count, {judge.next, wordOnly, true});
    if (key.hasTolerantFloats) return areApart(records.count);
    return keepsEquals || areUnlike(key, records);
}

// Moves each record once, by way of a copy of all. Answers whether any has moved.
bool placeRecords(const RecordArray& records, Byte* copy) {
    std::uint32_t moved = 0;
    for (std::uint32_t i = 0; i < records.count; ++i)
        moved |= ownEntries[i].index ^ i;
    if (moved == 0) return false;
    const std::size_t length = records.recordLength;
    std::memcpy(copy, records.first, records.count * length);
    for (std::uint32_t i = 0; i < records.count; ++i)
        std::memcpy(records.first + i * length, copy + ownEntries[i].index * length, length);
    return true;
}

}  // namespace

bool sortShortRange(SortJob& job, const NormalizedKey& key, const HeldRecord& low,
                    const HeldRecord& high, Byte* scratch) {
    const auto distance = static_cast<std::uint32_t>(high.recordNumber - low.recordNumber);
    const RecordArray records =
        packedRecords(recordAt(job, low.offset), distance + 1, job.recordLength);
    if (!isFree(key) || records.count * records.recordLength > kRecordBufferBytes) return false;
    const Byte* const sample[] = {records.at(records.count / 2), records.first,
                                  records.at(distance)};
    appointJudge(key, sample, std::size(sample), judge);
    if (!judge.isAble || !makeEntries(key, records)) return false;
    if (!orderShortRange(key, records, distance < kInsertionDistance)) return false;
    if (placeRecords(records, scratch)) markDirty(job, low.frameIndex);
    return true;
}

void insertRange(SortJob& job, const HeldRecord& low, const HeldRecord& high, Byte* scratch) {
    const std::uint32_t recordLength = job.recordLength;
    bool moved = false;
    std::uint32_t record = low.offset;
    for (std::int32_t n = low.recordNumber; n < high.recordNumber; ++n) {
        const std::uint32_t previous = record;
        record += recordLength;
        if (!recordPrecedes(job, record, previous)) continue;
        const std::uint32_t place = placeFor(job, record, low.offset, previous);
        std::memcpy(scratch, recordAt(job, record), recordLength);
        std::memmove(recordAt(job, place + recordLength), recordAt(job, place), record - place);
        std::memcpy(recordAt(job, place), scratch, recordLength);
        moved = true;
    }
    if (moved) markDirty(job, low.frameIndex);
}

}  // namespace tvsort
