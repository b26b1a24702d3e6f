// Ordering pairs of a key prefix and a record's number, as peers do that do not move records while
// they sort.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tvsort::bench {

struct Pair {
    std::uint64_t prefix;  // of the record's key, as a number
    std::uint32_t number;  // the record's index
    std::uint32_t reserved;
};
static_assert(sizeof(Pair) == 16);

// By comparison (pattern-defeating quicksort without branches). Pairs with the same prefix end in
// any order.
void sortPairsByComparison(std::span<Pair> pairs);

// By stable passes over the bytes of the prefix, the last one first; passes over bytes that are
// the same in all pairs are left out. `other` is as large. The result is where `pairs` was or in
// `other`, whichever is given back.
std::span<Pair> sortPairsByRadix(std::span<Pair> pairs, std::span<Pair> other);

}  // namespace tvsort::bench
