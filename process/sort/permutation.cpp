#include "process/sort/permutation.h"

#include <algorithm>
#include <bit>

#include "process/job/sort_job.h"
#include "process/storage/server_watch.h"

namespace tvsort {

namespace {

constexpr std::uint32_t kChainsMax = 16;
// Larger than every record's index: the record of this place is saved, the lowest bits say where.
constexpr std::uint32_t kSavedMark = ~std::uint32_t{0} - (kChainsMax - 1);
static_assert(kSavedMark % kChainsMax == 0);
struct Chain {
    std::uint32_t hole;    // place to be filled
    std::uint32_t source;  // by the record of that place
};

// A permutation at work.
struct Permutation {
    const RecordArray& records;
    std::uint32_t* order;
    Byte* saved;
    std::uint32_t slotCount;
    std::uint32_t chainCount;
    Chain chains[kChainsMax];
    std::uint32_t usedSlots;  // a bit for each slot that holds a record
    std::uint32_t nextStart;  // no place before it is left
    std::uint32_t stepsLeft;  // twice as many as there are records, whatever `order` says

    Byte* slot(std::uint32_t number) const {
        return saved + std::size_t{number} * records.recordLength;
    }
};

// In line by force: to the compiler a function that only prefetches has no effect, and goes.
[[gnu::always_inline]] inline void prefetchStep(const Permutation& work, std::uint32_t source) {
    if (source >= work.records.count) return;
    __builtin_prefetch(work.order + source, 1);
    prefetchRecord(work.records.at(source), work.records.recordLength);
}

// Starts a chain at the next place whose record belongs elsewhere, while there are a free slot and
// such a place.
bool startChain(Permutation& work) {
    const auto slot = static_cast<std::uint32_t>(std::countr_one(work.usedSlots));
    if (slot == work.slotCount) return false;
    for (; work.nextStart < work.records.count; ++work.nextStart) {
        const std::uint32_t start = work.nextStart;
        const std::uint32_t source =
            loadOnce<std::uint32_t>(reinterpret_cast<const Byte*>(work.order + start));
        if (source == start || source >= work.records.count) continue;
        work.usedSlots |= 1U << slot;
        copyRecord(work.slot(slot), work.records.at(start), work.records.recordLength);
        work.order[start] = kSavedMark + slot;
        work.chains[work.chainCount++] = {start, source};
        prefetchStep(work, source);
        work.nextStart += 1;
        return true;
    }
    return false;
}

// Fills the hole of a chain. False when that ends it.
bool step(Permutation& work, Chain& chain) {
    const std::uint32_t source = chain.source;
    if (source >= work.records.count || work.stepsLeft == 0) return false;
    work.stepsLeft -= 1;
    const std::uint32_t next =
        loadOnce<std::uint32_t>(reinterpret_cast<const Byte*>(work.order + source));
    Byte* const hole = work.records.at(chain.hole);
    work.order[source] = source;  // nothing starts here any more
    if (next >= kSavedMark) {
        const std::uint32_t slot = next - kSavedMark;
        if ((work.usedSlots >> slot & 1) == 0) return false;  // the server has written the mark
        copyRecord(hole, work.slot(slot), work.records.recordLength);
        work.usedSlots &= ~(1U << slot);
        return false;
    }
    if (next == source) return false;
    copyRecord(hole, work.records.at(source), work.records.recordLength);
    chain = {source, next};
    prefetchStep(work, next);
    return true;
}

}  // namespace

void permuteRecords(SortJob& job, const RecordArray& records, std::uint32_t* order, Byte* saved) {
    const auto slots = static_cast<std::uint32_t>(
        std::min<std::size_t>(kChainsMax, kRecordBufferBytes / records.recordLength));
    Permutation work = {records, order, saved, slots, 0, {}, 0, 0, 2 * records.count};
    while (startChain(work))
        continue;
    while (work.chainCount > 0) {
        watchServer(job, std::size_t{work.chainCount} * records.recordLength);
        for (std::uint32_t c = 0; c < work.chainCount;) {
            if (step(work, work.chains[c])) {
                ++c;
                continue;
            }
            work.chains[c] = work.chains[--work.chainCount];
            startChain(work);
        }
    }
}

}  // namespace tvsort
