// What a key's field holds: the type codes of key descriptors.
//
// All values are little-endian; comparisons of bytes and of 16-bit units are unsigned; the length
// of a prefixed value is a signed count of bytes.
//
//     0   nothing: the key is skipped, as are 7 and 14 and up
//     1   bytes, compared by the weights of a byte-weight table if one is in force
//     2   signed integer of 2, 4 or (any other field length) 8 bytes
//     3   IEEE single (field length 4) or double
//     4   decimal value of 16 bytes (process/keys/decimal_value.h), as is 5
//     6   bytes
//     8   u16 length and bytes, by weights as in type 1
//     9   u16 length and bytes, or a geometry (process/keys/geometry_envelope.h)
//     10  one byte
//     11  UCS-2 code units, by a collation table if one is in force (process/keys/collated_text.h)
//     12  u16 length in bytes and UCS-2 code units, likewise
//     13  a fixed field type of 522 bytes, of which the last 512 are compared

#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace tvsort {

enum class DataType : std::uint8_t {
    kNone = 0,
    kWeightedBytes = 1,
    kInteger = 2,
    kFloat = 3,
    kDecimal = 4,
    kAlsoDecimal = 5,
    kBytes = 6,
    kAlsoNone = 7,
    kWeightedString = 8,
    kString = 9,
    kSingleByte = 10,
    kUnits = 11,
    kUnitString = 12,
    kFixedField = 13,
};

// A descriptor's geometry type: the string is none, or carries its type itself.
inline constexpr std::uint8_t kGeometryTypeNone = 0;
inline constexpr std::uint8_t kGeometryTypeOfValue = 255;

// The value of a geometry key whose descriptor says that it is an envelope already.
struct Envelope {
    double minX;
    double minY;
    double maxX;
    double maxY;
};
static_assert(sizeof(Envelope) == 32 && std::is_trivially_copyable_v<Envelope>);

// Type 13: the first 10 bytes of the field are not consulted.
inline constexpr std::uint32_t kFixedFieldSkippedBytes = 10;
inline constexpr std::uint32_t kFixedFieldComparedBytes = 512;

// Bytes of the length that stands before the content of types 8, 9 and 12.
inline constexpr std::uint32_t kLengthPrefixBytes = 2;

// Bytes of a decimal value, types 4 and 5.
inline constexpr std::uint32_t kDecimalBytes = 16;

// The bytes of a record that a key of this descriptor needs at its field offset. Prefixed values
// may state lengths up to `fieldLength`, two bytes more than the field has behind the length; their
// content ends with the record.
inline std::uint32_t keyFieldBytes(std::uint8_t dataType, std::uint16_t fieldLength) {
    switch (static_cast<DataType>(dataType)) {
        case DataType::kInteger:
            return fieldLength == 2 || fieldLength == 4 ? fieldLength : 8;
        case DataType::kFloat:
            return fieldLength == 4 ? 4 : 8;
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
            return kDecimalBytes;
        case DataType::kWeightedBytes:
        case DataType::kBytes:
        case DataType::kUnits:
            return fieldLength;
        case DataType::kWeightedString:
        case DataType::kString:
        case DataType::kUnitString:
            return std::max<std::uint32_t>(kLengthPrefixBytes, fieldLength);
        case DataType::kSingleByte:
            return 1;
        case DataType::kFixedField:
            return kFixedFieldSkippedBytes + kFixedFieldComparedBytes;
        case DataType::kNone:
        case DataType::kAlsoNone:
            break;
    }
    return 0;
}

}  // namespace tvsort
