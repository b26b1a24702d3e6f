#include "process/sort/sort_driver.h"

#include <algorithm>

#include "process/keys/normalized_key.h"
#include "process/sort/block_distribution.h"
#include "process/sort/entry_sort.h"
#include "process/sort/partition.h"
#include "process/sort/reading.h"
#include "process/sort/short_range.h"
#include "process/storage/record_address.h"

namespace tvsort {

namespace {

NormalizedKey normalizedKey;

// Takes the top range off the stack. Raises 1405 for a depth that cannot be.
RecordRange popRange(SortJob& job) {
    if (job.partitionDepth > kPartitionStackPairs) {
        raise(job, ErrorCode::kPartitionStackFull);
        return {};
    }
    job.partitionDepth -= 1;
    return job.partitionStack[job.partitionDepth];
}

// Locates and pins both ends. The low end is pinned before the high end is located, so that
// bringing in the high end's block cannot take the low end's frame.
bool holdEnds(SortJob& job, const RecordRange& range, HeldRange& held) {
    held.low = locateRecord(job, range.low);
    if (failed(job)) return false;
    pinFrame(job, held.low.frameIndex);
    held.high = locateRecord(job, range.high);
    if (failed(job)) return false;
    pinFrame(job, held.high.frameIndex);
    return true;
}

// Leaves the larger part on the stack and `held` with the smaller one, whose ends stay pinned.
void keepSmallerPart(SortJob& job, HeldRange& held) {
    const HeldRange parts = held;
    if (parts.j.recordNumber - parts.low.recordNumber >=
        parts.high.recordNumber - parts.i.recordNumber) {
        if (parts.low.recordNumber < parts.j.recordNumber) {
            pushRange(job, parts.low.recordNumber, parts.j.recordNumber);
        }
        unpinUnlessHeld(job, parts.j, parts.i, parts.high);
        unpinUnlessHeld(job, parts.low, parts.i, parts.high);
        held.low = parts.i;
    } else {
        if (parts.i.recordNumber < parts.high.recordNumber) {
            pushRange(job, parts.i.recordNumber, parts.high.recordNumber);
        }
        unpinUnlessHeld(job, parts.high, parts.j, parts.low);
        unpinUnlessHeld(job, parts.i, parts.j, parts.low);
        held.high = parts.j;
    }
}

// Sorts a short range in one block if its records differ enough.
bool trySortingShort(SortJob& job, const HeldRange& held, Byte* scratch) {
    if (!sortShortRange(job, normalizedKey, held.low, held.high, scratch)) return false;
    // A partition would have asked for the pivot's block: it becomes the one used last.
    if (held.high.recordNumber - held.low.recordNumber >= kInsertionDistance)
        addressRecord(job, held.low.recordNumber);
    return true;
}

// Sorts one range, but for the parts that it leaves on the stack.
void sortRange(SortJob& job, const RecordRange& range, Byte* scratch) {
    HeldRange held = {};
    if (!holdEnds(job, range, held)) return;
    while (held.low.recordNumber < held.high.recordNumber) {
        const std::int32_t distance = held.high.recordNumber - held.low.recordNumber;
        const bool inOneBlock = held.low.frameIndex == held.high.frameIndex;
        if (inOneBlock && distance <= kShortRangeDistance) {
            if (trySortingShort(job, held, scratch)) break;
            if (distance < kInsertionDistance) {
                insertRange(job, held.low, held.high, scratch);
                break;
            }
        }
        job.compareState = 0;
        partitionRange(job, normalizedKey, held);
        if (failed(job)) return;
        if (job.compareState == 0) {
            // Every record equals the pivot: nothing is left to do in this range.
            unpinFrame(job, held.i.frameIndex);
            unpinFrame(job, held.j.frameIndex);
            break;
        }
        keepSmallerPart(job, held);
        if (failed(job)) return;
    }
    unpinFrame(job, held.low.frameIndex);
    unpinFrame(job, held.high.frameIndex);
}

void quicksort(SortJob& job, Byte* scratch) {
    describeKey(job, normalizedKey);
    if (job.fileBlocks <= job.frameCount &&
        doubtsAboutAll(job, normalizedKey, recordsInFrames(job)) == kNoDoubts) {
        normalizedKey.checkCount = 0;  // what has been checked needs no check in every partition
    }
    // The pivot's copy stands in the spare block behind the frames.
    job.memoryBytes = static_cast<std::int32_t>(static_cast<std::uint32_t>(job.memoryBlocks) *
                                                static_cast<std::uint32_t>(job.pagesPerBlock) *
                                                static_cast<std::uint32_t>(kPageBytes));
    job.currentFrame = 0;
    job.partitionStack[0] = {1, job.recordCount};
    job.partitionDepth = 1;
    while (job.partitionDepth > 0 && !failed(job)) {
        const RecordRange range = popRange(job);
        if (failed(job)) return;
        sortRange(job, range, scratch);
    }
}

}  // namespace

void sortRecords(SortJob& job, Byte* scratch) {
#ifndef TVSORT_QUICKSORT
    if (sortByEntries(job, scratch) || sortByBlocks(job, scratch)) return;
#endif
    quicksort(job, scratch);
}

void pushRange(SortJob& job, std::int32_t low, std::int32_t high) {
    if (job.partitionDepth >= kPartitionStackPairs) {
        raise(job, ErrorCode::kPartitionStackFull);
        return;
    }
    if (job.partitionDepth < 0) {
        raise(job, ErrorCode::kPartitionDepthNegative);
        return;
    }
    job.partitionStack[job.partitionDepth] = {low, high};
    job.partitionDepth += 1;
}

}  // namespace tvsort
