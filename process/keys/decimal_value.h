// Decimal values: fixed-point numbers of fifteen base-100 digits, for keys of types 4 and 5.
//
//      0   u8        class byte: 0 zero, 1 negative, 2 positive, 3 lowest value, 4 highest value
//      1   15 x u8   digits 0 to 99, byte 1 the least significant, byte 15 the most
//
// The digits are the magnitude; the scale is the key's and the same for all its values, so values
// compare as they lie.

#pragma once

#include <algorithm>
#include <cstdint>

#include "protocol/bytes.h"
#include "protocol/data_type.h"

namespace tvsort {

inline constexpr std::uint32_t kDecimalDigitCount = 15;
inline constexpr Byte kDecimalDigitMax = 99;

// In the order 3 < 1 < 0 < 2 < 4.
enum class DecimalClass : std::uint8_t {
    kZero = 0,
    kNegative = 1,
    kPositive = 2,
    kLowest = 3,
    kHighest = 4,
    kInvalid = 5,
};

enum class DecimalOrder : std::int8_t {
    kSmaller = -1,
    kEqual = 0,
    kLarger = 1,
    kInvalid = 5,  // at least one of the values is no decimal
};

// The digits of both halves as two numbers: byte 15 is the most significant, so a little-endian
// load orders them as they are, and the class byte is masked out of the lower half.
struct DecimalMagnitude {
    std::uint64_t high;  // bytes 8 to 15
    std::uint64_t low;   // bytes 1 to 7

    bool operator==(const DecimalMagnitude&) const = default;
    bool isZero() const { return (high | low) == 0; }
    bool isBelow(const DecimalMagnitude& other) const {
        return high != other.high ? high < other.high : low < other.low;
    }
};

inline DecimalMagnitude decimalMagnitude(const Byte* value) {
    return {loadAs<std::uint64_t>(value + 8), loadAs<std::uint64_t>(value) & ~std::uint64_t{0xff}};
}

// The top bits of those of eight bytes that are above 99: a byte is exactly when its top bit is set
// or adding 28 sets it. The sums stay inside their bytes because the top bits are taken out first.
inline std::uint64_t digitsAboveMax(std::uint64_t digits) {
    constexpr std::uint64_t kTopBits = 0x8080808080808080;
    constexpr std::uint64_t kToTopBit = 0x1c1c1c1c1c1c1c1c;
    static_assert(0x80 - (kDecimalDigitMax + 1) == 0x1c);
    return (((digits & ~kTopBits) + kToTopBit) | digits) & kTopBits;
}

inline bool hasDigitAboveMax(const DecimalMagnitude& magnitude) {
    return (digitsAboveMax(magnitude.high) | digitsAboveMax(magnitude.low)) != 0;
}

// The class of the 16 bytes at `value`. A zero written with a sign is a zero. A digit above 99, a
// zero with digits and an unknown class byte are invalid.
inline DecimalClass decimalClass(const Byte* value) {
    const DecimalMagnitude magnitude = decimalMagnitude(value);
    if (hasDigitAboveMax(magnitude)) return DecimalClass::kInvalid;
    const auto classByte = static_cast<DecimalClass>(loadOnce<Byte>(value));
    switch (classByte) {
        case DecimalClass::kZero:
            return magnitude.isZero() ? DecimalClass::kZero : DecimalClass::kInvalid;
        case DecimalClass::kNegative:
        case DecimalClass::kPositive:
            return magnitude.isZero() ? DecimalClass::kZero : classByte;
        case DecimalClass::kLowest:
        case DecimalClass::kHighest:
            return classByte;
        default:
            return DecimalClass::kInvalid;
    }
}

// Whether the value has a class. Without a branch: many values are asked in a row.
inline bool isDecimal(const Byte* value) {
    const DecimalMagnitude magnitude = decimalMagnitude(value);
    const auto classByte = loadOnce<Byte>(value);
    constexpr auto kClassMax = static_cast<Byte>(DecimalClass::kHighest);
    const std::uint32_t hasClass{classByte - 1U < kClassMax};
    const std::uint32_t isZero{(classByte | magnitude.high | magnitude.low) == 0};
    const std::uint32_t isWide{hasDigitAboveMax(magnitude)};
    return (hasClass | isZero) > isWide;
}

// The place of a class in the order of values, from 0. An invalid one has no place; it gets one
// that is none of the others'.
constexpr std::uint8_t decimalClassRank(DecimalClass valueClass) {
    constexpr std::uint8_t kRank[] = {2, 1, 3, 0, 4, 5};
    return kRank[static_cast<int>(std::min(valueClass, DecimalClass::kInvalid))];
}

// How the left value stands to the right one, exactly: no rounding, no tolerance.
DecimalOrder compareDecimals(const Byte* left, const Byte* right);

}  // namespace tvsort
