// Requests with random keys of every type, over records that are alike in different ways and some
// of which cannot be ordered.

#pragma once

#include "tests/support/served_job.h"

namespace tvsort::test {

struct Demand {
    Records records;
    Geometry geometry;
    std::vector<KeyDescriptor> keys;
    SortMode mode = SortMode::kOrder;
    std::int32_t frames;
};

// Where the records of a demand have their number, as they arrived.
std::uint32_t numberOf(const Bytes& record);

// One of up to 4000 records, spilled to different degrees or just held, for which there is no room
// for entries.
Demand randomDemand(std::uint32_t seed);

// One of 10000 to 20000 records, 64 to 200 frames and two to twenty times as many blocks.
// `spoiledOf`: one in so many values cannot be ordered.
Demand randomLargeDemand(std::uint32_t seed, unsigned spoiledOf);

}  // namespace tvsort::test
