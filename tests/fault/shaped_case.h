// Data sets with a known result, one for each way of shaping it, that a pool of the smallest size
// does not hold.
//
// A record:
//
//     0    i32   place of arrival
//     4    u8    operand tag; in sort mode 7 the process's own fields, 8 bytes
//     12   i32   hierarchy level
//     16   i32   key
//     20         the key's low byte, up to the end: a record torn or mixed up shows

#pragma once

#include <string>
#include <vector>

#include "host/sort_server.h"

namespace tvsort::test {

// The smallest memory that a process starts with: five frames of a page.
inline constexpr std::int32_t kSmallestMemoryPages = 5;

struct ShapedRow {
    std::int32_t key;
    Byte tag = 1;
    std::int32_t level = 1;
};

struct ShapedCase {
    const char* name;
    SortMode mode;
    std::int32_t limitCount;
    std::vector<ShapedRow> rows;         // as they arrive
    std::vector<std::int32_t> expected;  // keys of the result, in order

    host::RequestBuilder request() const;
    host::LoadedData load(host::SortSlot& slot, const host::Geometry& geometry) const;
    // Whether the slot holds the result, whole and in order.
    void expectResult(host::SortSlot& slot, const host::Geometry& geometry,
                      std::int32_t recordCount) const;
    // Loads, asks, expects success and checks the result.
    void expectServed(host::SortSlot& slot, const host::Geometry& geometry) const;
};

// 100 x `scale` rows each: in order, distinct, in groups, the operations of sets, limited with
// ties, and as a hierarchy.
std::vector<ShapedCase> shapedCases(std::int32_t scale);

// Of `shapedCases`, the plain sort.
ShapedCase plainCase(std::int32_t scale);

// With one page per block, 100 records are ten blocks.
inline constexpr host::Geometry kTenRecordsPerPage = {400, 1, 10};

}  // namespace tvsort::test
