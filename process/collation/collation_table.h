// The collation table: a sort weight for each of the 65,536 UCS-2 code units, as
// protocol/collation_layout.h lays them out.
//
// The table is read from a file at start-up (collation/collation_file.h) and not written
// afterwards.

#pragma once

#include <cstdint>

#include "protocol/bytes.h"
#include "protocol/collation_layout.h"

namespace tvsort {

struct CollationTable {
    const Byte* bytes;
};

// The table in force for the life of the process, or null. Set by `loadCollation`.
extern const CollationTable* collationTable;

inline std::uint16_t unitWeight(const CollationTable& table, std::uint16_t unit) {
    const std::uint32_t page = loadU16(table.bytes + 2 * (unit >> 8));
    const Byte* const entry = table.bytes + page + (unit & 0xffu) * kCollationEntryBytes;
    const std::uint16_t flags = loadU16(entry);
    const std::uint16_t weight = loadU16(entry + 4);
    if ((flags & kRangeEntry) == 0) return weight;
    const bool inRange = loadU16(entry + 2) <= unit && unit <= weight;
    return (flags & kOwnWeight) != 0 && inRange ? unit : kUnmappedWeight;
}

}  // namespace tvsort
