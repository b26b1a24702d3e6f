#include "bench/peers.h"

#include <sys/mman.h>

#include "bench/random.h"

namespace tvsort::bench {

namespace {

// The system takes the array's pages, and gives new ones, filled with zeros, at the next use.
template <typename Element>
void renew(std::vector<Element>& array) {
    constexpr std::uintptr_t kPage = 4096;
    const auto start = reinterpret_cast<std::uintptr_t>(array.data());
    const std::uintptr_t end = start + array.size() * sizeof(Element);
    const std::uintptr_t firstPage = (start + kPage - 1) & ~(kPage - 1);
    if (end < firstPage + kPage) return;
    madvise(reinterpret_cast<void*>(firstPage), (end - firstPage) & ~(kPage - 1), MADV_DONTNEED);
}

}  // namespace

PeerArrays::PeerArrays(std::size_t recordCount, std::size_t recordLength)
    : records(recordCount * recordLength),
      gathered(recordCount * recordLength),
      pairs(recordCount),
      otherPairs(recordCount),
      randomOrder(recordCount) {
    Random random(recordCount);
    for (std::size_t i = 0; i < recordCount; ++i) {
        randomOrder[i].number = static_cast<std::uint32_t>(i);
        std::swap(randomOrder[i], randomOrder[random.below(i + 1)]);
    }
}

void PeerArrays::renewScratch() {
    renew(gathered);
    renew(pairs);
    renew(otherPairs);
}

const Byte* runMemcpy(PeerArrays& arrays) {
    std::memcpy(arrays.gathered.data(), arrays.records.data(), arrays.records.size());
    return arrays.gathered.data();
}

}  // namespace tvsort::bench
