#include "protocol/slot_layout.h"

#include <gtest/gtest.h>

namespace tvsort {
namespace {

TEST(SlotLayout, RegionsFollowOneAnotherAndEndAtAWholePage) {
    constexpr SlotLayout layout = {5, 8};
    EXPECT_EQ(layout.frameAreaOffset(), 8192);
    EXPECT_EQ(layout.frameAreaBytes(), 196608);
    EXPECT_EQ(layout.pageDescriptorsOffset(), 204800);
    EXPECT_EQ(layout.hashTableOffset(), 205760);
    EXPECT_EQ(layout.slotBytes(), 208896);
    EXPECT_EQ(layout.slotOffset(1), 0);
    EXPECT_EQ(layout.slotOffset(3), 417792);
}

TEST(SlotLayout, SlotOffsetsWrapAt32Bits) {
    EXPECT_EQ((SlotLayout{5, 8}.slotOffset(20563)), 352256);  // 20562 x 208896 - 2^32
}

}  // namespace
}  // namespace tvsort
