// Numbers of C++'s own types from text.

#pragma once

#include <charconv>
#include <string_view>

#include "host/values/value_text.h"

namespace tvsort::host {

inline constexpr char kWriteNumber[] = "write it as a number and nothing else";

// The number that the whole text is, with or without a plus. Throws `badValue` with `wanted`.
template <typename Number>
Number parseNumber(std::string_view text, const char* wanted) {
    std::string_view digits = text;
    if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
    Number number = {};
    const char* const end = digits.data() + digits.size();
    const auto [stop, status] = std::from_chars(digits.data(), end, number);
    if (status == std::errc::result_out_of_range)
        throw badValue(text, wanted, "it is out of range");
    if (status != std::errc() || stop != end) throw badValue(text, wanted, kWriteNumber);
    return number;
}

}  // namespace tvsort::host
