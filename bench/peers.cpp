#include "bench/peers.h"

#include "bench/random.h"

namespace tvsort::bench {

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

const Byte* runMemcpy(PeerArrays& arrays) {
    std::memcpy(arrays.gathered.data(), arrays.records.data(), arrays.records.size());
    return arrays.gathered.data();
}

}  // namespace tvsort::bench
