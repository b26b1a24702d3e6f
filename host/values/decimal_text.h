// Decimal values from text: "-12.50" with the scale 2 is 1250 hundredths below zero.
//
//      0   u8        class byte: 0 zero, 1 negative, 2 positive, 3 lowest value, 4 highest value
//      1   15 x u8   digits 0 to 99, byte 1 the least significant
//
// The scale is the key's, not the value's: how many of the 30 decimal digits stand behind the
// point. The words "lowest" and "highest" stand for the values below and above all numbers.

#pragma once

#include <array>
#include <string_view>

#include "protocol/bytes.h"

namespace tvsort::host {

inline constexpr int kDecimalTextDigitsMax = 30;

using DecimalBytes = std::array<Byte, 16>;

// Takes an optional sign, digits and at most one point, with at least one digit. What is not
// written so, and more digits than the scale or the value has room for, is bad use: nothing is
// rounded. `scale` is 0 to 30.
DecimalBytes decimalFromText(std::string_view text, int scale);

}  // namespace tvsort::host
