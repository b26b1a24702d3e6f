// How the server's shared-memory object is divided into slots, and a slot into regions.
//
// With B memory blocks of P pages of 4096 bytes:
//
//     offset in the slot              bytes               content
//     0                               8192                message buffer
//     8192                            (B + 1) x P x 4096  frame area: B blocks of frames, and one
//                                                         spare block that holds the pivot record
//     8192 + (B + 1) x P x 4096       B x P x 24          PageDescriptor array
//     ... + B x P x 24                B x P x 4           hash table of the page pool
//     ... + B x P x 4                                     rounding up to whole pages
//
// Both sides compute the slot's length and offset with the functions below; the server lays its
// data where they say.

#pragma once

#include <cstdint>

#include "protocol/messages.h"
#include "protocol/page_descriptor.h"

namespace tvsort {

struct SlotLayout {
    std::int32_t memoryBlocks;   // B
    std::int32_t pagesPerBlock;  // P

    constexpr std::int64_t framesMax() const { return std::int64_t{memoryBlocks} * pagesPerBlock; }
    constexpr std::int64_t frameAreaOffset() const { return kMessageBufferBytes; }
    constexpr std::int64_t frameAreaBytes() const {
        return (std::int64_t{memoryBlocks} + 1) * pagesPerBlock * kPageBytes;
    }
    constexpr std::int64_t pageDescriptorsOffset() const {
        return frameAreaOffset() + frameAreaBytes();
    }
    constexpr std::int64_t hashTableOffset() const {
        return pageDescriptorsOffset() +
               framesMax() * static_cast<std::int64_t>(sizeof(PageDescriptor));
    }
    constexpr std::int64_t slotBytes() const {
        const std::int64_t end =
            hashTableOffset() + framesMax() * static_cast<std::int64_t>(sizeof(std::int32_t));
        return (end + kPageBytes - 1) & ~(kPageBytes - 1);
    }
    // Offset of slot `slotNumber` (from 1) in the shared object. The product is formed in 32 bits,
    // unsigned, on both sides: an object of more than 4 GiB reuses its first slots' places.
    constexpr std::int64_t slotOffset(std::uint32_t slotNumber) const {
        return static_cast<std::uint32_t>((slotNumber - 1) *
                                          static_cast<std::uint32_t>(slotBytes()));
    }
};

// Record positions are 32-bit byte offsets from the frame area, so the whole area, spare block
// included, must lie below 4 GiB.
inline constexpr std::int64_t kFrameAreaBytesMax = std::int64_t{1} << 32;
// One frame for each position that the sort driver holds, and one to bring a block in.
inline constexpr std::int32_t kMemoryBlocksMin = 5;

}  // namespace tvsort
