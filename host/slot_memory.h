// The shared-memory object with the slots of all sort processes.
//
// Slot n (from 1) is mapped by process n alone; this side sees them all. The layout of a slot
// stands in protocol/slot_layout.h. The object has no name: processes inherit its descriptor, and
// it is gone when the last of them and this side have ended.
//
// Whose turn it is, is told by the messages: from sending one until its reply has come the slot
// belongs to the process.

#pragma once

#include <cstdint>
#include <span>

#include "host/shared_object.h"
#include "protocol/bytes.h"
#include "protocol/slot_layout.h"

namespace tvsort::host {

class SlotMemory {
  public:
    // Zero-filled. Slots that would not fit the 32-bit offsets of the layout are bad use.
    SlotMemory(const SlotLayout& layout, int slotCount, HugePages hugePages = HugePages::kOff);

    // For a process to inherit.
    int descriptor() const { return object_.descriptor(); }
    bool hasHugePages() const { return object_.hasHugePages(); }
    const SlotLayout& layout() const { return layout_; }
    int slotCount() const { return slotCount_; }

    // Gives the pages of all slots back to the system; they are zero-filled again when somebody
    // touches them. For times when no process has a request.
    void release() const;
    // All bytes of a slot.
    std::span<Byte> slot(int slotNumber) const;
    // The message buffer at the slot's start.
    std::span<Byte> messageBuffer(int slotNumber) const;
    // The frames, without the spare block behind them: memoryBlocks x pagesPerBlock pages.
    std::span<Byte> frames(int slotNumber) const;
    // How many frames of `blockPages` pages (1 to pagesPerBlock) there are.
    std::int32_t frameCount(std::int32_t blockPages) const;
    // Frame `frameIndex` (from 0) of `blockPages` pages.
    std::span<Byte> frame(int slotNumber, std::int32_t frameIndex, std::int32_t blockPages) const;

  private:
    SlotLayout layout_;
    int slotCount_;
    SharedObject object_;
};

}  // namespace tvsort::host
