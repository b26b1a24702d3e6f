#include "bench/pair_sort.h"

#include <array>
#include <boost/sort/pdqsort/pdqsort.hpp>
#include <utility>

namespace tvsort::bench {

namespace {

constexpr std::size_t kDigitCount = 8;
using Counts = std::array<std::uint32_t, 256>;

std::size_t digitOf(const Pair& pair, std::size_t digitIndex) {
    return pair.prefix >> 8 * digitIndex & 0xff;
}

void distribute(std::span<const Pair> source, std::span<Pair> target, std::size_t digitIndex,
                const Counts& counts) {
    Counts places;
    std::uint32_t before = 0;
    for (std::size_t digit = 0; digit < counts.size(); ++digit) {
        places[digit] = before;
        before += counts[digit];
    }
    for (const Pair& pair : source)
        target[places[digitOf(pair, digitIndex)]++] = pair;
}

}  // namespace

void sortPairsByComparison(std::span<Pair> pairs) {
    boost::sort::pdqsort_branchless(
        pairs.begin(), pairs.end(),
        [](const Pair& left, const Pair& right) { return left.prefix < right.prefix; });
}

std::span<Pair> sortPairsByRadix(std::span<Pair> pairs, std::span<Pair> other) {
    if (pairs.empty()) return pairs;
    std::array<Counts, kDigitCount> counts = {};
    for (const Pair& pair : pairs) {
        for (std::size_t i = 0; i < kDigitCount; ++i)
            counts[i][digitOf(pair, i)] += 1;
    }
    for (std::size_t i = 0; i < kDigitCount; ++i) {
        if (counts[i][digitOf(pairs[0], i)] == pairs.size()) continue;
        distribute(pairs, other, i, counts[i]);
        std::swap(pairs, other);
    }
    return pairs;
}

}  // namespace tvsort::bench
