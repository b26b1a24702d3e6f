// How much of its key, and whether the row, goes into a record: decided from the first rows.
//
// As many bytes of the key as tell nearly all rows apart, and no more: every byte is moved as often
// as the record is. More than that costs no correctness, nor does less: rows whose bytes are alike
// are settled in further rounds (settled_order.h).
//
// A row travels with its record where that was measured to pay: where it is about as short as what
// tells its place; or where fetching it at the end would mean to read the inputs over and over,
// because they are large beside the memory for that, or do not stay in the memory of the machine.
// Who grants a fifth of the data leaves the page cache not much more, as a rule: 400 MB of lines of
// 100 bytes through 50 MB, in a memory group of 300 MB, moved 28 bytes for each one when they were
// fetched.
// Rows of 54 bytes, 4 million of them, through 64 MB: 3.8 s left behind, 4.4 s carried; lines of 9
// bytes through 4 MB: 3.6 s and 1.7 s.

#pragma once

#include <cstdint>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/key_record.h"

namespace tvsort::tools {

// Reads some rows from the front, and restarts the input. `memoryBytes` are the whole sort's.
KeyRecord::Form planKeys(KeyedInput& input, std::uint64_t memoryBytes);

}  // namespace tvsort::tools
