#include "bench/statistics.h"

#include <fmt/core.h>

#include <algorithm>

namespace tvsort::bench {

Spread spreadOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const double median =
        values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

std::string describe(const Spread& spread) {
    return fmt::format("{:.2f} ({:.2f}..{:.2f})", spread.median, spread.min, spread.max);
}

}  // namespace tvsort::bench
