// A sort key as the comparators read it: a descriptor with everything resolved that is the same for
// all comparisons of a request (keys/key_meaning.h).

#pragma once

#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

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

}  // namespace tvsort
