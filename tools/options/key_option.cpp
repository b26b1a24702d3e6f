#include "tools/options/key_option.h"

#include <fmt/format.h>

#include <charconv>
#include <vector>

#include "host/host_error.h"
#include "protocol/data_type.h"
#include "tools/options/key_types.h"

namespace tvsort::tools {

namespace {

[[noreturn]] void badKey(const std::string& text, const std::string& reason) {
    throw host::badUse(fmt::format(
        "--key {}: {}; write TYPE:OFFSET[:LENGTH][:desc][:nulls-first|:nulls-last]", text, reason));
}

std::vector<std::string> splitAtColons(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char character : text) {
        if (character == ':') {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::uint16_t parseNumber(const std::string& text, const std::string& number, const char* meaning) {
    std::uint16_t value = 0;
    const char* const end = number.data() + number.size();
    const auto parsed = std::from_chars(number.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        badKey(text, fmt::format("the {} \"{}\" is no number from 0 to 65535", meaning, number));
    }
    return value;
}

const KeyType& typeNamed(const std::string& text, const std::string& name) {
    const KeyType* const type = findKeyType(name);
    if (type != nullptr) return *type;
    std::string names;
    for (const KeyType& known : keyTypes())
        names += fmt::format(" {}", known.name);
    badKey(text, fmt::format("there is no type \"{}\"; the types are{}", name, names));
}

}  // namespace

bool applyKeyWord(const std::string& word, KeyDescriptor& key) {
    const auto setKind = [&key](KeyKind kind) {
        key.kindFlags = static_cast<std::uint8_t>((key.kindFlags & ~kKeyKindMask) |
                                                  static_cast<std::uint8_t>(kind));
    };
    if (word == "asc") {
        setKind(KeyKind::kAscending);
    } else if (word == "desc") {
        setKind(KeyKind::kDescending);
    } else if (word == "nulls-first") {
        key.kindFlags |= kNullsFirstBit;
    } else if (word == "nulls-last") {
        key.kindFlags |= kNullsLastBit;
    } else {
        return false;
    }
    return true;
}

KeyDescriptor parseKey(const std::string& text) {
    const std::vector<std::string> parts = splitAtColons(text);
    const KeyType& type = typeNamed(text, parts[0]);
    if (parts.size() < 2) badKey(text, "the offset is missing");

    KeyDescriptor key = {};
    key.dataType = static_cast<std::uint8_t>(type.dataType);
    key.geometryType = type.geometryType;
    key.fieldLength = type.fieldLength;
    key.fieldOffset = parseNumber(text, parts[1], "offset");
    key.kindFlags =
        static_cast<std::uint8_t>(static_cast<std::uint8_t>(KeyKind::kAscending) | type.extraBits);
    std::size_t next = 2;
    if (type.lengthMeaning != LengthMeaning::kGivenByType) {
        if (next >= parts.size() || !isNumber(parts[next])) {
            badKey(text, fmt::format("a key of type {} needs a length", type.name));
        }
        key.fieldLength = parseNumber(text, parts[next++], "length");
    } else if (next < parts.size() && isNumber(parts[next])) {
        badKey(text, fmt::format("the length of type {} is given by the type", type.name));
    }
    for (; next < parts.size(); ++next) {
        if (!applyKeyWord(parts[next], key)) {
            badKey(text, fmt::format("\"{}\" is not known", parts[next]));
        }
    }
    return key;
}

std::uint32_t keyBytes(const KeyDescriptor& key) {
    for (const KeyType& type : keyTypes()) {
        if (static_cast<std::uint8_t>(type.dataType) != key.dataType) continue;
        switch (type.lengthMeaning) {
            case LengthMeaning::kGivenByType:
                if (type.fieldLength == key.fieldLength) return type.fieldBytes;
                break;
            case LengthMeaning::kWholeField:
                return key.fieldLength;
            case LengthMeaning::kPrefixed:
                return kLengthPrefixBytes + key.fieldLength;
        }
    }
    return 0;
}

}  // namespace tvsort::tools
