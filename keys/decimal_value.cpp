#include "keys/decimal_value.h"

namespace tvsort {

namespace {

// Place of each class in the order of values, by DecimalClass.
constexpr std::int8_t kClassRank[] = {2, 1, 3, 0, 4};

// The digits of both halves as two numbers: byte 15 is the most significant, so a little-endian
// load orders them as they are, and the class byte is masked out of the lower half.
struct Magnitude {
    std::uint64_t high;  // bytes 8 to 15
    std::uint64_t low;   // bytes 1 to 7

    bool operator==(const Magnitude&) const = default;
    bool isBelow(const Magnitude& other) const {
        return high != other.high ? high < other.high : low < other.low;
    }
};

Magnitude magnitudeOf(const Byte* value) {
    return {loadAs<std::uint64_t>(value + 8), loadAs<std::uint64_t>(value) & ~std::uint64_t{0xff}};
}

// A byte is above 99 exactly when its top bit is set or adding 28 sets it; the sums stay inside
// their bytes because the top bits are taken out first.
bool hasDigitAboveMax(std::uint64_t digits) {
    constexpr std::uint64_t kTopBits = 0x8080808080808080;
    constexpr std::uint64_t kToTopBit = 0x1c1c1c1c1c1c1c1c;
    static_assert(0x80 - (kDecimalDigitMax + 1) == 0x1c);
    return ((((digits & ~kTopBits) + kToTopBit) | digits) & kTopBits) != 0;
}

DecimalOrder compareMagnitudes(const Byte* left, const Byte* right) {
    const Magnitude leftMagnitude = magnitudeOf(left);
    const Magnitude rightMagnitude = magnitudeOf(right);
    if (leftMagnitude == rightMagnitude) return DecimalOrder::kEqual;
    return leftMagnitude.isBelow(rightMagnitude) ? DecimalOrder::kSmaller : DecimalOrder::kLarger;
}

}  // namespace

DecimalClass decimalClass(const Byte* value) {
    const Magnitude magnitude = magnitudeOf(value);
    if (hasDigitAboveMax(magnitude.high) || hasDigitAboveMax(magnitude.low)) {
        return DecimalClass::kInvalid;
    }
    const bool isZero = magnitude == Magnitude{0, 0};
    switch (value[0]) {
        case 0:
            return isZero ? DecimalClass::kZero : DecimalClass::kInvalid;
        case 1:
            return isZero ? DecimalClass::kZero : DecimalClass::kNegative;
        case 2:
            return isZero ? DecimalClass::kZero : DecimalClass::kPositive;
        case 3:
            return DecimalClass::kLowest;
        case 4:
            return DecimalClass::kHighest;
        default:
            return DecimalClass::kInvalid;
    }
}

DecimalOrder compareDecimals(const Byte* left, const Byte* right) {
    const DecimalClass leftClass = decimalClass(left);
    const DecimalClass rightClass = decimalClass(right);
    if (leftClass == DecimalClass::kInvalid || rightClass == DecimalClass::kInvalid) {
        return DecimalOrder::kInvalid;
    }
    if (leftClass != rightClass) {
        return kClassRank[static_cast<int>(leftClass)] < kClassRank[static_cast<int>(rightClass)]
                   ? DecimalOrder::kSmaller
                   : DecimalOrder::kLarger;
    }
    if (leftClass == DecimalClass::kPositive) return compareMagnitudes(left, right);
    if (leftClass == DecimalClass::kNegative) return compareMagnitudes(right, left);
    return DecimalOrder::kEqual;
}

}  // namespace tvsort
