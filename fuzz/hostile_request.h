// A request with its records, from the bytes of a fuzz input.
//
// First everything is made as a server would: a geometry that holds the records, keys of any type
// inside the record, weight tables, values that their types allow. Then the input takes some of
// that back: single values of any bytes, patches anywhere in the message or the records, a message
// cut short with or without saying so, a work file that ends too early, garbage in the part of the
// slot that the process keeps its pool in.
//
// At the borders the geometry and the keys themselves are such as a server would hardly make:
// records of no bytes, of a few, of all that 16 bits can say, two to 101 large ones in one block,
// keys without length and at or beyond the record's end, counts of anything.

#pragma once

#include <vector>

#include "fuzz/fuzz_input.h"
#include "protocol/messages.h"
#include "protocol/slot_layout.h"

namespace tvsort::fuzz {

using Bytes = std::vector<Byte>;

// How records lie in blocks.
struct Geometry {
    std::int32_t blockPages;
    std::int32_t recordsPerBlock;
    std::int32_t recordLength;
    std::int32_t recordCount;

    std::size_t blockBytes() const { return static_cast<std::size_t>(blockPages * kPageBytes); }
    std::int32_t blockCount() const {
        return (recordCount + recordsPerBlock - 1) / recordsPerBlock;
    }
};

struct HostileRequest {
    Geometry geometry;           // by which the records are laid
    Bytes records;               // back to back
    Bytes message;               // what goes over the socket
    std::uint32_t poolGarbage;   // 0: page descriptors and hash table stay as they are, else a seed
    std::uint32_t missingBytes;  // by which the work file is shorter than its blocks
    std::uint32_t scribbling;    // 0: nobody writes over the slot meanwhile, else a seed
};

// Takes the next request of the input. Slots of 100 and more blocks get enough records for
// the order of arrival to be expected.
HostileRequest takeRequest(FuzzInput& input, const SlotLayout& layout);
HostileRequest takeRequestAtBorders(FuzzInput& input, const SlotLayout& layout);

}  // namespace tvsort::fuzz
