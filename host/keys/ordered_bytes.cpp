#include "host/keys/ordered_bytes.h"

#include <algorithm>
#include <bit>

namespace tvsort::host {

namespace {

constexpr std::uint8_t kCompactZero = 0x80;
constexpr Byte kEscape = 1;

}  // namespace

void appendCompact(std::int64_t number, KeyBytes& key) {
    const bool isNegative = number < 0;
    // Of a negative number, what lies between it and -1.
    const auto magnitude = static_cast<std::uint64_t>(isNegative ? ~number : number);
    const int byteCount = (static_cast<int>(std::bit_width(magnitude)) + 7) / 8;
    const std::uint8_t flip = isNegative ? 0xff : 0;
    key.push_back(static_cast<Byte>((kCompactZero + byteCount) ^ flip));
    for (int shift = 8 * (byteCount - 1); shift >= 0; shift -= 8)
        key.push_back(static_cast<Byte>(magnitude >> shift ^ flip));
}

void appendTextBytes(std::string_view text, KeyBytes& key) {
    const auto* const begin = reinterpret_cast<const Byte*>(text.data());
    const auto* const end = begin + text.size();
    const auto isPlain = [](Byte byte) { return byte > kEscape; };
    if (std::all_of(begin, end, isPlain)) {
        key.insert(key.end(), begin, end);
        return;
    }
    for (const Byte* byte = begin; byte != end; ++byte) {
        if (!isPlain(*byte)) key.push_back(kEscape);
        key.push_back(isPlain(*byte) ? *byte : static_cast<Byte>(*byte + 1));
    }
}

void appendText(std::string_view text, KeyBytes& key) {
    appendTextBytes(text, key);
    key.push_back(kTextEnd);
}

void complementFrom(std::size_t begin, KeyBytes& key) {
    for (std::size_t i = begin; i < key.size(); ++i)
        key[i] = static_cast<Byte>(~key[i]);
}

}  // namespace tvsort::host
