#include "tests/support/guarded_slot.h"

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>

#include "process/service/channel.h"
#include "process/sort/entry.h"
#include "process/sort/entry_sort.h"

namespace tvsort::test {

namespace {

constexpr std::size_t kGuardBytes = std::size_t{1} << 32;
// Digits are loaded eight bytes at a time, of which one belongs to the record.
constexpr std::int64_t kLoadedBehind = 7;

}  // namespace

GuardedSlot::GuardedSlot(const SlotLayout& layout) : layout_(layout) {
    const auto bytes = static_cast<std::size_t>(layout.slotBytes());
    void* const guarded = mmap(nullptr, bytes + 2 * kGuardBytes, PROT_NONE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (guarded == MAP_FAILED) std::abort();
    start_ = static_cast<Byte*>(guarded) + kGuardBytes;
    if (mprotect(start_, bytes, PROT_READ | PROT_WRITE) != 0) std::abort();
}

GuardedSlot::~GuardedSlot() {
    unpoison();
    munmap(start_ - kGuardBytes, static_cast<std::size_t>(layout_.slotBytes()) + 2 * kGuardBytes);
}

void GuardedSlot::giveTo(SortJob& job) const {
    job.memoryBlocks = job.hashBlocks = layout_.memoryBlocks;
    job.pagesPerBlock = layout_.pagesPerBlock;
    attachSlot(job, start_);
}

void GuardedSlot::poison(std::int64_t from, std::int64_t to) const {
    if (from < to) ASAN_POISON_MEMORY_REGION(start_ + from, static_cast<std::size_t>(to - from));
}

void GuardedSlot::poisonUnused(const SortRequest& request) const {
    poison(layout_.hashTableOffset() +
               layout_.framesMax() * static_cast<std::int64_t>(sizeof(std::int32_t)),
           layout_.slotBytes());
    const bool blocksFit = request.blockPages >= 1 && request.blockPages <= layout_.pagesPerBlock;
    const std::int64_t frames =
        blocksFit ? layout_.pagesPerBlock / request.blockPages * layout_.memoryBlocks : 0;
    if (request.fileBlocks < 0 || request.fileBlocks > frames ||
        request.recordCount >= kStableRecordsMin) {
        return;
    }
    const std::int64_t blockBytes = request.blockPages * kPageBytes;
    const std::int64_t dataEnd =
        layout_.frameAreaOffset() + std::int64_t{request.fileBlocks} * blockBytes;
    const std::int64_t entryBytes = request.recordCount >= kEntryRecordsMin
                                        ? 2 * std::int64_t{sizeof(Entry)} * request.recordCount
                                        : 0;
    const std::int64_t entriesEnd = dataEnd + entryBytes;
    const std::int64_t spareBlock = layout_.frameAreaOffset() + layout_.framesMax() * kPageBytes;
    std::int64_t left = request.recordCount;
    std::int64_t block = layout_.frameAreaOffset();
    for (std::int64_t i = 0; i < frames; ++i, block += blockBytes) {
        const std::int64_t here = std::clamp<std::int64_t>(left, 0, request.recordsPerBlock);
        left -= here;
        const std::int64_t used = block + here * request.recordLength + kLoadedBehind;
        poison(block < dataEnd ? used : std::max(used, entriesEnd), block + blockBytes);
    }
    poison(block + kLoadedBehind, spareBlock);
    poison(spareBlock + request.recordLength + kLoadedBehind, layout_.pageDescriptorsOffset());
}

void GuardedSlot::unpoison() const {
    ASAN_UNPOISON_MEMORY_REGION(start_, static_cast<std::size_t>(layout_.slotBytes()));
}

}  // namespace tvsort::test
