// How much memory the process has for its data.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/request_builder.h"

namespace tvsort::bench {

// What stands free behind the data set's blocks.
enum class Spare : std::uint8_t { kNone, kEntries, kCopy };

struct Situation {
    std::string name;
    double dataPerMemory = 1;  // bytes of the data set's blocks per byte of the frames
    Spare spare = Spare::kNone;
};

// With room for a copy of the records, and just holding them.
Situation withRoom();
Situation justFitting();

// With room for a copy, with room for entries, and just fitting.
std::vector<Situation> inMemory();
// Data of 2, 8 and 20 times the memory.
std::vector<Situation> spilling();

// Data of `dataPerMemory` times the memory; below 0.45 or so that leaves room.
Situation dataOf(double dataPerMemory);

std::int32_t blocksOf(const host::Geometry& geometry, std::size_t recordCount);

// Memory for the situation, in pages; never less than the process needs to start.
std::int32_t memoryPagesFor(const Situation& situation, const host::Geometry& geometry,
                            std::size_t recordCount);

}  // namespace tvsort::bench
