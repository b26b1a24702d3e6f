// Where a row or line lies in the inputs of a sort, as if they were one file: the first byte of the
// first one is 0. Rows that were read later have greater places.

#pragma once

#include <cstdint>

namespace tvsort::tools {

struct RowPlace {
    std::uint64_t offset;
    std::uint32_t byteCount;
};

}  // namespace tvsort::tools
