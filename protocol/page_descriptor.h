// What the page pool keeps about one frame. The descriptors stand in the slot behind the frames,
// descriptor i for frame i.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tvsort {

// Ends a hash chain; also the content of an empty bucket.
inline constexpr std::int32_t kNoFrame = 0x7fffffff;

struct PageDescriptor {
    std::int32_t block;        //  0  number of the block held, from 1
    std::int32_t frame;        //  4  the frame's own index
    std::int32_t prev;         //  8  neighbours in the recency ring
    std::int32_t next;         // 12
    std::uint8_t dirty;        // 16  1: the work file does not have this content yet
    std::uint8_t pinned;       // 17  1: the frame must not be reused
    std::uint8_t reserved[2];  // 18
    std::int32_t hashNext;     // 20  next frame of the hash chain, or kNoFrame
};
static_assert(sizeof(PageDescriptor) == 24);
static_assert(offsetof(PageDescriptor, dirty) == 16);
static_assert(offsetof(PageDescriptor, hashNext) == 20);
static_assert(std::has_unique_object_representations_v<PageDescriptor>);

}  // namespace tvsort
