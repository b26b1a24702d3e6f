// The blocks of a result on their way to the work file, where blocks that are not read yet stand in
// their way.
//
// Records are collected in a chunk of blocks, which goes to the file when it is full. Before, what
// stands in its places moves: a block of a range to a frame if there is one, or to the first free
// place of its range's region or behind, where nothing will have to move it again. Such a place is
// free as often as not, so no more than every second block moves, and few move twice.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"
#include "process/storage/block_store.h"
#include "process/storage/record_array.h"

namespace tvsort {

struct ResultBlocks {
    BlockStore& store;
    const std::int32_t* regions;  // by range: the place where it will begin
    Byte* chunk;                  // room for chunkBlocks blocks
    Byte* spare;                  // the same, for blocks that move
    std::int32_t chunkBlocks;
    // A range that is being read while the result is written, or kNoRange: where its blocks are.
    std::uint32_t listedRange;
    std::int32_t* listedPlaces;
    // Of the chunk: place of its first block, full blocks, records in the next one.
    std::int32_t place;
    std::int32_t full;
    std::uint32_t inBlock;
};

inline constexpr std::uint32_t kNoRange = kRangeNumbersMax;

// Writes the chunk. The last one may end with a block that is not full. False with 1402, 1403 or
// 1409.
bool writeChunk(ResultBlocks& result);

// Appends `count` records: those that `next()` answers one after the other.
template <typename Next>
bool appendRecords(ResultBlocks& result, std::uint32_t count, Next next) {
    const SortJob& job = result.store.job;
    while (count > 0) {
        const std::uint32_t here = std::min(count, job.recordsPerBlock - result.inBlock);
        Byte* target = result.chunk + static_cast<std::size_t>(result.full) * frameBytes(job) +
                       std::size_t{result.inBlock} * job.recordLength;
        for (std::uint32_t i = 0; i < here; ++i, target += job.recordLength)
            copyRecord(target, next(), job.recordLength);
        count -= here;
        result.inBlock += here;
        if (result.inBlock < job.recordsPerBlock) continue;
        result.inBlock = 0;
        if (++result.full == result.chunkBlocks && !writeChunk(result)) return false;
    }
    return true;
}

}  // namespace tvsort
