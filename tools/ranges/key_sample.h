// Keys of an input's rows, picked at places that lie evenly in its bytes, from which splitters are
// made.
//
// A row is picked in proportion to its bytes, so ranges between such keys have about the same
// bytes, not rows. Of a large input only what lies behind each place is read. In a file of rows a
// place may lie inside quotes, and what looks like a row there may be none: a splitter that is no
// row's key splits all the same.

#pragma once

#include <cstddef>
#include <vector>

#include "host/keys/ordered_bytes.h"
#include "tools/formats/keyed_input.h"
#include "tools/ranges/share_rows.h"

namespace tvsort::tools {

// Longer keys are cut to it: ranges between cut keys are ranges as well.
inline constexpr std::size_t kSampleKeyBytesMax = 1024;

// Up to `sampleCount` keys of the share, in the order of reading. Rows that cannot be read are
// passed over.
std::vector<host::KeyBytes> sampleKeys(const KeyedInput& input, const ByteShare& share,
                                       std::size_t sampleCount);

}  // namespace tvsort::tools
