#include "bench/situation.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "process/sort/counting_pass.h"
#include "protocol/slot_layout.h"

namespace tvsort::bench {

Situation withRoom() {
    return {"with room", 0};
}

Situation justFitting() {
    return {"just fitting", 1};
}

std::vector<Situation> spilling() {
    return {dataOf(2), dataOf(8), dataOf(20)};
}

Situation dataOf(double dataPerMemory) {
    return {fmt::format("data = {:g} x memory", dataPerMemory), dataPerMemory};
}

std::int32_t blocksOf(const host::Geometry& geometry, std::size_t recordCount) {
    const std::size_t perBlock = geometry.recordsPerBlock;
    return static_cast<std::int32_t>((recordCount + perBlock - 1) / perBlock);
}

std::int32_t memoryPagesFor(const Situation& situation, const host::Geometry& geometry,
                            std::size_t recordCount) {
    const std::int32_t dataBlocks = blocksOf(geometry, recordCount);
    std::int32_t frames = 0;
    if (situation.dataPerMemory == 0) {
        // A second copy of the records and the counters, in whole frames, and one more.
        const std::size_t workingBytes =
            recordCount * geometry.recordLength + kCounterTableBytes + 4;
        frames = dataBlocks + static_cast<std::int32_t>(workingBytes / geometry.blockBytes()) + 1;
    } else {
        frames = static_cast<std::int32_t>(std::ceil(dataBlocks / situation.dataPerMemory));
    }
    return std::max(frames, kMemoryBlocksMin) * geometry.blockPages;
}

}  // namespace tvsort::bench
