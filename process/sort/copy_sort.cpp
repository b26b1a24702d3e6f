#include "process/sort/copy_sort.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "process/sort/own_entries.h"

namespace tvsort {

namespace {

constexpr std::uint32_t kPartsBitsMax = 11;
constexpr std::uint32_t kPartsMax = 1U << kPartsBitsMax;
// How many records ahead a part's next place is asked for.
constexpr std::uint32_t kWriteAhead = 4;
// How often as many records as there are may be distributed again.
constexpr std::uint64_t kRoundsMax = 4;

// Records that stand together in the copy and are equal in the key before `from`.
struct Part {
    std::uint32_t begin;
    std::uint32_t end;
    Continuation from;
};

// Parts that wait do not overlap, and each is too large for the process's own entries. Data set and
// copy share 4 GiB, so there are at most 2^31 records, of one byte.
constexpr std::uint32_t kWaitingMax = (std::uint32_t{1} << 31) / kOwnEntriesMax;

Part waiting[kWaitingMax];
std::uint32_t partEnds[kPartsMax];
KeyWindow window;

struct Copying {
    const NormalizedKey& key;
    const RecordArray& records;
    Byte* copy;
    std::uint32_t waitingCount;

    RecordArray inCopy(std::uint32_t begin, std::uint32_t end) const {
        return packedRecords(copy + std::size_t{begin} * records.recordLength, end - begin,
                             records.recordLength);
    }
};

// Copies a part back as it is.
void returnPart(const Copying& work, const Part& part) {
    const Byte* record = work.inCopy(part.begin, part.end).first;
    visitRecords(work.records, part.begin, part.end, [&](Byte* place) {
        copyRecord(place, record, work.records.recordLength);
        record += work.records.recordLength;
    });
}

// Copies a part back in its order. Its digits come from the window that has made it.
void finishPart(const Copying& work, const Part& part) {
    const RecordArray source = work.inCopy(part.begin, part.end);
    withReader<false>(window, [&](const auto& reader) {
        std::uint32_t misfits = 0;
        std::uint32_t index = 0;
        visitRecords(source, 0, source.count, [&](const Byte* record) {
            ownEntries[index] = makeEntry(reader.read(record, misfits), index);
            index += 1;
        });
    });
    orderOwnEntries(work.key, source, source.count, part.from);
    const Entry* entry = ownEntries;
    visitRecords(work.records, part.begin, part.end, [&](Byte* place) {
        copyRecord(place, source.first + std::size_t{entry->index} * source.recordLength,
                   source.recordLength);
        ++entry;
    });
}

// Counts the records of parts, by the upper bits of their digits.
struct PartSink {
    std::uint32_t shift;

    void start(const KeyWindow& opened) {
        shift = opened.width - std::min(opened.width, kPartsBitsMax);
        std::fill_n(partEnds, kPartsMax, 0U);
    }
    void take(const Byte*, std::uint64_t digits) { partEnds[partOf(digits)] += 1; }
    std::uint32_t partOf(std::uint64_t digits) const {
        return static_cast<std::uint32_t>(digits >> shift) % kPartsMax;
    }
};

// Moves records, which are counted, to their parts in `target`, packed.
void moveToParts(const RecordArray& source, const PartSink& sink, Byte* target) {
    std::uint32_t before = 0;
    for (std::uint32_t& end : partEnds)
        before += std::exchange(end, before);
    withReader<false>(window, [&](const auto& reader) {
        std::uint32_t misfits = 0;
        visitRecords(source, 0, source.count, [&](const Byte* record) {
            const std::size_t place = partEnds[sink.partOf(reader.read(record, misfits))]++;
            // Out of bounds only where records have changed since they were counted.
            if (place >= source.count) return;
            Byte* const to = target + place * source.recordLength;
            __builtin_prefetch(to + kWriteAhead * source.recordLength, 1);
            copyRecord(to, record, source.recordLength);
        });
    });
}

// Finishes the parts that `part`, or the data set, has been distributed to, or lets them wait.
void takeOnParts(Copying& work, const Part& part, std::uint32_t shift) {
    const Continuation& after = part.from;
    std::uint32_t begin = part.begin;
    for (const std::uint32_t partEnd : partEnds) {
        const std::uint32_t end = std::min(part.begin + partEnd, part.end);
        if (end <= begin) continue;
        const Part found = {begin, end, after};
        begin = end;
        const bool isEqual = shift == 0 && after.endsKey;
        if (isEqual || found.end - found.begin == 1) {
            returnPart(work, found);
        } else if (found.end - found.begin <= kOwnEntriesMax) {
            finishPart(work, found);
        } else {
            // What differs in the lower digits goes on in the same place.
            const Continuation again = {window.start, false, true};
            waiting[work.waitingCount++] = {found.begin, found.end, shift == 0 ? after : again};
        }
    }
}

// Opens a window in which records differ, and counts them. False when they are equal. Of what has
// come back it shows no more bits than make parts: what the parts do not tell would be read again,
// with every part that is too large.
bool countParts(const Copying& work, const RecordArray& source, Continuation& from,
                PartSink& sink) {
    const auto visit = [&](std::uint32_t step, auto look) { visitEvery(source, step, look); };
    while (!from.endsKey) {
        const std::uint32_t widthMax = from.exact ? kPartsBitsMax : kReadBitsMax;
        from = readThrough(work.key, from, source.count, visit, sink, window, widthMax);
        if (window.width > 0) return true;
    }
    return false;
}

void workOn(Copying& work, Part part) {
    const RecordArray source = work.inCopy(part.begin, part.end);
    PartSink sink = {};
    if (!countParts(work, source, part.from, sink)) return returnPart(work, part);
    Byte* const target = work.records.at(part.begin);
    moveToParts(source, sink, target);
    std::memcpy(source.first, target, std::size_t{source.count} * source.recordLength);
    takeOnParts(work, part, sink.shift);
}

}  // namespace

bool sortByCopy(const NormalizedKey& key, const RecordArray& records, Byte* copy, bool mayGiveUp) {
    Copying work = {key, records, copy, 0};
    Part all = {0, records.count, startOf(key)};
    PartSink sink = {};
    if (!countParts(work, records, all.from, sink)) return true;
    moveToParts(records, sink, copy);
    takeOnParts(work, all, sink.shift);
    std::uint64_t again = 0;
    while (work.waitingCount > 0) {
        const Part part = waiting[--work.waitingCount];
        again += part.end - part.begin;
        if (mayGiveUp && again > kRoundsMax * records.count) {
            returnPart(work, part);
        } else {
            workOn(work, part);
        }
    }
    return !mayGiveUp || again <= kRoundsMax * records.count;
}

}  // namespace tvsort
