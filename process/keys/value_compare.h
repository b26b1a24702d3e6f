// The comparison of two values of a key, for the ordering and the equality comparator alike.
//
// `compareValues` knows values only: no direction, no nulls, no error codes. What the two
// comparators make of its answer, and where they differ on purpose, is theirs to say
// (keys/record_precedes.h, keys/records_differ.h). It copies nothing, reads each value where it
// lies and never reads outside its record.

#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "process/job/key_rule.h"
#include "process/keys/byte_weights.h"
#include "process/keys/collated_text.h"
#include "process/keys/decimal_value.h"
#include "process/keys/geometry_envelope.h"
#include "protocol/bytes.h"
#include "protocol/data_type.h"

namespace tvsort {

// In ascending sense.
enum class ValueOrder : std::int8_t {
    kLess = -1,
    kEqual = 0,
    kGreater = 1,
    kInvalidDecimal,      // at least one value is no decimal
    kUnreadableGeometry,  // at least one value is no geometry
    kTooLong,             // at least one stored length exceeds the field's
};

// How floating values compare. The tolerant rule makes values equal that rounding alone tells
// apart, and all non-finite values equal to one another and greater than every finite one. It is
// not transitive.
enum class FloatRule : bool { kExact, kTolerant };

// Relative tolerance of the tolerant rule: 2^-48 for doubles, 2^-19 for singles.
inline constexpr float kDoubleTolerance = 0x1p-48F;
inline constexpr float kSingleTolerance = 0x1p-19F;

inline ValueOrder orderOf(int difference) {
    if (difference == 0) return ValueOrder::kEqual;
    return difference < 0 ? ValueOrder::kLess : ValueOrder::kGreater;
}

template <typename Number>
inline ValueOrder compareNumbers(Number left, Number right) {
    if (left == right) return ValueOrder::kEqual;
    return left < right ? ValueOrder::kLess : ValueOrder::kGreater;
}

template <typename Integer>
inline ValueOrder compareIntegers(const Byte* left, const Byte* right) {
    return compareNumbers(loadAs<Integer>(left), loadAs<Integer>(right));
}

inline ValueOrder compareFloats(double left, double right, float tolerance, FloatRule rule) {
    if (rule == FloatRule::kExact) {
        if (left < right) return ValueOrder::kLess;
        return left > right ? ValueOrder::kGreater : ValueOrder::kEqual;  // NaN ties
    }
    const bool leftFinite = std::isfinite(left);
    const bool rightFinite = std::isfinite(right);
    if (!leftFinite || !rightFinite) return orderOf(int{rightFinite} - int{leftFinite});
    const double difference = left - right;
    const double magnitude = std::max(std::fabs(left), std::fabs(right));
    if (std::fabs(difference) <= magnitude * double{tolerance}) return ValueOrder::kEqual;
    return difference < 0 ? ValueOrder::kLess : ValueOrder::kGreater;
}

inline ValueOrder compareUnits(const Byte* left, const Byte* right, std::int32_t unitCount) {
    for (std::int32_t i = 0; i < unitCount; ++i) {
        const int difference = loadU16(left + 2 * i) - loadU16(right + 2 * i);
        if (difference != 0) return orderOf(difference);
    }
    return ValueOrder::kEqual;
}

// Two length-prefixed values. A stored length of 0 or less has no content, and the lengths alone
// decide. A length may state more than the record holds: the content ends with the record.
struct PrefixedValues {
    std::int32_t leftLength;
    std::int32_t rightLength;
    const Byte* left;
    const Byte* right;
    std::int32_t contentBytes;

    PrefixedValues(const KeyRule& rule, const Byte* leftField, const Byte* rightField)
        : leftLength(loadOnce<std::int16_t>(leftField)),
          rightLength(loadOnce<std::int16_t>(rightField)),
          left(leftField + kLengthPrefixBytes),
          right(rightField + kLengthPrefixBytes),
          contentBytes(rule.contentBytes) {}

    bool exceed(std::uint16_t fieldLength) const {
        return std::max(leftLength, rightLength) > std::int32_t{fieldLength};
    }
    std::int32_t leftBytes() const { return std::clamp(leftLength, 0, contentBytes); }
    std::int32_t rightBytes() const { return std::clamp(rightLength, 0, contentBytes); }
    // Bytes that both values have.
    std::int32_t commonBytes() const { return std::min(leftBytes(), rightBytes()); }
};

inline ValueOrder compareStrings(const PrefixedValues& values) {
    const int difference =
        std::memcmp(values.left, values.right, static_cast<std::size_t>(values.commonBytes()));
    if (difference != 0) return orderOf(difference);
    return compareNumbers(values.leftLength, values.rightLength);
}

inline ValueOrder compareWeightedStrings(const PrefixedValues& values, const Byte* weights) {
    const int difference =
        compareByWeight(weights, values.left, values.right, values.commonBytes());
    if (difference != 0) return orderOf(difference);
    return compareNumbers(values.leftLength, values.rightLength);
}

inline ValueOrder compareUnitStrings(const PrefixedValues& values) {
    const ValueOrder order = compareUnits(values.left, values.right, values.commonBytes() / 2);
    if (order != ValueOrder::kEqual) return order;
    return compareNumbers(values.leftLength, values.rightLength);
}

inline ValueOrder compareCollatedStrings(const PrefixedValues& values) {
    return orderOf(collateCompare(*collationTable, values.left, values.leftBytes() / 2,
                                  values.right, values.rightBytes() / 2, false));
}

inline ValueOrder compareGeometries(const PrefixedValues& values, const KeyRule& rule) {
    int order = 0;
    const bool readable =
        compareGeometryKeys(rule.geometryType, rule.storedEnvelope, values.left, values.leftBytes(),
                            values.right, values.rightBytes(), order);
    return readable ? orderOf(order) : ValueOrder::kUnreadableGeometry;
}

// Types 8, 9 and 12. Their lengths are checked before anything else.
inline ValueOrder comparePrefixed(const KeyRule& rule, const Byte* left, const Byte* right) {
    const PrefixedValues values(rule, left, right);
    if (values.exceed(rule.fieldLength)) return ValueOrder::kTooLong;
    switch (rule.comparison) {
        case Comparison::kWeightedString:
            return compareWeightedStrings(values, rule.weights);
        case Comparison::kGeometry:
            return compareGeometries(values, rule);
        case Comparison::kUnitString:
            return compareUnitStrings(values);
        case Comparison::kCollatedUnitString:
            return compareCollatedStrings(values);
        default:
            return compareStrings(values);
    }
}

// The values of one key in two records; `left` and `right` are the key's fields.
inline ValueOrder compareValues(const KeyRule& rule, const Byte* left, const Byte* right,
                                FloatRule floatRule) {
    switch (rule.comparison) {
        case Comparison::kSkipped:
            return ValueOrder::kEqual;
        case Comparison::kBytes:
            return orderOf(std::memcmp(left, right, rule.fieldLength));
        case Comparison::kWeightedBytes:
            return orderOf(compareByWeight(rule.weights, left, right, rule.fieldLength));
        case Comparison::kInteger2:
            return compareIntegers<std::int16_t>(left, right);
        case Comparison::kInteger4:
        case Comparison::kUniqueInteger:
            return compareIntegers<std::int32_t>(left, right);
        case Comparison::kInteger8:
            return compareIntegers<std::int64_t>(left, right);
        case Comparison::kSingle:
            return compareFloats(double{loadAs<float>(left)}, double{loadAs<float>(right)},
                                 kSingleTolerance, floatRule);
        case Comparison::kDouble:
            return compareFloats(loadAs<double>(left), loadAs<double>(right), kDoubleTolerance,
                                 floatRule);
        case Comparison::kDecimal: {
            const DecimalOrder order = compareDecimals(left, right);
            return order == DecimalOrder::kInvalid ? ValueOrder::kInvalidDecimal
                                                   : orderOf(static_cast<int>(order));
        }
        case Comparison::kSingleByte:
            return orderOf(*left - *right);
        case Comparison::kUnits:
            return compareUnits(left, right, rule.fieldLength / 2);
        case Comparison::kCollatedUnits:
            return orderOf(collateCompare(*collationTable, left, rule.fieldLength / 2, right,
                                          rule.fieldLength / 2, true));
        case Comparison::kFixedField:
            return orderOf(std::memcmp(left + kFixedFieldSkippedBytes,
                                       right + kFixedFieldSkippedBytes, kFixedFieldComparedBytes));
        case Comparison::kString:
        case Comparison::kWeightedString:
        case Comparison::kGeometry:
        case Comparison::kUnitString:
        case Comparison::kCollatedUnitString:
            return comparePrefixed(rule, left, right);
    }
    return ValueOrder::kEqual;
}

}  // namespace tvsort
