// Collated comparison of UCS-2 strings: unit by unit, by the weights of the table in force.
//
// In padded mode (fixed-length fields) the shorter string goes on as if with spaces, so trailing
// units that weigh what a space weighs do not count. In unpadded mode a proper prefix comes first.
// Units with equal weights are equal, however they differ.

#pragma once

#include <cstdint>

#include "process/collation/collation_table.h"
#include "protocol/bytes.h"

namespace tvsort {

// -1 when the left string comes first, 1 when the right one does, 0 when they are equal. The
// strings are unaligned little-endian units; counts are of units, not negative.
int collateCompare(const CollationTable& table, const Byte* left, std::int32_t leftCount,
                   const Byte* right, std::int32_t rightCount, bool padded);

}  // namespace tvsort
