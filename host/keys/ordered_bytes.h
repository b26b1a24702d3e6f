// The pieces that ordered keys are made of: bytes whose plain order is that of what they stand for.
//
//     fixed      the bytes of a number, the most significant first
//     compact    i64   one byte that counts, then as many bytes as the number needs
//
//                      ... -257      7d fe ff     two bytes, complemented
//                          -2        7e fe        one byte
//                          -1        7f           none
//                           0        80
//                           1        81 01
//                           256      82 01 00 ...
//
//     text       the bytes, with 00 written as 01 01 and 01 as 01 02, then 00. So a text ends
//                before those that continue it, and what follows a text never counts as part of it.
//
// No piece is the beginning of another one of its kind. Two keys made of the same kinds of pieces
// are therefore either the same or differ inside both, whatever follows, and complementing all
// bytes of a piece turns the order around.

#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>
#include <vector>

#include "protocol/bytes.h"

namespace tvsort::host {

using KeyBytes = std::vector<Byte>;

inline constexpr Byte kTextEnd = 0;

template <std::unsigned_integral Number>
void appendFixed(Number number, KeyBytes& key) {
    for (int shift = 8 * (static_cast<int>(sizeof number) - 1); shift >= 0; shift -= 8)
        key.push_back(static_cast<Byte>(number >> shift));
}

void appendCompact(std::int64_t number, KeyBytes& key);

// Without the end: more text may follow.
void appendTextBytes(std::string_view text, KeyBytes& key);
void appendText(std::string_view text, KeyBytes& key);

// Turns the order of what stands from `begin` on around.
void complementFrom(std::size_t begin, KeyBytes& key);

}  // namespace tvsort::host
