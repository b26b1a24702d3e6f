// Decimal values: fixed-point numbers of fifteen base-100 digits, for keys of types 4 and 5.
//
//      0   u8        class byte: 0 zero, 1 negative, 2 positive, 3 lowest value, 4 highest value
//      1   15 x u8   digits 0 to 99, byte 1 the least significant, byte 15 the most
//
// The digits are the magnitude; the scale is the key's and the same for all its values, so values
// compare as they lie.

#pragma once

#include <cstdint>

#include "service/bytes.h"

namespace tvsort {

inline constexpr std::uint32_t kDecimalBytes = 16;
inline constexpr std::uint32_t kDecimalDigitsOffset = 1;
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

// The class of the 16 bytes at `value`. A zero written with a sign is a zero. A digit above 99, a
// zero with digits and an unknown class byte are invalid.
DecimalClass decimalClass(const Byte* value);

// How the left value stands to the right one, exactly: no rounding, no tolerance.
DecimalOrder compareDecimals(const Byte* left, const Byte* right);

}  // namespace tvsort
