// Byte-weight tables: a request's own order of the 256 byte values, for keys of types 1 and 8.

#pragma once

#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

struct SortJob;

// The 256 weights in force for keys that name `identifier`, or null when their bytes compare as
// they are: the first item of the request with this identifier decides, and applies only when its
// switch says so.
const Byte* findWeights(const SortJob& job, std::uint16_t identifier);

// The first `byteCount` bytes of both values, by weight: below 0, 0 or above 0.
inline int compareByWeight(const Byte* weights, const Byte* left, const Byte* right,
                           std::int32_t byteCount) {
    for (std::int32_t i = 0; i < byteCount; ++i) {
        const int difference = weights[left[i]] - weights[right[i]];
        if (difference != 0) return difference;
    }
    return 0;
}

}  // namespace tvsort
