// Splits one input by splitters, ascending keys or beginnings of keys, into a file for each range:
//
//     splitters            b         d
//     ranges        0      |    1    |    2        a row goes behind every splitter that is not
//                   a, az  | b, c, ca| d, z        greater than its key
//
// Rows of equal keys come into one range, and into its file in the order of reading. A file gets
// its name when it is whole.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/keys/ordered_bytes.h"
#include "tools/ranges/range_input.h"
#include "tools/ranges/share_rows.h"

namespace tvsort::tools {

// Every file takes a buffer and two descriptors.
inline constexpr std::size_t kRangesMax = 1000;

// From a file with one key in hexadecimal on each line. What is none, does not ascend or is too
// much is bad use.
std::vector<host::KeyBytes> readSplitters(const std::string& name);

// How many of the splitters are not greater than the key, of which so many bytes are known that no
// splitter has more.
std::size_t rangeOf(const host::KeyBytes& key, const std::vector<host::KeyBytes>& splitters);

struct RangePiece {
    std::uint64_t rowCount = 0;
    std::uint64_t byteCount = 0;  // of the rows, with their ends
};

// Writes PREFIX00000 and so on, one for each range, of the rows that `rows` gives, and answers what
// is in each. `lineEnd` is for a last row that lacks its end; empty: as the input has it.
std::vector<RangePiece> splitRanges(const RangeInput& input, ShareRows& rows,
                                    const std::vector<host::KeyBytes>& splitters,
                                    const std::string& prefix, const std::string& lineEnd);

}  // namespace tvsort::tools
