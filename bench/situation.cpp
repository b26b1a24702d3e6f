#include "bench/situation.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "protocol/slot_layout.h"

namespace tvsort::bench {

namespace {

// Spare memory is had in whole frames and one more, and comes up to:
//     a copy      the records, 65536 counters of 4 bytes and 4 bytes
//     entries     24 bytes per record
constexpr std::size_t kCopyExtraBytes = 262'148;
constexpr std::size_t kEntriesBytesPerRecord = 24;

std::int32_t spareFrames(Spare spare, const host::Geometry& geometry, std::size_t recordCount) {
    if (spare == Spare::kNone) return 0;
    const std::size_t bytes = spare == Spare::kCopy
                                  ? recordCount * geometry.recordLength + kCopyExtraBytes
                                  : recordCount * kEntriesBytesPerRecord;
    return static_cast<std::int32_t>((bytes - 1) / geometry.blockBytes()) + 2;
}

}  // namespace

Situation withRoom() {
    return {"with room", 1, Spare::kCopy};
}

Situation justFitting() {
    return {"just fitting"};
}

std::vector<Situation> inMemory() {
    return {withRoom(), {"room for entries", 1, Spare::kEntries}, justFitting()};
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
    const double dataFrames = std::ceil(blocksOf(geometry, recordCount) / situation.dataPerMemory);
    const std::int32_t frames =
        static_cast<std::int32_t>(dataFrames) + spareFrames(situation.spare, geometry, recordCount);
    return std::max(frames, kMemoryBlocksMin) * geometry.blockPages;
}

}  // namespace tvsort::bench
