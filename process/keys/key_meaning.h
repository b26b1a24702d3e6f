// What a key descriptor means to the comparators.
//
// A descriptor as the server sends it is cheap to transport and dear to interpret: type code,
// length, direction and null bits, and an item list that may or may not hold a weight table for
// the key. All of that is the same for every comparison of a request, so the request loop turns
// each sort key once into a `KeyRule` (`resolveKeyRules`), and the comparators read rules only.
//
// Type codes, and what the field of a record holds. All values are little-endian; comparisons of
// bytes and of 16-bit units are unsigned; the length of a prefixed value is a signed count of
// bytes.
//
//     0   nothing: the key is skipped, as are 7 and 14 and up
//     1   bytes, compared by the weights of a byte-weight table if one is in force
//     2   signed integer of 2, 4 or (any other field length) 8 bytes
//     3   IEEE single (field length 4) or double
//     4   decimal value of 16 bytes (keys/decimal_value.h), as is 5
//     6   bytes
//     8   u16 length and bytes, by weights as in type 1
//     9   u16 length and bytes, or a geometry (keys/geometry_envelope.h)
//     10  one byte
//     11  UCS-2 code units, by a collation table if one is in force (keys/collated_text.h)
//     12  u16 length in bytes and UCS-2 code units, likewise
//     13  a fixed field type of 522 bytes, of which the last 512 are compared

#pragma once

#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

struct SortJob;

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

inline constexpr std::uint8_t kGeometryTypeNone = 0;

// Type 13: the first 10 bytes of the field are not consulted.
inline constexpr std::uint32_t kFixedFieldSkippedBytes = 10;
inline constexpr std::uint32_t kFixedFieldComparedBytes = 512;

// Bytes of the length that stands before the content of types 8, 9 and 12.
inline constexpr std::uint32_t kLengthPrefixBytes = 2;

// How two values of a key are compared: the type code, with everything resolved that the request
// decides.
enum class Comparison : std::uint8_t {
    kSkipped,
    kBytes,
    kWeightedBytes,
    kInteger2,
    kInteger4,
    kInteger8,
    kUniqueInteger,  // an ascending 4-byte integer, last key of sort modes 8 and 9
    kSingle,
    kDouble,
    kDecimal,
    kString,
    kWeightedString,
    kGeometry,
    kSingleByte,
    kUnits,
    kCollatedUnits,
    kUnitString,
    kCollatedUnitString,
    kFixedField,
};

struct KeyRule {
    Comparison comparison;
    bool ascending;
    bool nullsFirst;            // where a null stands, direction and both placement bits considered
    bool storedEnvelope;        // geometry: the value is an envelope, not well-known binary
    std::uint8_t geometryType;  // geometry: its type, or 255 to read it from the value
    std::uint8_t groupKey;      // the descriptor's
    std::uint16_t fieldOffset;  // bytes from the record's start
    std::uint16_t fieldLength;  // bytes
    std::uint32_t nullOffset;   // bytes from the record's start to the null indicator, if there
    std::int32_t contentBytes;  // prefixed values: what the record holds behind the length
    const Byte* weights;        // 256 weights, or null
};

// The bytes of a record that a key of this descriptor needs at its field offset. Prefixed values
// may state lengths up to `fieldLength`, two bytes more than the field has behind the length; their
// content ends with the record (`contentBytes`).
std::uint32_t keyFieldBytes(std::uint8_t dataType, std::uint16_t fieldLength);

// Fills `job.keyRules` from `keyOrder`, `keyPositions`, `kind4Key`, `items` and `sortMode`.
// Needs the collation table loaded. Cannot fail.
void resolveKeyRules(SortJob& job);

}  // namespace tvsort
