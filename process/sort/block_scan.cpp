#include "process/sort/block_scan.h"

#include <algorithm>

#include "process/keys/record_precedes.h"
#include "process/sort/record_array.h"

namespace tvsort {

namespace {

// Records that are judged at a time. Their digits' lines stay in the first cache.
constexpr std::int32_t kRunRecords = 128;
// Fewer records than this are left to the plain scans.
constexpr std::int32_t kRecordsMin = 8;

enum class Direction : bool { kUp, kDown };

// One side: the records not judged yet, and the stops not exchanged yet.
struct Side {
    std::uint32_t next;   // place of the first record not judged
    std::int32_t within;  // records of the block from there on
    std::int32_t first;   // stop to be exchanged next
    std::int32_t count;   // stops
    std::uint32_t stops[kRunRecords];

    void startAt(std::uint32_t place, std::int32_t records) {
        next = place;
        within = records;
        first = count = 0;
    }
    bool isEmpty() const { return first == count; }
};

// What the exchanges have in common.
struct Scan {
    SortJob& job;
    const DecidingKey& key;
    std::uint32_t pivot;
    FreeComparisons free;
    std::int32_t& judgedInVain;
};

template <Direction direction>
bool comparatorStops(const Scan& scan, std::uint32_t place) {
    return direction == Direction::kUp ? !recordPrecedes(scan.job, place, scan.pivot)
                                       : !recordPrecedes(scan.job, scan.pivot, place);
}

// Whether the comparator may be asked out of turn about a record that the digits do not judge.
template <LeadingKind kind>
bool isFree(const Scan& scan, const Byte* record) {
    if (scan.free.ofAll) return true;
    std::uint64_t digits = 0;
    const bool comparable = (scan.key.checksNulls && isNull(record, *scan.key.rule)) ||
                            ascendingDigits<kind>(scan.key.source, record, digits);
    return comparable && scan.free.ofComparable;
}

// Whether a record of a run ends a scan; kUnknown where the comparator may not be asked.
enum class Stop : std::uint8_t { kNo, kYes, kUnknown };

template <LeadingKind kind, bool plain, Direction direction>
Stop settleStop(const Scan& scan, std::uint32_t place) {
    const DecidingKey& key = scan.key;
    const Byte* const record = recordAt(scan.job, place);
    std::uint64_t digits = 0;
    const bool judged = decidingDigits<kind, plain>(key, record, digits);
    if (judged && (digits < key.low || digits > key.high || key.isComplete)) return Stop::kYes;
    if (!(judged ? scan.free.ofComparable : isFree<kind>(scan, record))) return Stop::kUnknown;
    if (judged && key.goesOn && ascendingDigits<kind>(key.nextSource, record, digits)) {
        digits ^= key.turn;
        const bool stops =
            direction == Direction::kUp ? digits > key.nextDigits : digits < key.nextDigits;
        if (digits != key.nextDigits) {
            scan.job.compareState = 1;
            return stops ? Stop::kYes : Stop::kNo;
        }
    }
    return comparatorStops<direction>(scan, place) ? Stop::kYes : Stop::kNo;
}

// Goes through the stops for those that the digits left open. Where the comparator may not be asked
// the run ends before them: the number of records that count as judged.
template <LeadingKind kind, bool plain, Direction direction>
std::int32_t settleOpenStops(const Scan& scan, Side& side, std::int32_t records) {
    std::int32_t kept = 0;
    for (std::int32_t s = 0; s < side.count; ++s) {
        const std::uint32_t place = side.stops[s];
        const Stop stop = settleStop<kind, plain, direction>(scan, place);
        if (stop == Stop::kUnknown) {
            const std::uint32_t distance =
                direction == Direction::kUp ? place - side.next : side.next - place;
            const auto judged = static_cast<std::int32_t>(distance / scan.job.recordLength);
            scan.judgedInVain += records - judged;
            records = judged;
            side.within = records;
            break;
        }
        side.stops[kept] = place;
        kept += stop == Stop::kYes ? 1 : 0;
    }
    side.count = kept;
    return records;
}

// Sets `compareState` if a record of the run is known to differ from the pivot: one that is no
// stop, or a stop on the other side.
template <LeadingKind kind, bool plain>
void noteDifference(const Scan& scan, const Side& side, std::int32_t records) {
    if (scan.job.compareState != 0) return;
    bool differs = side.count < records;
    for (std::int32_t s = 0; s < side.count && !differs; ++s)
        differs = judge<kind, plain>(scan.key, recordAt(scan.job, side.stops[s])).differs() != 0;
    if (differs) scan.job.compareState = 1;
}

// Notes the stops among the next `records` records: all but those that the digits tell to be on
// their side. How many were left open.
template <LeadingKind kind, bool plain, bool complete, Direction direction>
std::uint32_t noteStops(const Scan& scan, Side& side, std::int32_t records) {
    const DecidingKey key = scan.key;  // a copy, so that no store can change it
    const Byte* record = recordAt(scan.job, side.next);
    const std::ptrdiff_t step = direction == Direction::kUp
                                    ? std::ptrdiff_t{scan.job.recordLength}
                                    : -std::ptrdiff_t{scan.job.recordLength};
    const auto base = reinterpret_cast<std::uintptr_t>(scan.job.frameArea);
    std::uint32_t stops = 0;
    std::uint32_t decided = 0;
    for (std::int32_t n = 0; n < records; ++n, record += step) {
        const Verdict verdict = judge<kind, plain>(key, record);
        side.stops[stops] =
            static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(record) - base);
        stops += 1 ^ (direction == Direction::kUp ? verdict.before : verdict.behind);
        if constexpr (!complete)
            decided += direction == Direction::kUp ? verdict.behind : verdict.before;
    }
    side.first = 0;
    side.count = static_cast<std::int32_t>(stops);
    return stops - decided;
}

// Judges the next `records` records of a side, or fewer: how many.
template <LeadingKind kind, bool plain, Direction direction>
std::int32_t judgeRun(const Scan& scan, Side& side, std::int32_t records) {
    // With a complete plain key only values without digits are open; its types have no such value.
    if (plain && scan.key.isComplete) {
        noteStops<kind, plain, true, direction>(scan, side, records);
        noteDifference<kind, plain>(scan, side, records);
    } else {
        const auto open = noteStops<kind, plain, false, direction>(scan, side, records);
        noteDifference<kind, plain>(scan, side, records);
        if (open > 0) records = settleOpenStops<kind, plain, direction>(scan, side, records);
    }
    const std::uint32_t distance = static_cast<std::uint32_t>(records) * scan.job.recordLength;
    side.next = direction == Direction::kUp ? side.next + distance : side.next - distance;
    side.within -= records;
    return records;
}

// Judges records of a side until it has a stop. False when it has none in its block or among the
// `between` records that no side has judged, of which the other side wants half.
template <LeadingKind kind, bool plain, Direction direction>
bool findStops(const Scan& scan, Side& side, std::int32_t& between, bool otherIsEmpty) {
    while (side.isEmpty()) {
        const std::int32_t share = otherIsEmpty ? between - between / 2 : between;
        const std::int32_t records = std::min({kRunRecords, side.within, share});
        if (records <= 0) return false;
        between -= judgeRun<kind, plain, direction>(scan, side, records);
    }
    return true;
}

// Exchanges the stops of both sides, first with first, until one side has no more.
void exchangeStops(const Scan& scan, Side& up, Side& down) {
    const std::int32_t pairs = std::min(up.count - up.first, down.count - down.first);
    for (std::int32_t p = 0; p < pairs; ++p) {
        exchangeRecords(recordAt(scan.job, up.stops[up.first + p]),
                        recordAt(scan.job, down.stops[down.first + p]), scan.job.recordLength);
    }
    up.first += pairs;
    down.first += pairs;
}

void moveTo(const SortJob& job, HeldRecord& cursor, std::uint32_t place) {
    const auto step = static_cast<std::int32_t>(job.recordLength);
    cursor.recordNumber += static_cast<std::int32_t>(place - cursor.offset) / step;
    cursor.offset = place;
}

// Where a cursor stands that has passed the judged records: at the first stop, or at the last one
// that is none.
void passJudged(const SortJob& job, HeldRecord& cursor, const Side& side, std::int32_t step) {
    if (!side.isEmpty()) {
        moveTo(job, cursor, side.stops[side.first]);
    } else if (side.next != cursor.offset) {
        moveTo(job, cursor, side.next - static_cast<std::uint32_t>(step));
    }
}

template <LeadingKind kind, bool plain>
bool exchangeRuns(const Scan& scan, const BlockCursors& cursors) {
    SortJob& job = scan.job;
    HeldRecord& i = cursors.i;
    HeldRecord& j = cursors.j;
    std::int32_t between = j.recordNumber - i.recordNumber + 1;
    Side up;
    Side down;
    up.startAt(i.offset, cursors.iLast - i.recordNumber + 1);
    down.startAt(j.offset, j.recordNumber - cursors.jFirst + 1);
    std::uint32_t lastUp = i.offset;
    std::uint32_t lastDown = j.offset;
    bool exchanged = false;
    while (findStops<kind, plain, Direction::kUp>(scan, up, between, down.isEmpty()) &&
           findStops<kind, plain, Direction::kDown>(scan, down, between, false)) {
        exchangeStops(scan, up, down);
        lastUp = up.stops[up.first - 1];
        lastDown = down.stops[down.first - 1];
        exchanged = true;
    }
    if (!exchanged) {
        const std::int32_t step = job.recordLength;
        passJudged(job, i, up, step);
        passJudged(job, j, down, -step);
        return false;
    }
    moveTo(job, i, lastUp);
    moveTo(job, j, lastDown);
    markDirty(job, i.frameIndex);
    markDirty(job, j.frameIndex);
    return true;
}

}  // namespace

bool exchangeInBlocks(SortJob& job, const DecidingKey& key, std::uint32_t pivot,
                      const BlockCursors& cursors) {
    if (key.source.kind == LeadingKind::kNone) return false;
    if (cursors.j.recordNumber - cursors.i.recordNumber < kRecordsMin) return false;
    const Scan scan = {job, key, pivot, freeComparisons(job, key), cursors.judgedInVain};
    return withDecidingKey(key, [&]<LeadingKind kind, bool plain>() {
        return exchangeRuns<kind, plain>(scan, cursors);
    });
}

}  // namespace tvsort
