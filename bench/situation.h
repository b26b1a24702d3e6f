// How much memory the process has for its data.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/request_builder.h"

namespace tvsort::bench {

struct Situation {
    std::string name;
    // Bytes of the data set's blocks per byte of the frames; 0 for the smallest memory with room
    // for the distribution sort.
    double dataPerMemory;
};

// With room for the distribution sort, just holding the data, and data of 2, 8 and 20 times it.
Situation withRoom();
Situation justFitting();
std::vector<Situation> spilling();

// Data of `dataPerMemory` times the memory; below 0.45 or so that leaves room.
Situation dataOf(double dataPerMemory);

std::int32_t blocksOf(const host::Geometry& geometry, std::size_t recordCount);

// Memory for the situation, in pages; never less than the process needs to start.
std::int32_t memoryPagesFor(const Situation& situation, const host::Geometry& geometry,
                            std::size_t recordCount);

}  // namespace tvsort::bench
