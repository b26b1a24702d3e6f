#include "host/keys/identifier_types.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "host/keys/trimmed_type.h"
#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
}

class BooleanType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        constexpr std::array<std::array<std::string_view, 2>, 6> kWords = {
            {{"false", "true"}, {"f", "t"}, {"no", "yes"}, {"n", "y"}, {"off", "on"}, {"0", "1"}}};
        std::string word(text);
        std::transform(word.begin(), word.end(), word.begin(), lower);
        for (const auto& pair : kWords) {
            const auto* const found = std::find(pair.begin(), pair.end(), word);
            if (found == pair.end()) continue;
            key.push_back(static_cast<Byte>(found - pair.begin()));
            return;
        }
        throw badValue(text, "boolean",
                       "write true or false, t or f, yes or no, on or off, 1 or 0");
    }
};

class UuidType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        constexpr std::size_t kDigits = 32;
        std::string_view rest = text;
        if (rest.starts_with("urn:uuid:")) rest.remove_prefix(9);
        if (rest.starts_with('{') && rest.ends_with('}')) rest = rest.substr(1, rest.size() - 2);
        std::string digits(rest);
        // Where they stand, if anywhere.
        if (digits.size() == kDigits + 4) {
            for (const std::size_t at : {23U, 18U, 13U, 8U}) {
                if (digits[at] == '-') digits.erase(at, 1);
            }
        }
        if (digits.size() != kDigits) bad(text);
        for (std::size_t i = 0; i < kDigits; i += 2) {
            std::uint8_t byte = 0;
            const char* const end = digits.data() + i + 2;
            if (std::from_chars(end - 2, end, byte, 16).ptr != end) bad(text);
            key.push_back(byte);
        }
    }
    [[noreturn]] static void bad(std::string_view text) {
        throw badValue(text, "UUID", "write 32 hexadecimal digits, with hyphens or without");
    }
};

class InetType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        const std::size_t slash = std::min(text.find('/'), text.size());
        const std::string address(text.substr(0, slash));
        std::array<Byte, 16> bytes = {};
        const bool isShort = inet_pton(AF_INET, address.c_str(), bytes.data()) == 1;
        if (address.size() != std::char_traits<char>::length(address.c_str()) ||
            (!isShort && inet_pton(AF_INET6, address.c_str(), bytes.data()) != 1)) {
            bad(text);
        }
        const std::size_t byteCount = isShort ? 4 : 16;
        std::uint8_t prefix = static_cast<std::uint8_t>(8 * byteCount);
        if (slash < text.size()) prefix = readPrefix(text, text.substr(slash + 1), prefix);
        key.push_back(isShort ? 4 : 6);
        for (std::size_t i = 0; i < byteCount; ++i) {
            const int bits = std::clamp(static_cast<int>(prefix) - 8 * static_cast<int>(i), 0, 8);
            key.push_back(static_cast<Byte>(bytes[i] & (0xff00U >> bits)));
        }
        key.push_back(prefix);
        if (prefix < 8 * byteCount) {
            key.insert(key.end(), bytes.begin(),
                       bytes.begin() + static_cast<std::ptrdiff_t>(byteCount));
        }
    }
    static std::uint8_t readPrefix(std::string_view text, std::string_view digits,
                                   std::uint8_t prefixMax) {
        std::uint8_t prefix = 0;
        const char* const end = digits.data() + digits.size();
        const auto [stop, status] = std::from_chars(digits.data(), end, prefix);
        if (status != std::errc() || stop != end || prefix > prefixMax) bad(text);
        return prefix;
    }
    [[noreturn]] static void bad(std::string_view text) {
        throw badValue(text, "network address",
                       "write it as 192.0.2.7, 192.0.2.0/24 or 2001:db8::7");
    }
};

}  // namespace

std::unique_ptr<OrderedType> makeBoolean(const TypeText&) {
    return std::make_unique<BooleanType>();
}

std::unique_ptr<OrderedType> makeUuid(const TypeText&) {
    return std::make_unique<UuidType>();
}

std::unique_ptr<OrderedType> makeInet(const TypeText&) {
    return std::make_unique<InetType>();
}

}  // namespace tvsort::host
