// Lies for the lying process, from any bytes.

#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_input.h"

namespace tvsort::test {

// Numbers at which something begins or ends, and now and then any other.
inline std::int64_t lyingNumber(fuzz::FuzzInput& input) {
    constexpr std::array<std::int64_t, 20> kBorders = {
        0,   1,   -1,   2,     3,     5,     39,    40,       41,          80,
        255, 256, 4096, 32767, 32768, 65535, 65536, 1L << 31, -(1L << 31), (1L << 31) - 1};
    const std::uint32_t choice = input.below(kBorders.size() + 4);
    if (choice < kBorders.size()) return kBorders[choice];
    if (choice == kBorders.size()) return input.take<std::int64_t>();
    return input.take<std::uint16_t>();
}

inline std::string oneLie(fuzz::FuzzInput& input) {
    constexpr std::array kReplyOffsets = {0, 4, 8, 12, 44, 60, 64, 68, 72, 76};
    constexpr std::array kWidths = {1, 2, 4, 8};
    const std::string width = std::to_string(kWidths[input.below(kWidths.size())]) + " ";
    const std::string number = std::to_string(lyingNumber(input));
    const std::uint32_t kind = input.below(64);
    if (kind < 20) {
        const int offset = kReplyOffsets[input.below(kReplyOffsets.size())];
        return "word " + std::to_string(offset) + " " + width + number;
    }
    const std::string offset = std::to_string(input.below(64)) + " ";
    if (kind < 40) {
        return "record " + std::to_string(input.take<std::uint16_t>()) + " " + offset + width +
               number;
    }
    if (kind < 52) return "records " + offset + width + number;
    switch (kind) {
        case 52:
            return "part " + std::to_string(input.below(81));
        case 53:
            return "twice";
        case 54:
        case 55:
            return "file " + number;
        case 56:
            return "object " + number;
        case 57:
        case 58:
            return "scribble";
        case 59:
            return "end " + std::to_string(input.below(3));
        case 60:
            return "signal " + std::to_string(input.rarely(2) ? 11 : 9);
        case 61:
            return "hello " + offset + width + number;
        default:
            return "records 0 8 " + std::to_string(input.take<std::int64_t>());
    }
}

// One to three at once; "" is no lie.
inline std::string lies(fuzz::FuzzInput& input) {
    std::string text = oneLie(input);
    for (std::uint32_t more = input.below(3); more > 0; --more)
        text += ";" + oneLie(input);
    return text;
}

}  // namespace tvsort::test
