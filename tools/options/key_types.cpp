#include "tools/options/key_types.h"

#include <fmt/format.h>

#include <array>

namespace tvsort::tools {

namespace {

constexpr LengthMeaning kGiven = LengthMeaning::kGivenByType;
constexpr LengthMeaning kWhole = LengthMeaning::kWholeField;
constexpr LengthMeaning kPrefixed = LengthMeaning::kPrefixed;

constexpr std::uint16_t kFixedFieldBytes = kFixedFieldSkippedBytes + kFixedFieldComparedBytes;

constexpr std::array kKeyTypes = {
    KeyType{"int16", DataType::kInteger, kGiven, 2, 2, 0, 0, "signed, little-endian, 2 bytes"},
    KeyType{"int32", DataType::kInteger, kGiven, 4, 4, 0, 0, "signed, little-endian, 4 bytes"},
    KeyType{"int64", DataType::kInteger, kGiven, 8, 8, 0, 0, "signed, little-endian, 8 bytes"},
    KeyType{"float", DataType::kFloat, kGiven, 4, 4, 0, 0, "IEEE single, 4 bytes"},
    KeyType{"double", DataType::kFloat, kGiven, 8, 8, 0, 0, "IEEE double, 8 bytes"},
    KeyType{"decimal", DataType::kDecimal, kGiven, 16, 16, 0, 0,
            "class byte and 15 base-100 digits, 16 bytes"},
    KeyType{"byte", DataType::kSingleByte, kGiven, 1, 1, 0, 0, "unsigned, 1 byte"},
    KeyType{"bytes", DataType::kBytes, kWhole, 0, 0, 0, 0, "LENGTH unsigned bytes"},
    KeyType{"string", DataType::kString, kPrefixed, 0, 0, 0, 0,
            "u16 length and up to LENGTH bytes"},
    KeyType{"weighted-bytes", DataType::kWeightedBytes, kWhole, 0, 0, 0, 0,
            "LENGTH bytes, ordered by the --weights table"},
    KeyType{"weighted-string", DataType::kWeightedString, kPrefixed, 0, 0, 0, 0,
            "u16 length and up to LENGTH bytes, ordered by the --weights table"},
    KeyType{"ucs2", DataType::kUnits, kWhole, 0, 0, 0, 0, "LENGTH bytes of UCS-2 code units"},
    KeyType{"ucs2-string", DataType::kUnitString, kPrefixed, 0, 0, 0, 0,
            "u16 length in bytes and up to LENGTH bytes of UCS-2 code units"},
    KeyType{"field512", DataType::kFixedField, kGiven, kFixedFieldBytes, kFixedFieldBytes, 0, 0,
            "10 bytes that do not count and 512 unsigned bytes"},
};

}  // namespace

std::span<const KeyType> keyTypes() {
    return kKeyTypes;
}

const KeyType* findKeyType(std::string_view name) {
    for (const KeyType& type : kKeyTypes) {
        if (type.name == name) return &type;
    }
    return nullptr;
}

std::string keyTypesHelp() {
    std::string help;
    for (const KeyType& type : kKeyTypes) {
        help += fmt::format("  {:<16} {}\n", type.name, type.explanation);
    }
    return help;
}

}  // namespace tvsort::tools
