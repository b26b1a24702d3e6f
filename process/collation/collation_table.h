// The collation table: a sort weight for each of the 65,536 UCS-2 code units.
//
//       0    512            pageOffset: 256 x u16, by the unit's high byte; bytes from the table's
//                           start to the page that serves it. High bytes may share a page.
//     512    1536 x pages   pages of 256 entries, by the unit's low byte
//
// An entry, 6 bytes, little-endian like everything here:
//
//       0    u16   flags    0x800: the entry describes a range; 0x200 or 0x400: units inside the
//                           range weigh their own value
//       2    u16   low      first unit of the range; else not read
//       4    u16   weight   last unit of the range; else the unit's weight
//
// A unit that its range entry does not cover is unmapped and weighs 0xFFFF.
//
// The table is read from a file at start-up (collation/collation_file.h) and not written
// afterwards. Page offsets may be odd, so entries are read byte-wise.

#pragma once

#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

inline constexpr std::uint32_t kCollationPageCount = 256;
inline constexpr std::uint32_t kCollationPageOffsetsBytes = kCollationPageCount * 2;
inline constexpr std::uint32_t kCollationEntryBytes = 6;
inline constexpr std::uint32_t kCollationPageBytes = 256 * kCollationEntryBytes;
inline constexpr std::uint16_t kRangeEntry = 0x800;
inline constexpr std::uint16_t kOwnWeight = 0x200 | 0x400;
inline constexpr std::uint16_t kUnmappedWeight = 0xffff;

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
