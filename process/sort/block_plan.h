// How a block distribution (sort/block_distribution.h) divides its frames, and whether it pays.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Working frames, where there are so many.
inline constexpr std::int32_t kWorkingFramesMin = 32;

// The frames, from 0 on: working frames for blocks that are read, and for a range with its entries;
// frames for blocks that spare the file; copies of the splitters; the ranges' buffers; a chunk of
// the result, and as many blocks that are in its way. The sample stands first where buffers and
// chunks will be.
struct Layout {
    std::int32_t rangesWanted;
    std::int32_t working;    // frames
    std::int32_t copiesAt;   // before, all frames hold the data set's first blocks
    std::int32_t buffersAt;  // one for each range
    std::int32_t chunksAt;   // two
    std::int32_t chunk;      // frames of one
};

// Blocks of the data set, and records in the last one.
std::int32_t blocksOf(const SortJob& job);
std::uint32_t inLastBlock(const SortJob& job);

// Frames that a range of `blocks` full blocks takes, with one that is not full and the entries.
std::int64_t framesOfRange(const SortJob& job, std::int64_t blocks);

// Whether there are frames and records enough, and places to be told apart.
bool isWorthIt(const SortJob& job, std::int32_t frames);

// Chooses as many ranges as it takes for two of them to fit, and for each to fit a cache. Where the
// `frames` are too few for that there are as many as they allow, if one fits; otherwise a quarter
// of the frames become buffers, which leaves enough for those of the next round, and ranges are
// distributed again. Records are no longer than a block.
Layout planLayout(const SortJob& job, std::int32_t frames);

// Whether the ranges of the layout fit, or fit when they have been distributed once or twice more.
// For more rounds there are no buffers.
bool threeRoundsAreEnough(const SortJob& job, const Layout& layout);

}  // namespace tvsort
