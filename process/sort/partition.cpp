#include "process/sort/partition.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>

#include "process/keys/record_precedes.h"
#include "process/sort/pivot_judge.h"
#include "process/storage/page_pool.h"
#include "process/storage/record_array.h"
#include "process/storage/server_watch.h"

namespace tvsort {

namespace {

// The distance between a range's ends above which its pivot is drawn at random.
constexpr std::int32_t kRandomPivotDistance = 100;

// Records that are judged at a time. Their keys' lines stay in the first cache.
constexpr std::int32_t kRunRecords = 128;
// Fewer records than this are left to the comparator.
constexpr std::int32_t kJudgedRecordsMin = 8;

// A judge costs as much as a few comparisons: shorter ranges do without.
constexpr std::int32_t kJudgedDistance = 16;
constexpr int kSampleMax = 3;

PivotJudge judge;

// A cursor, and the run of records around it that has been judged.
struct Side {
    HeldRecord& cursor;
    std::int32_t sign;        // 1 upward, -1 downward
    std::int32_t bound;       // the last record of the range
    std::int32_t blockLeft;   // records behind the cursor in its block
    std::int32_t runRecords;  // of the run
    std::int32_t runPassed;   // of these, before the cursor
    std::int32_t stopCount;
    std::int32_t nextStop;
    Byte stops[kRunRecords];   // records that may end a scan, counted from the run's first one
    Byte isOpen[kRunRecords];  // by stop: the judge does not know

    std::int32_t judgedAhead() const { return std::max(runRecords - runPassed, 0); }
    // Whether the next stop is known, and another one of the run comes behind it.
    bool knowsNext() const { return nextStop + 1 < stopCount && isOpen[nextStop] == 0; }
    void dropRun() { runRecords = runPassed = stopCount = nextStop = 0; }
};

// One partition at work.
struct Partition {
    HeldRange& held;
    std::uint32_t pivot;  // place of the pivot's copy
    Side up;
    Side down;
};

std::int32_t pivotRecordNumber(const HeldRange& held) {
    const std::int32_t distance = held.high.recordNumber - held.low.recordNumber;
    const std::int32_t step = distance > kRandomPivotDistance ? rand() % distance : distance / 2;
    return held.low.recordNumber + step;
}

bool isFrameOf(std::int32_t frame, const HeldRecord& held) {
    return frame == held.frameIndex;
}

// Moves a cursor to another block: its old frame stays pinned until the new one is there.
bool crossBlock(SortJob& job, const HeldRange& held, HeldRecord& cursor,
                const HeldRecord& otherCursor) {
    const std::uint32_t offset = addressRecord(job, cursor.recordNumber);
    if (failed(job)) return false;
    const std::int32_t oldFrame = cursor.frameIndex;
    if (!isFrameOf(oldFrame, held.low) && !isFrameOf(oldFrame, held.high) &&
        !isFrameOf(oldFrame, otherCursor)) {
        unpinFrame(job, oldFrame);
    }
    cursor.frameIndex = job.currentFrame;
    cursor.offset = offset;
    pinFrame(job, cursor.frameIndex);
    return true;
}

void advance(const SortJob& job, Side& side, std::int32_t records) {
    side.runPassed += records;
    side.blockLeft -= records;
    const std::int32_t moved = side.sign * records;
    side.cursor.recordNumber += moved;
    side.cursor.offset += static_cast<std::uint32_t>(moved * std::int32_t{job.recordLength});
}

bool step(SortJob& job, const HeldRange& held, Side& side, const Side& other) {
    if (side.blockLeft > 0) {
        advance(job, side, 1);
        return true;
    }
    side.dropRun();
    side.blockLeft = job.recordsPerBlock - 1;
    side.cursor.recordNumber += side.sign;
    return crossBlock(job, held, side.cursor, other.cursor);
}

// Notes the stops of a run: all records but those known to be on their side. How many are open.
template <bool upward, typename Reader>
std::int32_t noteStops(const SortJob& job, Reader reader, Side& side) {
    const std::uint64_t low = judge.low;
    const std::uint64_t span = judge.span;
    // That a record equals the pivot is known where nothing else can be open.
    const std::uint32_t asks =
        judge.endsKey && judge.alikeCount == 0 && judge.checkCount == 0 ? 0 : 1;
    const std::uint32_t length = upward ? job.recordLength : 0U - job.recordLength;
    const Byte* const base = job.frameArea;
    const std::int32_t records = side.runRecords;
    std::uint32_t place = side.cursor.offset;
    std::uint32_t stops = 0;
    std::uint32_t open = 0;
    for (std::int32_t n = 0; n < records; ++n, place += length) {
        const std::uint64_t word = reader.read(base + place);
        const std::uint32_t unsure{!reader.isSure(base + place)};
        const std::uint32_t isOpen = unsure | std::uint32_t{word - low <= span};
        const std::uint32_t below{word < low};
        side.stops[stops] = static_cast<Byte>(n);
        side.isOpen[stops] = static_cast<Byte>(isOpen & asks);
        stops += isOpen | (upward ? below ^ 1 : below);
        open += isOpen;
    }
    side.stopCount = static_cast<std::int32_t>(stops);
    return static_cast<std::int32_t>(open);
}

// Records that may be judged in a run from the cursor on: no record is judged before the other side
// may still exchange it.
std::int32_t roomForRun(const Side& side, const Side& other) {
    const std::int32_t between =
        side.sign * (other.cursor.recordNumber - side.cursor.recordNumber) + 1 -
        other.judgedAhead();
    const std::int32_t share = other.judgedAhead() > 0 ? between : between / 2;
    return std::min({kRunRecords, side.blockLeft + 1, share});
}

// Judges a run from the cursor on, or leaves the cursor's record to the comparator.
void judgeRun(SortJob& job, Side& side, Side& other) {
    side.dropRun();
    side.runRecords = roomForRun(side, other);
    if (side.runRecords < kJudgedRecordsMin && other.judgedAhead() > 0) {
        other.dropRun();
        side.runRecords = roomForRun(side, other);
    }
    if (!judge.isAble || side.runRecords < kJudgedRecordsMin) {
        side.runRecords = side.stopCount = 1;
        side.stops[0] = 0;
        side.isOpen[0] = 1;
        return;
    }
    const std::int32_t open = withJudgedWord(judge, [&](const auto& reader) {
        return side.sign > 0 ? noteStops<true>(job, reader, side)
                             : noteStops<false>(job, reader, side);
    });
    if (open < side.runRecords) job.compareState = 1;
}

// Whether the comparator lets the scan go on behind the cursor.
bool goesOn(SortJob& job, const Partition& partition, const Side& side) {
    const std::uint32_t place = side.cursor.offset;
    return side.sign > 0 ? recordPrecedes(job, place, partition.pivot)
                         : recordPrecedes(job, partition.pivot, place);
}

// Moves a cursor to the first record that does not precede the pivot, or that it does not precede.
bool scan(SortJob& job, const Partition& partition, Side& side, Side& other) {
    for (;;) {
        if (side.judgedAhead() == 0) judgeRun(job, side, other);
        while (side.nextStop < side.stopCount) {
            const std::int32_t stop = side.nextStop++;
            advance(job, side, side.stops[stop] - side.runPassed);
            if (side.isOpen[stop] == 0 || !goesOn(job, partition, side)) return true;
        }
        advance(job, side, side.judgedAhead() - 1);
        if (side.cursor.recordNumber == side.bound) return true;
        if (!step(job, partition.held, side, other)) return false;
    }
}

// Copies the pivot record behind the frames. False when it could not be reached.
bool copyPivot(SortJob& job, const Partition& partition) {
    const std::uint32_t source = addressRecord(job, pivotRecordNumber(partition.held));
    if (failed(job)) return false;
    std::memcpy(recordAt(job, partition.pivot), recordAt(job, source), job.recordLength);
    return true;
}

// Exchanges the next stops of both sides while they are known.
void exchangeKnown(SortJob& job, Side& up, Side& down) {
    if (!up.knowsNext() || !down.knowsNext()) return;
    const std::int32_t length = job.recordLength;
    Byte* const upRun = recordAt(job, up.cursor.offset) - up.runPassed * length;
    Byte* const downRun = recordAt(job, down.cursor.offset) + down.runPassed * length;
    for (; up.knowsNext() && down.knowsNext(); ++up.nextStop, ++down.nextStop) {
        exchangeRecords(upRun + up.stops[up.nextStop] * length,
                        downRun - down.stops[down.nextStop] * length, job.recordLength);
    }
    for (Side* side : {&up, &down}) {
        markDirty(job, side->cursor.frameIndex);
        advance(job, *side, side->stops[side->nextStop - 1] + 1 - side->runPassed);
    }
}

// Scans and exchanges, from both ends to where the cursors meet.
void movePast(SortJob& job, Partition& partition) {
    const HeldRange& held = partition.held;
    Side& up = partition.up;
    Side& down = partition.down;
    do {
        exchangeKnown(job, up, down);
        if (!scan(job, partition, up, down) || !scan(job, partition, down, up)) return;
        if (held.i.recordNumber < held.j.recordNumber) {
            exchangeRecords(recordAt(job, held.i.offset), recordAt(job, held.j.offset),
                            job.recordLength);
            markDirty(job, held.i.frameIndex);
            markDirty(job, held.j.frameIndex);
        }
        if (held.i.recordNumber <= held.j.recordNumber) {
            // The cursors may pass each other by one, but leave the data set for no comparison.
            if (held.i.recordNumber != job.recordCount && !step(job, held, up, down)) return;
            if (held.j.recordNumber != 1 && !step(job, held, down, up)) return;
        }
        if (failed(job)) return;
    } while (held.i.recordNumber <= held.j.recordNumber);
}

// Appoints the judge by the pivot, both ends and records between them in the ends' blocks.
void appointForRange(SortJob& job, const NormalizedKey& key, const Partition& partition) {
    const HeldRange& held = partition.held;
    const std::int32_t distance = held.high.recordNumber - held.low.recordNumber;
    judge.isAble = false;
    if (distance < kJudgedDistance) return;
    const Byte* const sample[kSampleMax] = {recordAt(job, partition.pivot),
                                            recordAt(job, held.low.offset),
                                            recordAt(job, held.high.offset)};
    appointJudge(key, sample, kSampleMax, judge);
}

}  // namespace

void partitionRange(SortJob& job, const NormalizedKey& key, HeldRange& held) {
    assert(poolIsSane(job) && pinsAreFew(job));
    const auto distance = static_cast<std::size_t>(held.high.recordNumber - held.low.recordNumber);
    watchServer(job, distance * job.recordLength);
    const std::int32_t inBlock = job.recordsPerBlock;
    const std::int32_t lowLeft = inBlock - 1 - (held.low.recordNumber - 1) % inBlock;
    const std::int32_t highLeft = (held.high.recordNumber - 1) % inBlock;
    Partition partition = {held,
                           static_cast<std::uint32_t>(job.memoryBytes),
                           {held.i, 1, held.high.recordNumber, lowLeft, 0, 0, 0, 0, {}, {}},
                           {held.j, -1, held.low.recordNumber, highLeft, 0, 0, 0, 0, {}, {}}};
    if (!copyPivot(job, partition)) return;
    held.i = held.low;
    held.j = held.high;
    appointForRange(job, key, partition);
    movePast(job, partition);
    assert(poolIsSane(job) && pinsAreFew(job));
}

void unpinUnlessHeld(SortJob& job, const HeldRecord& released, const HeldRecord& first,
                     const HeldRecord& second) {
    if (!isFrameOf(released.frameIndex, first) && !isFrameOf(released.frameIndex, second)) {
        unpinFrame(job, released.frameIndex);
    }
}

}  // namespace tvsort
