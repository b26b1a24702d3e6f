// The map of places, held to a plain list of which are free.

#include "process/storage/place_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <vector>

namespace tvsort::test {
namespace {

PlaceMap map;

std::int32_t findPlainly(const std::vector<bool>& isFree, std::int32_t from) {
    const auto count = static_cast<std::int32_t>(isFree.size());
    from = std::min(from, count - 1);
    for (std::int32_t place = from; place < count; ++place)
        if (isFree[static_cast<std::size_t>(place)]) return place;
    while (--from >= 0 && !isFree[static_cast<std::size_t>(from)]) {
    }
    return from;
}

TEST(PlaceMap, FreePlacesAreFoundWhereverTheyAre) {
    std::mt19937 random(1);
    for (const std::int32_t places : {1, 63, 64, 65, 4095, 4096, 4097, 20000}) {
        map.open(places);
        std::vector<bool> isFree(static_cast<std::size_t>(places));
        const auto any = [&] { return static_cast<std::int32_t>(random()) & 0x7fffffff; };
        // Between none and a few that are far from each other.
        for (int step = 0; step < 3000; ++step) {
            const std::int32_t place = step % 2 == 0 ? map.findFree(any() % places) : -1;
            const std::int32_t changed = place >= 0 && step % 8 != 0 ? place : any() % places;
            const bool frees = place < 0;
            isFree[static_cast<std::size_t>(changed)] = frees;
            frees ? map.setFree(changed) : map.store(changed, {3, 5});
            const std::int32_t from = any() % (places + 2);
            ASSERT_EQ(map.findFree(from), findPlainly(isFree, from)) << places << " from " << from;
        }
    }
}

// A data set of four million blocks asks more often still.
TEST(PlaceMap, OneFreePlaceOfMillionsIsFoundAtOnce) {
    map.open(kPlacesMax);
    map.setFree(0);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200000; ++i)
        ASSERT_EQ(map.findFree(kPlacesMax - 1 - i), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

}  // namespace
}  // namespace tvsort::test
