// Finds and reads the server instance's collation file.
//
// The file is named by the directory prefix (start-up argument 4), "tavucs" and the instance
// (`TAVRIN_MBX`, 20561 when it is not set):
//
//     0   4      not read
//     4   u32    magic 0x667DED94
//     8   rest   a table (collation/collation_table.h)
//
// What can be reached of it is copied once, before it is checked: whoever writes to the file
// afterwards changes no order and leads no look-up astray.

#pragma once

#include <cstddef>
#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

inline constexpr std::uint32_t kCollationMagic = 0x667DED94;
inline constexpr std::size_t kCollationMagicOffset = 4;
inline constexpr std::size_t kCollationHeaderBytes = 8;

// Puts the file's table in force, if there is a good one. Every failure leaves no table in force
// and lets the start go on: a missing or unreadable file, a path that does not fit, a wrong magic
// number, a file shorter than header and page offsets, a page that does not lie wholly inside the
// file. Only a `TAVRIN_MBX` that is too long is worth a line on standard output.
void loadCollation(const char* directoryPrefix);

// Whether `fileBytes` bytes at `bytes` are a collation file that can be trusted.
bool isCollationFile(const Byte* bytes, std::size_t fileBytes);

}  // namespace tvsort
