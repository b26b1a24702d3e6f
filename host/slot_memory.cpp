#include "host/slot_memory.h"

#include <sys/mman.h>

#include <limits>
#include <string>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

std::size_t bytesOf(const SlotLayout& layout, int slotCount) {
    if (slotCount < 1 || slotCount > std::numeric_limits<std::uint16_t>::max()) {
        throw badUse(std::to_string(slotCount) + " slots cannot be had; ask for 1 to 65535");
    }
    if (layout.pagesPerBlock < 1 || layout.memoryBlocks < kMemoryBlocksMin) {
        throw badUse(
            "a sort process needs memory for at least " + std::to_string(kMemoryBlocksMin) +
            " blocks of its pages; grant it " +
            std::to_string(std::int64_t{kMemoryBlocksMin} * layout.pagesPerBlock * kPageBytes) +
            " bytes or more, or make the blocks smaller");
    }
    if (layout.frameAreaBytes() > kFrameAreaBytesMax) {
        throw badUse("a sort process cannot use " +
                     std::to_string(layout.framesMax() * kPageBytes) +
                     " bytes of memory; grant it at most " +
                     std::to_string(kFrameAreaBytesMax - layout.pagesPerBlock * kPageBytes));
    }
    // Both sides form a slot's offset in 32 bits: slots beyond would share the first ones' memory.
    if ((slotCount - 1) * layout.slotBytes() > std::numeric_limits<std::uint32_t>::max()) {
        throw badUse(std::to_string(slotCount) + " slots of " + std::to_string(layout.slotBytes()) +
                     " bytes exceed 4 GiB; use fewer slots or less memory for each");
    }
    return static_cast<std::size_t>(layout.slotBytes()) * static_cast<std::size_t>(slotCount);
}

}  // namespace

SlotMemory::SlotMemory(const SlotLayout& layout, int slotCount, HugePages hugePages)
    : layout_(layout), slotCount_(slotCount), object_(bytesOf(layout, slotCount), hugePages) {}

void SlotMemory::release() const {
    // Where the system does not, they stay until the end.
    madvise(object_.start(), object_.byteCount(), MADV_REMOVE);
}

std::span<Byte> SlotMemory::slot(int slotNumber) const {
    if (slotNumber < 1 || slotNumber > slotCount_) {
        throw badUse("there is no slot " + std::to_string(slotNumber) + "; slots 1 to " +
                     std::to_string(slotCount_) + " exist");
    }
    const auto offset = layout_.slotOffset(static_cast<std::uint32_t>(slotNumber));
    return {object_.start() + offset, static_cast<std::size_t>(layout_.slotBytes())};
}

std::span<Byte> SlotMemory::messageBuffer(int slotNumber) const {
    return slot(slotNumber).first(kMessageBufferBytes);
}

std::span<Byte> SlotMemory::frames(int slotNumber) const {
    return slot(slotNumber)
        .subspan(static_cast<std::size_t>(layout_.frameAreaOffset()),
                 static_cast<std::size_t>(layout_.framesMax() * kPageBytes));
}

std::int32_t SlotMemory::frameCount(std::int32_t blockPages) const {
    if (blockPages < 1 || blockPages > layout_.pagesPerBlock) {
        throw badUse("blocks of " + std::to_string(blockPages) + " pages do not fit; use 1 to " +
                     std::to_string(layout_.pagesPerBlock));
    }
    return layout_.pagesPerBlock / blockPages * layout_.memoryBlocks;
}

std::span<Byte> SlotMemory::frame(int slotNumber, std::int32_t frameIndex,
                                  std::int32_t blockPages) const {
    if (frameIndex < 0 || frameIndex >= frameCount(blockPages)) {
        throw badUse("there is no frame " + std::to_string(frameIndex) + " among " +
                     std::to_string(frameCount(blockPages)));
    }
    const auto frameBytes = static_cast<std::size_t>(blockPages * kPageBytes);
    return frames(slotNumber)
        .subspan(static_cast<std::size_t>(frameIndex) * frameBytes, frameBytes);
}

}  // namespace tvsort::host
