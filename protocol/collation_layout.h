// A collation file: a sort weight for each of the 65,536 UCS-2 code units. The server writes it
// beside the process's other files, the process reads it when it starts.
//
//       0    4                not read
//       4    u32              magic 0x667DED94
//       8    512              pageOffset: 256 x u16, by the unit's high byte; bytes from here, the
//                             table's start, to the page that serves it. High bytes may share a
//                             page.
//     520    1536 x pages     pages of 256 entries, by the unit's low byte
//
// An entry, 6 bytes, little-endian like everything here:
//
//       0    u16   flags    0x800: the entry describes a range; 0x200 or 0x400: units inside the
//                           range weigh their own value
//       2    u16   low      first unit of the range; else not read
//       4    u16   weight   last unit of the range; else the unit's weight
//
// A unit that its range entry does not cover is unmapped and weighs 0xFFFF. Page offsets may be
// odd, so entries are read byte-wise.

#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

inline constexpr std::size_t kCollationMagicOffset = 4;
inline constexpr std::uint32_t kCollationMagic = 0x667DED94;
inline constexpr std::size_t kCollationHeaderBytes = 8;
inline constexpr std::uint32_t kCollationPageCount = 256;
inline constexpr std::uint32_t kCollationPageOffsetsBytes = kCollationPageCount * 2;
inline constexpr std::uint32_t kCollationEntryBytes = 6;
inline constexpr std::uint32_t kCollationPageBytes = 256 * kCollationEntryBytes;
inline constexpr std::uint16_t kRangeEntry = 0x800;
inline constexpr std::uint16_t kOwnWeight = 0x200 | 0x400;
inline constexpr std::uint16_t kUnmappedWeight = 0xffff;

enum class CollationFault : std::uint8_t {
    kNone,
    kShort,        // it ends before the last page offset
    kMagic,        // another magic number
    kPageOutside,  // a page does not lie wholly inside it
};

struct CollationCheck {
    CollationFault fault;
    std::uint32_t page;  // the first one outside
};

// Why `fileBytes` bytes at `bytes` are no collation file that can be trusted.
inline CollationCheck checkCollation(const Byte* bytes, std::size_t fileBytes) {
    if (fileBytes < kCollationHeaderBytes + kCollationPageOffsetsBytes) {
        return {CollationFault::kShort, 0};
    }
    if (loadU32(bytes + kCollationMagicOffset) != kCollationMagic) {
        return {CollationFault::kMagic, 0};
    }
    const Byte* const table = bytes + kCollationHeaderBytes;
    const std::size_t tableBytes = fileBytes - kCollationHeaderBytes;
    for (std::uint32_t page = 0; page < kCollationPageCount; ++page) {
        if (loadU16(table + 2 * page) + kCollationPageBytes > tableBytes) {
            return {CollationFault::kPageOutside, page};
        }
    }
    return {CollationFault::kNone, 0};
}

inline bool isCollationFile(const Byte* bytes, std::size_t fileBytes) {
    return checkCollation(bytes, fileBytes).fault == CollationFault::kNone;
}

}  // namespace tvsort
