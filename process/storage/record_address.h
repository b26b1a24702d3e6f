// From a record's number to its bytes: the only way there is.
//
// Record n (from 1) stands in block (n - 1) div recordsPerBlock + 1, at byte
// ((n - 1) mod recordsPerBlock) x recordLength of it. A place is counted from `frameArea` and is
// good until the next call, which may reuse the frame; who needs it longer pins the frame.
//
// Staying inside the current frame's block costs a division and a comparison and touches nothing
// else, not even the ring.

#pragma once

#include <algorithm>
#include <cstdint>

#include "process/job/sort_job.h"
#include "process/storage/record_array.h"

namespace tvsort {

// Block of record `recordNumber`, from 1.
inline std::int32_t blockOfRecord(const SortJob& job, std::int32_t recordNumber) {
    return (recordNumber - 1) / job.recordsPerBlock + 1;
}

// The number, place and frame of a record whose frame the holder has pinned.
struct HeldRecord {
    std::int32_t recordNumber;
    std::int32_t frameIndex;
    std::uint32_t offset;
};

// Place of record `recordNumber` (1 to `recordCount`), its block brought in if no frame holds it.
// Sets `wantedBlock`, `recordOffset` and `currentFrame`. Raises 1402, 1403 and 1409; the place is
// then not to be used.
std::uint32_t addressRecord(SortJob& job, std::int32_t recordNumber);

// Place of a record where the frames hold consecutive blocks from frame 0 on, and record 1 is the
// first record of frame 0. The pool is not asked, and knows nothing of it.
inline std::uint32_t placeInFrames(const SortJob& job, std::int32_t recordNumber) {
    const std::int32_t frame = (recordNumber - 1) / job.recordsPerBlock;
    const std::int32_t index = recordNumber - 1 - frame * std::int32_t{job.recordsPerBlock};
    return frameOffset(job, frame) + static_cast<std::uint32_t>(index) * job.recordLength;
}

// The records of the data set that stand in frames which hold its first blocks in order.
inline RecordArray recordsInFrames(const SortJob& job) {
    const std::int64_t room = std::int64_t{job.frameCount} * job.recordsPerBlock;
    const auto count = static_cast<std::uint32_t>(std::min<std::int64_t>(room, job.recordCount));
    return recordsInBlocks(job.frameArea, count, job.recordLength, job.recordsPerBlock,
                           frameBytes(job));
}

// `addressRecord`, with the number and frame that belong to the place.
HeldRecord locateRecord(SortJob& job, std::int32_t recordNumber);

inline void pinFrame(SortJob& job, std::int32_t frame) {
    job.pageDescriptors[frame].pinned = 1;
}

inline void unpinFrame(SortJob& job, std::int32_t frame) {
    job.pageDescriptors[frame].pinned = 0;
}

inline void markDirty(SortJob& job, std::int32_t frame) {
    job.pageDescriptors[frame].dirty = 1;
}

}  // namespace tvsort
