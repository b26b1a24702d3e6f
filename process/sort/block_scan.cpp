#include "process/sort/block_scan.h"

#include <algorithm>

#include "process/keys/record_precedes.h"
#include "process/storage/record_array.h"

namespace tvsort {

namespace {

// Records that are judged at a time. Their keys' lines stay in the first cache.
constexpr std::int32_t kRunRecords = 128;
// Fewer records than this are left to the plain scans.
constexpr std::int32_t kRecordsMin = 8;

// So many records might have been judged without the comparison of one that is open.
constexpr std::int32_t kOpenCost = 16;

enum class Direction : bool { kUp, kDown };

// One side: the records not judged yet, and the stops not exchanged yet.
struct Side {
    std::uint32_t next;   // place of the first record not judged
    std::int32_t within;  // records of the block from there on
    std::int32_t first;   // stop to be exchanged next
    std::int32_t count;   // stops
    std::uint32_t stops[kRunRecords];
    Byte isOpen[kRunRecords];  // by stop: whether it is one is open

    void startAt(std::uint32_t place, std::int32_t records) {
        next = place;
        within = records;
        first = count = 0;
    }
    bool isEmpty() const { return first == count; }
};

// Of a stop: the word is the pivot's, or there is more to look at before it.
constexpr std::uint32_t kOpenBehindWord = 1;
constexpr std::uint32_t kOpenBefore = 2;

// What the exchanges have in common.
struct Scan {
    SortJob& job;
    const PivotJudge& judge;
    std::uint32_t pivot;
    std::int32_t& judgedInVain;
};

// Notes the stops among the next `records` records: all but those known to be on their side. How
// many are open: about them the word says nothing.
template <Direction direction, typename Reader>
std::uint32_t noteStops(const Scan& scan, const Reader& scanReader, Side& side,
                        std::int32_t records) {
    const Reader reader = scanReader;  // a copy, so that no store can change it
    const std::uint64_t low = scan.judge.low;
    const std::uint64_t span = scan.judge.span;
    const std::uint32_t step = direction == Direction::kUp
                                   ? scan.job.recordLength
                                   : 0U - std::uint32_t{scan.job.recordLength};
    const Byte* const base = scan.job.frameArea;
    std::uint32_t place = side.next;
    std::uint32_t stops = 0;
    std::uint32_t open = 0;
    for (std::int32_t n = 0; n < records; ++n, place += step) {
        const std::uint64_t word = reader.read(base + place);
        const std::uint32_t unsure = reader.isSure(base + place) ^ 1;
        const std::uint32_t within{word - low <= span};
        const std::uint32_t below{word < low};
        side.stops[stops] = place;
        side.isOpen[stops] = static_cast<Byte>(unsure * kOpenBefore | within);
        stops += unsure | (direction == Direction::kUp ? below ^ 1 : below | within);
        open += unsure | within;
    }
    if (open < static_cast<std::uint32_t>(records)) scan.job.compareState = 1;
    side.first = 0;
    side.count = static_cast<std::int32_t>(stops);
    return open;
}

// Whether an open record ends a scan; kUnknown where the comparator may not be asked out of turn.
enum class Stop : std::uint8_t { kNo, kYes, kUnknown };

template <Direction direction>
Stop settleStop(const Scan& scan, std::uint32_t place, std::uint32_t open) {
    SortJob& job = scan.job;
    const NormalizedKey& key = *scan.judge.key;
    const Byte* const record = recordAt(job, place);
    if (!isFree(key) || doubtsAbout(key, record) != kNoDoubts) return Stop::kUnknown;
    const bool goesOn = open == kOpenBehindWord && scan.judge.span == 0;
    const KeyOrder found =
        compareKeys(key, goesOn ? scan.judge.next : kKeyStart, record, recordAt(job, scan.pivot));
    if (found.order == 0) return Stop::kYes;
    bool stops = direction == Direction::kUp ? found.order > 0 : found.order < 0;
    if (isTolerantFloat(key.segments[found.segment].first)) {
        stops = direction == Direction::kUp ? !recordPrecedes(job, place, scan.pivot)
                                            : !recordPrecedes(job, scan.pivot, place);
    } else {
        job.compareState = 1;
    }
    return stops ? Stop::kYes : Stop::kNo;
}

// Goes through the stops for those that were left open. Where one remains so the run ends before
// it: the number of records that count as judged.
template <Direction direction>
std::int32_t settleOpenStops(const Scan& scan, Side& side, std::int32_t records) {
    std::int32_t kept = 0;
    for (std::int32_t s = 0; s < side.count; ++s) {
        const std::uint32_t place = side.stops[s];
        const Stop stop =
            side.isOpen[s] != 0 ? settleStop<direction>(scan, place, side.isOpen[s]) : Stop::kYes;
        if (stop == Stop::kUnknown) {
            const std::uint32_t distance =
                direction == Direction::kUp ? place - side.next : side.next - place;
            const auto judged = static_cast<std::int32_t>(distance / scan.job.recordLength);
            scan.judgedInVain += records - judged;
            records = side.within = judged;
            break;
        }
        side.stops[kept] = place;
        kept += stop == Stop::kYes ? 1 : 0;
    }
    side.count = kept;
    return records;
}

// Judges the next `records` records of a side, or fewer: how many.
template <Direction direction>
std::int32_t judgeRun(const Scan& scan, Side& side, std::int32_t records) {
    const std::uint32_t open = withJudgedWord(scan.judge, [&](const auto& reader) {
        return noteStops<direction>(scan, reader, side, records);
    });
    if (open > 0 && !scan.judge.knowsAll()) {
        scan.judgedInVain += kOpenCost * static_cast<std::int32_t>(open);
        records = settleOpenStops<direction>(scan, side, records);
    }
    const std::uint32_t distance = static_cast<std::uint32_t>(records) * scan.job.recordLength;
    side.next = direction == Direction::kUp ? side.next + distance : side.next - distance;
    side.within -= records;
    return records;
}

// Judges records of a side until it has a stop. False when it has none in its block or among the
// `between` records that no side has judged, of which the other side wants half.
template <Direction direction>
bool findStops(const Scan& scan, Side& side, std::int32_t& between, bool otherIsEmpty) {
    while (side.isEmpty()) {
        const std::int32_t share = otherIsEmpty ? between - between / 2 : between;
        const std::int32_t records = std::min({kRunRecords, side.within, share});
        if (records <= 0) return false;
        between -= judgeRun<direction>(scan, side, records);
    }
    return true;
}

// Exchanges the stops of both sides, first with first, until one side has no more.
void exchangeStops(const SortJob& job, Side& up, Side& down) {
    const std::int32_t pairs = std::min(up.count - up.first, down.count - down.first);
    for (std::int32_t p = 0; p < pairs; ++p) {
        exchangeRecords(recordAt(job, up.stops[up.first + p]),
                        recordAt(job, down.stops[down.first + p]), job.recordLength);
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
    while (findStops<Direction::kUp>(scan, up, between, down.isEmpty()) &&
           findStops<Direction::kDown>(scan, down, between, false)) {
        exchangeStops(job, up, down);
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

bool exchangeInBlocks(SortJob& job, const PivotJudge& judge, std::uint32_t pivot,
                      const BlockCursors& cursors) {
    if (cursors.j.recordNumber - cursors.i.recordNumber < kRecordsMin) return false;
    return exchangeRuns({job, judge, pivot, cursors.judgedInVain}, cursors);
}

}  // namespace tvsort
