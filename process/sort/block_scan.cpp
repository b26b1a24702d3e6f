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

enum class Direction : bool { kUp, kDown };

// One side: a run of records, and those of them that stop a scan.
struct Side {
    HeldRecord& cursor;
    std::int32_t records;
    std::int32_t stopCount;
    std::uint32_t stops[kRunRecords];  // places
    Byte isOpen[kRunRecords];          // by stop: the judge does not know
};

template <Direction direction>
std::uint32_t stepOf(const SortJob& job) {
    const std::uint32_t length = job.recordLength;
    return direction == Direction::kUp ? length : 0U - length;
}

// Notes the stops of a run: all records but those known to be on their side. How many are open.
template <Direction direction, typename Reader>
std::int32_t noteStops(const SortJob& job, const PivotJudge& judge, Reader reader, Side& side) {
    const std::uint64_t low = judge.low;
    const std::uint64_t span = judge.span;
    const Byte* const base = job.frameArea;
    const std::uint32_t step = stepOf<direction>(job);
    std::uint32_t place = side.cursor.offset;
    std::uint32_t stops = 0;
    std::uint32_t open = 0;
    for (std::int32_t n = 0; n < side.records; ++n, place += step) {
        const std::uint64_t word = reader.read(base + place);
        const std::uint32_t unsure{!reader.isSure(base + place)};
        const std::uint32_t isOpen = unsure | std::uint32_t{word - low <= span};
        const std::uint32_t below{word < low};
        side.stops[stops] = place;
        side.isOpen[stops] = static_cast<Byte>(isOpen);
        stops += isOpen | (direction == Direction::kUp ? below ^ 1 : below);
        open += isOpen;
    }
    side.stopCount = static_cast<std::int32_t>(stops);
    return static_cast<std::int32_t>(open);
}

// Asks the comparator about the open stops. Where the comparator may not be asked the run ends.
template <Direction direction>
void settleOpenStops(SortJob& job, const PivotJudge& judge, std::uint32_t pivot, Side& side) {
    std::int32_t kept = 0;
    for (std::int32_t s = 0; s < side.stopCount; ++s) {
        const std::uint32_t place = side.stops[s];
        bool isStop = true;
        if (side.isOpen[s] != 0) {
            if (!isFree(*judge.key) || doubtsAbout(*judge.key, recordAt(job, place)) != kNoDoubts) {
                const auto distance = static_cast<std::int32_t>(place - side.cursor.offset);
                side.records = distance / static_cast<std::int32_t>(stepOf<direction>(job));
                break;
            }
            isStop = direction == Direction::kUp ? !recordPrecedes(job, place, pivot)
                                                 : !recordPrecedes(job, pivot, place);
        }
        side.stops[kept] = place;
        kept += isStop ? 1 : 0;
    }
    side.stopCount = kept;
}

template <Direction direction>
void judgeRun(SortJob& job, const PivotJudge& judge, std::uint32_t pivot, Side& side) {
    const std::int32_t open = withJudgedWord(
        judge, [&](const auto& reader) { return noteStops<direction>(job, judge, reader, side); });
    if (open < side.records) job.compareState = 1;
    // That equals the pivot is known where nothing else can be open.
    const bool areEqual = judge.endsKey && judge.alikeCount == 0 && judge.checkCount == 0;
    if (open > 0 && !areEqual) settleOpenStops<direction>(job, judge, pivot, side);
}

// Moves a cursor to the first stop that is left, or behind the run.
template <Direction direction>
void moveCursor(const SortJob& job, const Side& side, std::int32_t exchanged) {
    HeldRecord& cursor = side.cursor;
    const std::uint32_t step = stepOf<direction>(job);
    const std::uint32_t place =
        exchanged < side.stopCount
            ? side.stops[exchanged]
            : cursor.offset + static_cast<std::uint32_t>(side.records) * step;
    cursor.recordNumber += static_cast<std::int32_t>(place - cursor.offset) /
                           static_cast<std::int32_t>(job.recordLength);
    cursor.offset = place;
}

}  // namespace

void exchangeInBlocks(SortJob& job, PivotJudge& judge, std::uint32_t pivot,
                      const BlockCursors& cursors) {
    const HeldRecord& i = cursors.i;
    const HeldRecord& j = cursors.j;
    while (judge.isAble) {
        const std::int32_t records =
            std::min({kRunRecords, cursors.iLast - i.recordNumber, j.recordNumber - cursors.jFirst,
                      (j.recordNumber - i.recordNumber) / 2});
        if (records < kRecordsMin) return;
        Side up = {cursors.i, records, 0, {}, {}};
        Side down = {cursors.j, records, 0, {}, {}};
        judgeRun<Direction::kUp>(job, judge, pivot, up);
        judgeRun<Direction::kDown>(job, judge, pivot, down);
        const std::int32_t pairs = std::min(up.stopCount, down.stopCount);
        for (std::int32_t p = 0; p < pairs; ++p) {
            exchangeRecords(recordAt(job, up.stops[p]), recordAt(job, down.stops[p]),
                            job.recordLength);
        }
        if (pairs > 0) {
            markDirty(job, i.frameIndex);
            markDirty(job, j.frameIndex);
        }
        moveCursor<Direction::kUp>(job, up, pairs);
        moveCursor<Direction::kDown>(job, down, pairs);
        const std::int32_t judged = up.records + down.records;
        judge.credit += 2 * (judged - records);
        judge.isAble = judge.credit > 0;
        if (judged < 2 * records) return;
    }
}

}  // namespace tvsort
