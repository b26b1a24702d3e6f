#include "host/slot_memory.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <cerrno>
#include <limits>
#include <string>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

void checkLayout(const SlotLayout& layout, int slotCount) {
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
}

}  // namespace

SlotMemory::SlotMemory(const SlotLayout& layout, int slotCount)
    : layout_(layout), slotCount_(slotCount) {
    checkLayout(layout, slotCount);
    bytes_ = static_cast<std::size_t>(layout.slotBytes()) * static_cast<std::size_t>(slotCount);
    const std::string size = std::to_string(bytes_) + " bytes of shared memory";
    descriptor_ =
        aboveStreams(FileDescriptor(memfd_create("tvsort", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    if (!descriptor_.isOpen() || ftruncate(descriptor(), static_cast<off_t>(bytes_)) != 0 ||
        fcntl(descriptor(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        throw systemFailure("cannot create " + size, errno, "ask for less memory or fewer slots");
    }
    void* const start = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor(), 0);
    if (start == MAP_FAILED) {
        throw systemFailure("cannot map " + size, errno, "ask for less memory or fewer slots");
    }
    start_ = static_cast<Byte*>(start);
}

SlotMemory::~SlotMemory() {
    munmap(start_, bytes_);
}

void SlotMemory::release() const {
    // Where the system does not, they stay until the end.
    madvise(start_, bytes_, MADV_REMOVE);
}

std::span<Byte> SlotMemory::slot(int slotNumber) const {
    if (slotNumber < 1 || slotNumber > slotCount_) {
        throw badUse("there is no slot " + std::to_string(slotNumber) + "; slots 1 to " +
                     std::to_string(slotCount_) + " exist");
    }
    const auto offset = layout_.slotOffset(static_cast<std::uint32_t>(slotNumber));
    return {start_ + offset, static_cast<std::size_t>(layout_.slotBytes())};
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
