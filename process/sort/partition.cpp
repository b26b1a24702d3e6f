#include "process/sort/partition.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "process/keys/record_precedes.h"
#include "process/sort/block_scan.h"
#include "process/sort/pivot_judge.h"
#include "process/storage/page_pool.h"
#include "process/storage/record_array.h"
#include "process/storage/server_watch.h"

namespace tvsort {

namespace {

// The distance between a range's ends above which its pivot is drawn at random.
constexpr std::int32_t kRandomPivotDistance = 100;

// Judging records in runs is given up for the rest of a partition when it has judged so many more
// in vain than not.
constexpr std::int32_t kVainJudgementsMax = 256;

// A judge costs as much as a few comparisons: shorter ranges do without.
constexpr std::int32_t kJudgedDistance = 16;
constexpr int kSampleMax = 3;

PivotJudge judge;

// One partition at work.
struct Partition {
    HeldRange& held;
    std::uint32_t pivot;  // place of the pivot's copy
    const NormalizedKey& key;
    std::int32_t iLast;   // last record of i's block
    std::int32_t jFirst;  // first record of j's block
};

std::int32_t pivotRecordNumber(const HeldRange& held) {
    const std::int32_t distance = held.high.recordNumber - held.low.recordNumber;
    const std::int32_t step = distance > kRandomPivotDistance ? rand() % distance : distance / 2;
    return held.low.recordNumber + step;
}

std::int32_t lastRecordOfBlock(const SortJob& job, std::int32_t block) {
    // The end of the last block may lie beyond 32 bits; no cursor gets there.
    const std::int64_t last = std::int64_t{block} * job.recordsPerBlock;
    constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(last < kMax ? last : kMax);
}

std::int32_t firstRecordOfBlock(const SortJob& job, std::int32_t block) {
    return (block - 1) * std::int32_t{job.recordsPerBlock} + 1;
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

bool stepUp(SortJob& job, Partition& partition) {
    HeldRecord& i = partition.held.i;
    i.recordNumber += 1;
    if (i.recordNumber <= partition.iLast) {
        i.offset += job.recordLength;
        return true;
    }
    partition.iLast = lastRecordOfBlock(job, blockOfRecord(job, i.recordNumber));
    return crossBlock(job, partition.held, i, partition.held.j);
}

bool stepDown(SortJob& job, Partition& partition) {
    HeldRecord& j = partition.held.j;
    j.recordNumber -= 1;
    if (j.recordNumber >= partition.jFirst) {
        j.offset -= job.recordLength;
        return true;
    }
    partition.jFirst = firstRecordOfBlock(job, blockOfRecord(job, j.recordNumber));
    return crossBlock(job, partition.held, j, partition.held.i);
}

// Moves i up to the first record that does not precede the pivot.
bool scanUp(SortJob& job, Partition& partition) {
    const HeldRange& held = partition.held;
    while (recordPrecedes(job, held.i.offset, partition.pivot)) {
        if (held.i.recordNumber == held.high.recordNumber) break;
        if (!stepUp(job, partition)) return false;
    }
    return true;
}

// Moves j down to the first record that the pivot does not precede.
bool scanDown(SortJob& job, Partition& partition) {
    const HeldRange& held = partition.held;
    while (recordPrecedes(job, partition.pivot, held.j.offset)) {
        if (held.j.recordNumber == held.low.recordNumber) break;
        if (!stepDown(job, partition)) return false;
    }
    return true;
}

// Copies the pivot record behind the frames. False when it could not be reached.
bool copyPivot(SortJob& job, const Partition& partition) {
    const std::uint32_t source = addressRecord(job, pivotRecordNumber(partition.held));
    if (failed(job)) return false;
    std::memcpy(recordAt(job, partition.pivot), recordAt(job, source), job.recordLength);
    return true;
}

// The two scans and the exchange of the records where they stop. False when a scan failed.
bool scanAndExchange(SortJob& job, Partition& partition) {
    const HeldRange& held = partition.held;
    if (!scanUp(job, partition)) return false;
    if (!scanDown(job, partition)) return false;
    if (held.i.recordNumber < held.j.recordNumber) {
        exchangeRecords(recordAt(job, held.i.offset), recordAt(job, held.j.offset),
                        job.recordLength);
        markDirty(job, held.i.frameIndex);
        markDirty(job, held.j.frameIndex);
    }
    return true;
}

// Scans and exchanges, from both ends to where the cursors meet.
void movePast(SortJob& job, Partition& partition) {
    HeldRange& held = partition.held;
    do {
        exchangeInBlocks(job, judge, partition.pivot,
                         {held.i, held.j, partition.iLast, partition.jFirst});
        if (!scanAndExchange(job, partition)) return;
        if (held.i.recordNumber <= held.j.recordNumber) {
            // The cursors may pass each other by one, but leave the data set for no comparison.
            if (held.i.recordNumber != job.recordCount && !stepUp(job, partition)) return;
            if (held.j.recordNumber != 1 && !stepDown(job, partition)) return;
        }
        if (failed(job)) return;
    } while (held.i.recordNumber <= held.j.recordNumber);
}

// Appoints the judge by the pivot, both ends and records between them in the ends' blocks.
void appointForRange(SortJob& job, const Partition& partition) {
    const HeldRange& held = partition.held;
    const std::int32_t distance = held.high.recordNumber - held.low.recordNumber;
    judge.isAble = false;
    if (distance < kJudgedDistance) return;
    const Byte* const sample[kSampleMax] = {recordAt(job, partition.pivot),
                                            recordAt(job, held.low.offset),
                                            recordAt(job, held.high.offset)};
    appointJudge(partition.key, sample, kSampleMax, judge);
    judge.credit = kVainJudgementsMax;
}

}  // namespace

void partitionRange(SortJob& job, const NormalizedKey& key, HeldRange& held) {
    assert(poolIsSane(job) && pinsAreFew(job));
    const auto distance = static_cast<std::size_t>(held.high.recordNumber - held.low.recordNumber);
    watchServer(job, distance * job.recordLength);
    Partition partition = {held, static_cast<std::uint32_t>(job.memoryBytes), key, 0, 0};
    if (!copyPivot(job, partition)) return;
    held.i = held.low;
    held.j = held.high;
    partition.iLast = lastRecordOfBlock(job, blockOfRecord(job, held.i.recordNumber));
    partition.jFirst = firstRecordOfBlock(job, blockOfRecord(job, held.j.recordNumber));
    appointForRange(job, partition);
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
