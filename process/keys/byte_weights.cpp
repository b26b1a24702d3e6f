#include "process/keys/byte_weights.h"

#include "process/job/sort_job.h"

namespace tvsort {

const Byte* findWeights(const SortJob& job, std::uint16_t identifier) {
    for (int i = 0; i < job.itemCount; ++i) {
        const ByteWeightTable& item = job.items[i];
        if (item.identifier == identifier) return item.applies == 1 ? item.weights : nullptr;
    }
    return nullptr;
}

}  // namespace tvsort
