#include "tools/run/memory_plan.h"

#include <gtest/gtest.h>

#include "protocol/slot_layout.h"

namespace tvsort::tools {
namespace {

constexpr std::uint64_t kPage = 4096;

struct Case {
    const char* why;
    MemoryRequest request;
    MemoryPlan plan;
};

TEST(MemoryPlan, BlocksAreLargeButThePoolHasManyFrames) {
    const Case cases[] = {
        {"the largest blocks", {16384 * kPage, {}, 100, 0, 1}, {16384, 16}},
        {"256 pages make 16 of the largest", {256 * kPage, {}, 100, 0, 1}, {256, 16}},
        {"255 do not", {255 * kPage, {}, 100, 0, 1}, {255, 8}},
        {"16 single pages", {20 * kPage, {}, 100, 0, 1}, {20, 1}},
        {"what is no page is left", {21 * kPage - 1, {}, 100, 0, 1}, {20, 1}},
        {"a record needs two pages", {20 * kPage, {}, 4097, 0, 1}, {20, 2}},
        {"a record needs 16 pages", {20 * kPage, {}, 65535, 0, 1}, {20, 16}},
        {"chosen blocks stay", {20 * kPage, 3, 100, 0, 1}, {20, 3}},
        {"each process has its share", {512 * kPage, {}, 100, 0, 2}, {256, 16}},
        {"the output has its share", {400 * kPage, {}, 100, 4, 1}, {300, 16}},
        {"both", {400 * kPage, {}, 100, 4, 2}, {150, 8}},
        {"five frames are left", {7 * kPage, {}, 100, 4, 1}, {5, 1}},
        {"four would be: the process comes first", {6 * kPage, {}, 100, 4, 1}, {6, 1}},
        {"four of two pages would be", {12 * kPage, 2, 100, 4, 1}, {12, 2}},
        {"pages are counted with 31 bits", {~std::uint64_t{0}, {}, 100, 0, 1}, {2147483647, 16}},
    };
    for (const Case& each : cases) {
        const MemoryPlan plan = planMemory(each.request);
        EXPECT_EQ(plan.pages, each.plan.pages) << each.why;
        EXPECT_EQ(plan.blockPages, each.plan.blockPages) << each.why;
    }
}

// What the host would refuse is cut, and what it would take is not.
TEST(MemoryPlan, AllSlotsHaveFourGigabytesTogether) {
    for (const int processes : {1, 2, 3, 64}) {
        for (const std::int32_t blockPages : {1, 16, 1000}) {
            const MemoryPlan vast = withinSlots({2147483647, blockPages}, processes);
            const SlotLayout layout = {vast.pages / blockPages, blockPages};
            EXPECT_LE(layout.slotBytes() * processes, std::int64_t{1} << 32);
            EXPECT_GT(layout.slotBytes() * processes,
                      (std::int64_t{1} << 32) - std::int64_t{64} * 3 * blockPages * kPageBytes);
            EXPECT_EQ(withinSlots({400, blockPages}, processes).pages, 400);
        }
    }
}

}  // namespace
}  // namespace tvsort::tools
