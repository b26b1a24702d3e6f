#include "host/keys/number_types.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>

#include "host/keys/trimmed_type.h"
#include "host/values/number_text.h"

namespace tvsort::host {

namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

template <typename Number>
class IntegerType : public TrimmedType {
  public:
    explicit IntegerType(const char* wanted) : wanted_(wanted) {}

  private:
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        appendCompact(parseNumber<Number>(text, wanted_), key);
    }

    const char* wanted_;
};

template <typename Number>
class FloatType : public TrimmedType {
  public:
    explicit FloatType(bool isNanLow) : isNanLow_(isNanLow) {}

  private:
    using Bits = std::conditional_t<sizeof(Number) == 8, std::uint64_t, std::uint32_t>;
    static constexpr Bits kSign = Bits{1} << (8 * sizeof(Bits) - 1);

    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        const auto number = parseNumber<Number>(text, "floating-point number");
        appendFixed(orderedBits(number), key);
    }
    Bits orderedBits(Number number) const {
        if (std::isnan(number)) return isNanLow_ ? Bits{0} : std::numeric_limits<Bits>::max();
        const auto bits = std::bit_cast<Bits>(number == 0 ? Number{0} : number);
        return (bits & kSign) != 0 ? static_cast<Bits>(~bits) : static_cast<Bits>(bits | kSign);
    }

    bool isNanLow_;
};

enum class DecimalClass : std::uint8_t {
    kLowNan,
    kLowest,
    kNegative,
    kZero,
    kPositive,
    kHighest,
    kNan,
};

bool isWord(std::string_view text, std::string_view word) {
    return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                      [](char left, char right) {
                          return (left >= 'A' && left <= 'Z' ? left - 'A' + 'a' : left) == right;
                      });
}

std::optional<DecimalClass> decimalWord(std::string_view text, bool isNanLow) {
    if (isWord(text, "nan")) return isNanLow ? DecimalClass::kLowNan : DecimalClass::kNan;
    if (text == "lowest") return DecimalClass::kLowest;
    if (text == "highest") return DecimalClass::kHighest;
    const bool isNegative = text.starts_with('-');
    const std::string_view word = text.substr(isNegative || text.starts_with('+') ? 1 : 0);
    if (!isWord(word, "inf") && !isWord(word, "infinity")) return std::nullopt;
    return isNegative ? DecimalClass::kLowest : DecimalClass::kHighest;
}

// 0.DDDD x 10^exponent, without zeros at either end; no digits are zero.
struct Decimal {
    bool isNegative = false;
    std::string digits;
    std::int64_t exponent = 0;

    void trim() {
        const std::size_t first = std::min(digits.find_first_not_of('0'), digits.size());
        digits.erase(0, first);
        exponent -= static_cast<std::int64_t>(first);
        digits.erase(digits.find_last_not_of('0') + 1);
    }
};

constexpr int kAnyScale = -1;
// Of an exponent behind e, far beyond what a number can be written out with.
constexpr std::int64_t kExponentMax = 1'000'000'000;

class DecimalReader {
  public:
    DecimalReader(std::string_view text, int scale) : text_(text), scale_(scale) {}

    Decimal read() {
        std::string_view rest = text_;
        Decimal decimal;
        decimal.isNegative = rest.starts_with('-');
        if (decimal.isNegative || rest.starts_with('+')) rest.remove_prefix(1);
        const std::size_t mark = scale_ == kAnyScale ? rest.find_first_of("eE") : std::string::npos;
        if (mark != std::string_view::npos) {
            decimal.exponent = readExponent(rest.substr(mark + 1));
            rest = rest.substr(0, mark);
        }
        const std::size_t point = std::min(rest.find('.'), rest.size());
        const std::string_view fraction = rest.substr(std::min(point + 1, rest.size()));
        if (point == 0 && fraction.empty()) bad("it has no digits");
        if (scale_ != kAnyScale && fraction.size() > static_cast<std::size_t>(scale_)) {
            bad("it has " + std::to_string(fraction.size()) +
                " digits behind the point, and the scale is " + std::to_string(scale_));
        }
        decimal.digits = rest.substr(0, point);
        decimal.digits += fraction;
        if (!std::all_of(decimal.digits.begin(), decimal.digits.end(), isDigit))
            bad("write digits, with a sign before and a point between them if need be");
        decimal.exponent += static_cast<std::int64_t>(point);
        decimal.trim();
        return decimal;
    }

  private:
    std::int64_t readExponent(std::string_view text) const {
        const auto exponent = parseNumber<std::int64_t>(text, "exponent of a decimal");
        if (exponent < -kExponentMax || exponent > kExponentMax) bad("its exponent is too large");
        return exponent;
    }
    [[noreturn]] void bad(const std::string& reason) const {
        throw badValue(text_, "decimal", reason);
    }

    std::string_view text_;
    int scale_;
};

void appendDecimal(const Decimal& decimal, KeyBytes& key) {
    const DecimalClass valueClass = decimal.digits.empty() ? DecimalClass::kZero
                                    : decimal.isNegative   ? DecimalClass::kNegative
                                                           : DecimalClass::kPositive;
    key.push_back(static_cast<Byte>(valueClass));
    if (valueClass == DecimalClass::kZero) return;
    const std::size_t begin = key.size();
    appendCompact(decimal.exponent, key);
    for (std::size_t i = 0; i < decimal.digits.size(); i += 2) {
        const int tens = decimal.digits[i] - '0';
        const int ones = i + 1 < decimal.digits.size() ? decimal.digits[i + 1] - '0' : 0;
        key.push_back(static_cast<Byte>(10 * tens + ones + 1));
    }
    key.push_back(kTextEnd);
    if (decimal.isNegative) complementFrom(begin, key);
}

class DecimalType : public TrimmedType {
  public:
    explicit DecimalType(const TypeText& text) : isNanLow_(text.isNanLow) {
        if (!text.arguments.empty()) scale_ = readScale(text);
    }

  private:
    static int readScale(const TypeText& text) {
        const std::string& word = text.arguments.front();
        int scale = -1;
        const char* const end = word.data() + word.size();
        const auto [stop, status] = std::from_chars(word.data(), end, scale);
        if (text.arguments.size() == 1 && status == std::errc() && stop == end && scale >= 0)
            return scale;
        throw badUse("\"" + text.text().substr(text.name.size() + 1) +
                     "\" is no scale, the digits behind the point at most, such as decimal:2");
    }
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        if (const auto word = decimalWord(text, isNanLow_); word.has_value()) {
            key.push_back(static_cast<Byte>(*word));
        } else {
            appendDecimal(DecimalReader(text, scale_).read(), key);
        }
    }

    int scale_ = kAnyScale;
    bool isNanLow_;
};

// The digits of a number 1024 times as large.
std::string timesKibi(const std::string& digits) {
    constexpr unsigned kFactor = 1024;
    std::string product;
    unsigned carry = 0;
    for (auto digit = digits.rbegin(); digit != digits.rend() || carry > 0;) {
        if (digit != digits.rend()) carry += kFactor * static_cast<unsigned>(*digit++ - '0');
        product += static_cast<char>('0' + carry % 10);
        carry /= 10;
    }
    std::reverse(product.begin(), product.end());
    return product;
}

class SizeType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        constexpr std::string_view kUnits = "KMGTPEZY";
        std::string_view number = text;
        if (number.ends_with('B')) number.remove_suffix(1);
        const bool isBinary = number.ends_with('i');
        if (isBinary) number.remove_suffix(1);
        std::size_t power = 0;
        if (!number.empty() && !isDigit(number.back()) && number.back() != '.') {
            const char unit = number.back() == 'k' ? 'K' : number.back();
            power = kUnits.find(unit) + 1;
            if (power == 0) bad(text);
            number.remove_suffix(1);
        } else if (isBinary) {
            bad(text);
        }
        while (number.ends_with(' '))
            number.remove_suffix(1);
        appendDecimal(scaled(text, number, power, isBinary), key);
    }
    static Decimal scaled(std::string_view text, std::string_view number, std::size_t power,
                          bool isBinary) {
        constexpr int kDigitsOfKilo = 3;
        if (number.find_first_not_of("+-.0123456789") != std::string_view::npos) bad(text);
        Decimal decimal = DecimalReader(number, kAnyScale).read();
        if (!isBinary) {
            decimal.exponent += kDigitsOfKilo * static_cast<std::int64_t>(power);
            return decimal;
        }
        const auto before = static_cast<std::int64_t>(decimal.digits.size());
        for (std::size_t i = 0; i < power; ++i)
            decimal.digits = timesKibi(decimal.digits);
        decimal.exponent += static_cast<std::int64_t>(decimal.digits.size()) - before;
        decimal.trim();
        return decimal;
    }
    [[noreturn]] static void bad(std::string_view text) {
        throw badValue(text, "size",
                       "write a number, and behind it nothing or a unit, K to Y or Ki to Yi");
    }
};

int hexValue(char digit) {
    if (isDigit(digit)) return digit - '0';
    const int letter = digit | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

class HexType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        std::string_view digits = text;
        bool isNegative = digits.starts_with('-');
        if (isNegative || digits.starts_with('+')) digits.remove_prefix(1);
        if (digits.starts_with("0x") || digits.starts_with("0X")) digits.remove_prefix(2);
        if (digits.empty() || !std::all_of(digits.begin(), digits.end(),
                                           [](char digit) { return hexValue(digit) >= 0; })) {
            throw badValue(text, "hexadecimal number", "write digits 0 to 9 and a to f");
        }
        digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
        if (digits.empty()) isNegative = false;
        key.push_back(isNegative ? 0 : 1);
        const std::size_t begin = key.size();
        appendCompact(static_cast<std::int64_t>(digits.size()), key);
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            const int low = i + 1 < digits.size() ? hexValue(digits[i + 1]) : 0;
            key.push_back(static_cast<Byte>(16 * hexValue(digits[i]) + low));
        }
        if (isNegative) complementFrom(begin, key);
    }
};

}  // namespace

std::unique_ptr<OrderedType> makeInt64(const TypeText&) {
    return std::make_unique<IntegerType<std::int64_t>>("integer of 64 bits");
}

std::unique_ptr<OrderedType> makeInt32(const TypeText&) {
    return std::make_unique<IntegerType<std::int32_t>>("integer of 32 bits");
}

std::unique_ptr<OrderedType> makeInt16(const TypeText&) {
    return std::make_unique<IntegerType<std::int16_t>>("integer of 16 bits");
}

std::unique_ptr<OrderedType> makeByte(const TypeText&) {
    return std::make_unique<IntegerType<std::uint8_t>>("number from 0 to 255");
}

std::unique_ptr<OrderedType> makeDouble(const TypeText& text) {
    return std::make_unique<FloatType<double>>(text.isNanLow);
}

std::unique_ptr<OrderedType> makeFloat(const TypeText& text) {
    return std::make_unique<FloatType<float>>(text.isNanLow);
}

std::unique_ptr<OrderedType> makeDecimal(const TypeText& text) {
    return std::make_unique<DecimalType>(text);
}

std::unique_ptr<OrderedType> makeSize(const TypeText&) {
    return std::make_unique<SizeType>();
}

std::unique_ptr<OrderedType> makeHex(const TypeText&) {
    return std::make_unique<HexType>();
}

}  // namespace tvsort::host
