#include "process/keys/collated_text.h"

#include <algorithm>

namespace tvsort {

namespace {

constexpr std::uint16_t kSpace = 0x0020;

std::uint16_t unitAt(const Byte* string, std::int32_t index) {
    return loadU16(string + 2 * std::int64_t{index});
}

// The longer string's units from `index` on, against the spaces that the shorter one goes on with:
// as `collateCompare` with the longer string on the left.
int compareWithSpaces(const CollationTable& table, const Byte* string, std::int32_t index,
                      std::int32_t count) {
    const std::uint16_t space = unitWeight(table, kSpace);
    for (; index < count; ++index) {
        const std::uint16_t weight = unitWeight(table, unitAt(string, index));
        if (weight != space) return weight < space ? -1 : 1;
    }
    return 0;
}

}  // namespace

int collateCompare(const CollationTable& table, const Byte* left, std::int32_t leftCount,
                   const Byte* right, std::int32_t rightCount, bool padded) {
    const std::int32_t common = std::min(leftCount, rightCount);
    for (std::int32_t i = 0; i < common; ++i) {
        const std::uint16_t leftUnit = unitAt(left, i);
        const std::uint16_t rightUnit = unitAt(right, i);
        if (leftUnit == rightUnit) continue;  // most units of neighbours: no look-up
        const std::uint16_t leftWeight = unitWeight(table, leftUnit);
        const std::uint16_t rightWeight = unitWeight(table, rightUnit);
        if (leftWeight != rightWeight) return leftWeight < rightWeight ? -1 : 1;
    }
    if (leftCount == rightCount) return 0;
    if (!padded) return leftCount < rightCount ? -1 : 1;
    return leftCount > rightCount ? compareWithSpaces(table, left, common, leftCount)
                                  : -compareWithSpaces(table, right, common, rightCount);
}

}  // namespace tvsort
