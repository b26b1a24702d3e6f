// Medians and spreads.

#pragma once

#include <string>
#include <vector>

namespace tvsort::bench {

struct Spread {
    double median = 0;
    double min = 0;
    double max = 0;
};

// Of at least one value.
Spread spreadOf(std::vector<double> values);

// "1.23 (1.10..1.40)".
std::string describe(const Spread& spread);

}  // namespace tvsort::bench
