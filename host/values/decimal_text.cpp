#include "host/values/decimal_text.h"

#include <algorithm>
#include <string>

#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

constexpr Byte kZero = 0;
constexpr Byte kNegative = 1;
constexpr Byte kPositive = 2;
constexpr Byte kLowest = 3;
constexpr Byte kHighest = 4;

[[noreturn]] void bad(std::string_view text, const std::string& reason) {
    throw badValue(text, "decimal", reason);
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

// All digits of the number at the key's scale, the most significant first, without leading zeros.
std::string scaledDigits(std::string_view text, std::string_view number, int scale) {
    const std::size_t point = std::min(number.find('.'), number.size());
    std::string digits(number.substr(0, point));
    const std::string_view fraction = number.substr(std::min(point + 1, number.size()));
    if (digits.empty() && fraction.empty()) bad(text, "it has no digits");
    if (fraction.size() > static_cast<std::size_t>(scale)) {
        bad(text, "it has " + std::to_string(fraction.size()) +
                      " digits behind the point, and the scale is " + std::to_string(scale));
    }
    digits += fraction;
    if (!std::all_of(digits.begin(), digits.end(), isDigit)) {
        bad(text, "write digits, with a sign before and a point between them if need be");
    }
    digits.append(static_cast<std::size_t>(scale) - fraction.size(), '0');
    digits.erase(0, digits.find_first_not_of('0'));
    if (digits.size() > kDecimalTextDigitsMax) {
        bad(text, "before the point there is room for " +
                      std::to_string(kDecimalTextDigitsMax - scale) + " digits at the scale " +
                      std::to_string(scale));
    }
    return digits;
}

}  // namespace

DecimalBytes decimalFromText(std::string_view text, int scale) {
    DecimalBytes value = {};
    if (text == "lowest" || text == "highest") {
        value[0] = text == "lowest" ? kLowest : kHighest;
        return value;
    }
    const bool hasSign = !text.empty() && (text[0] == '-' || text[0] == '+');
    std::string digits = scaledDigits(text, text.substr(hasSign ? 1 : 0), scale);
    if (digits.empty()) {
        value[0] = kZero;
        return value;
    }
    value[0] = text[0] == '-' ? kNegative : kPositive;
    if (digits.size() % 2 != 0) digits.insert(digits.begin(), '0');
    std::size_t place = 1;
    for (std::size_t end = digits.size(); end > 0; end -= 2) {
        value[place++] = static_cast<Byte>((digits[end - 2] - '0') * 10 + (digits[end - 1] - '0'));
    }
    return value;
}

}  // namespace tvsort::host
