#include "process/sort/block_plan.h"

#include <algorithm>

#include "process/sort/block_distribution.h"
#include "process/sort/entry_sort.h"
#include "process/sort/splitters.h"
#include "process/storage/place_map.h"

namespace tvsort {

namespace {

// Records of a range that the second cache holds, mostly.
constexpr std::int32_t kCachedRecords = 8192;
// What is read and written at a time, where there is room.
constexpr std::uint32_t kChunkBytes = std::uint32_t{1} << 20;

std::int32_t framesFor(const SortJob& job, std::int64_t bytes) {
    const std::int64_t frame = frameBytes(job);
    return static_cast<std::int32_t>((bytes + frame - 1) / frame);
}

// The layout for so many ranges, with working frames for one of three times its share.
Layout layoutFor(const SortJob& job, std::int32_t frames, std::int32_t rangesWanted) {
    const std::int32_t copies = framesFor(job, std::int64_t{rangesWanted - 1} * job.recordLength);
    const auto chunkMax = static_cast<std::int32_t>(std::max(kChunkBytes / frameBytes(job), 2U));
    const std::int32_t chunk = std::clamp(frames / 16, 2, chunkMax);
    const std::int32_t chunksAt = frames - 2 * chunk;
    const std::int32_t buffersAt = chunksAt - rangesWanted;
    const std::int32_t copiesAt = buffersAt - copies;
    const std::int64_t wanted = framesOfRange(job, 3 * std::int64_t{blocksOf(job) / rangesWanted});
    const std::int64_t working =
        std::min(std::max(wanted, std::int64_t{kWorkingFramesMin}), std::int64_t{copiesAt});
    return {rangesWanted, static_cast<std::int32_t>(working), copiesAt, buffersAt, chunksAt, chunk};
}

}  // namespace

std::int32_t blocksOf(const SortJob& job) {
    return static_cast<std::int32_t>((std::int64_t{job.recordCount} + job.recordsPerBlock - 1) /
                                     job.recordsPerBlock);
}

std::uint32_t inLastBlock(const SortJob& job) {
    return (static_cast<std::uint32_t>(job.recordCount) - 1) % job.recordsPerBlock + 1;
}

std::int64_t framesOfRange(const SortJob& job, std::int64_t blocks) {
    const std::int64_t entryBytes = (blocks + 1) * job.recordsPerBlock * kEntriesBytes;
    return blocks + 1 + (entryBytes + frameBytes(job) - 1) / frameBytes(job);
}

bool isWorthIt(const SortJob& job, std::int32_t frames) {
    return frames >= kDistributionFramesMin && job.recordCount >= kDistributionRecordsMin &&
           blocksOf(job) <= kPlacesMax - frames;
}

Layout planLayout(const SortJob& job, std::int32_t frames) {
    const std::int32_t blocks = blocksOf(job);
    const std::int32_t most = std::min(frames * 3 / 8, std::int32_t{kSplitRangesMax});
    const std::int32_t forCache = std::min(job.recordCount / kCachedRecords, most);
    Layout layout = layoutFor(job, frames, std::max(forCache, 2));
    while (layout.rangesWanted < most) {
        const std::int64_t share = blocks / layout.rangesWanted;
        if (framesOfRange(job, 2 * share) <= layout.copiesAt) return layout;
        layout = layoutFor(job, frames, layout.rangesWanted + 1);
    }
    const bool mostFit = framesOfRange(job, blocks / most) <= layout.copiesAt;
    return mostFit ? layout : layoutFor(job, frames, frames / 4);
}

bool threeRoundsAreEnough(const SortJob& job, const Layout& layout) {
    // Each further round turns up to a third of the frames left into buffers, and its ranges differ
    // in size: measured, they get smaller by a sixth of the frames.
    const std::int64_t frames = layout.copiesAt;
    const std::int64_t share = blocksOf(job) / layout.rangesWanted;
    return framesOfRange(job, 2 * share) <= frames * frames * frames / (6 * 6);
}

}  // namespace tvsort
