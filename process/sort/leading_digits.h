// The first bytes of a key as one number whose order is the key's.
//
// Most comparisons are decided by a few bytes of one key. As a number they are compared by one
// instruction, and without a branch that could be mispredicted. A value has no digits where the
// comparator would have something to say: a stored length above the field's, an invalid decimal, a
// float that is not finite.
//
// Digits tell values apart or they do not; equal digits do not mean equal values.

#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "process/keys/decimal_value.h"
#include "process/keys/value_compare.h"

namespace tvsort {

// What the digits are made of; kNone: the key has none. A key without a byte of its own has none:
// it may stand at any place, even outside the record.
enum class LeadingKind : std::uint8_t {
    kNone,
    kInteger2,
    kInteger4,
    kInteger8,
    kBytes,
    kString,
    kSingle,
    kDouble,
    kDecimal,
};

inline LeadingKind leadingKind(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kInteger2:
            return LeadingKind::kInteger2;
        case Comparison::kInteger4:
            return LeadingKind::kInteger4;
        case Comparison::kInteger8:
            return LeadingKind::kInteger8;
        case Comparison::kBytes:
            return rule.fieldLength > 0 ? LeadingKind::kBytes : LeadingKind::kNone;
        case Comparison::kString:
            return rule.contentBytes > 0 ? LeadingKind::kString : LeadingKind::kNone;
        case Comparison::kSingle:
            return LeadingKind::kSingle;
        case Comparison::kDouble:
            return LeadingKind::kDouble;
        case Comparison::kDecimal:
            return LeadingKind::kDecimal;
        default:
            return LeadingKind::kNone;
    }
}

constexpr bool isFloatKind(LeadingKind kind) {
    return kind == LeadingKind::kSingle || kind == LeadingKind::kDouble;
}

// Bytes of a key that one number holds.
inline constexpr std::int32_t kDigitBytes = sizeof(std::uint64_t);

inline constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

// The bits that the first `count` bytes take of a number, the first one most significant. By a
// table: a shift by 64 is none.
inline std::uint64_t leadingBytes(std::int32_t count) {
    constexpr std::uint64_t kLeadingBytes[] = {
        0,
        0xff00000000000000,
        0xffff000000000000,
        0xffffff0000000000,
        0xffffffff00000000,
        0xffffffffff000000,
        0xffffffffffff0000,
        0xffffffffffffff00,
        0xffffffffffffffff,
    };
    return kLeadingBytes[std::clamp(count, 0, kDigitBytes)];
}

// Eight bytes, the first one most significant. The first one lies in the record, so at most seven
// lie behind it, where the slot goes on.
inline std::uint64_t digitsOfBytes(const Byte* bytes) {
    return __builtin_bswap64(loadAs<std::uint64_t>(bytes));
}

// A number of any kind, the zeros as neighbours.
inline std::uint64_t digitsOfDouble(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    return bits ^ (static_cast<std::uint64_t>(static_cast<std::int64_t>(bits) >> 63) | kSignBit);
}

inline double doubleOfDigits(std::uint64_t digits) {
    return std::bit_cast<double>((digits & kSignBit) != 0 ? digits ^ kSignBit : ~digits);
}

// Where the digits of a key come from, with everything worked out that is the same for all records.
struct DigitSource {
    LeadingKind kind;             // kNone: there are no digits
    std::uint32_t fieldOffset;    // of the key's field, from the record's start
    std::uint32_t offset;         // of the bytes that become digits
    std::int32_t skippedBytes;    // of the content of bytes and strings, before the digits
    std::int32_t fieldLength;     // bytes
    std::int32_t contentBytes;    // strings: what the record holds behind the length
    std::uint64_t usedBytes;      // bytes: those that belong to the field
    std::uint64_t decimalsAbove;  // decimals: the digits above those taken, in bytes 8 to 15
};

// The first digits of `rule`; of bytes and strings those behind the first `skippedBytes` of the
// content.
inline DigitSource digitSource(const KeyRule& rule, std::int32_t skippedBytes) {
    DigitSource source = {};
    source.kind = leadingKind(rule);
    source.fieldOffset = source.offset = rule.fieldOffset;
    source.skippedBytes = skippedBytes;
    source.offset += static_cast<std::uint32_t>(skippedBytes);
    if (source.kind == LeadingKind::kString) source.offset += kLengthPrefixBytes;
    source.fieldLength = rule.fieldLength;
    source.contentBytes = rule.contentBytes;
    source.usedBytes = leadingBytes(rule.fieldLength - skippedBytes);
    return source;
}

// Takes the seven digits of a decimal from byte `top` downward, the highest one that is not zero in
// values of interest; 8 bytes are loaded, of which the lowest is none of them.
inline void takeDecimalDigits(DigitSource& source, int top) {
    const int lowest = std::max(1, top - 6);
    source.offset = source.fieldOffset + static_cast<std::uint32_t>(lowest - 1);
    source.decimalsAbove = leadingBytes(9 - lowest);
}

inline constexpr int kDecimalRankShift = 56;
inline constexpr std::uint64_t kDecimalMagnitude = (std::uint64_t{1} << kDecimalRankShift) - 1;

// What the class byte of a decimal makes of its digits.
struct DecimalSense {
    std::uint64_t rank;  // in the bits above the magnitude
    std::uint64_t turn;
    std::uint64_t used;
    bool isValid;
};

constexpr DecimalSense decimalSense(DecimalClass valueClass) {
    if (valueClass == DecimalClass::kInvalid) return {};
    const bool isNegative = valueClass == DecimalClass::kNegative;
    const bool hasDigits = isNegative || valueClass == DecimalClass::kPositive;
    return {std::uint64_t{decimalClassRank(valueClass)} << kDecimalRankShift,
            isNegative ? kDecimalMagnitude : 0, hasDigits ? kDecimalMagnitude : 0, true};
}

// All class bytes from here on are the same: of no class.
inline constexpr Byte kDecimalClassMax = static_cast<Byte>(DecimalClass::kInvalid);

// By class byte, those above 4 as one: for a value with digits, and for one without.
inline constexpr DecimalSense kDecimalSenses[][2] = {
    {decimalSense(DecimalClass::kInvalid), decimalSense(DecimalClass::kZero)},
    {decimalSense(DecimalClass::kNegative), decimalSense(DecimalClass::kZero)},
    {decimalSense(DecimalClass::kPositive), decimalSense(DecimalClass::kZero)},
    {decimalSense(DecimalClass::kLowest), decimalSense(DecimalClass::kLowest)},
    {decimalSense(DecimalClass::kHighest), decimalSense(DecimalClass::kHighest)},
    {decimalSense(DecimalClass::kInvalid), decimalSense(DecimalClass::kInvalid)},
};

// A decimal's class rank and the digits taken of it. One with higher digits counts as the largest
// of its sign, for it lies beyond all that have none. No branch depends on the value.
inline bool decimalDigits(const DigitSource& source, const Byte* record, std::uint64_t& digits) {
    const Byte* const field = record + source.fieldOffset;
    const DecimalMagnitude all = decimalMagnitude(field);
    const Byte classByte = std::min(loadOnce<Byte>(field), kDecimalClassMax);
    const DecimalSense& sense = kDecimalSenses[classByte][all.isZero() ? 1 : 0];
    const std::uint64_t beyond = (all.high & source.decimalsAbove) != 0 ? kDecimalMagnitude : 0;
    const std::uint64_t magnitude = loadAs<std::uint64_t>(record + source.offset) >> 8 | beyond;
    digits = sense.rank | ((magnitude ^ sense.turn) & sense.used);
    return sense.isValid & ((digitsAboveMax(all.low) | digitsAboveMax(all.high)) == 0);
}

template <LeadingKind kind>
inline double leadingFloat(const Byte* field) {
    if constexpr (kind == LeadingKind::kSingle) return double{loadAs<float>(field)};
    return loadAs<double>(field);
}

// The digits of a record's value, in ascending sense. False when the value has none: `digits` is
// any number then.
template <LeadingKind kind>
inline bool ascendingDigits(const DigitSource& source, const Byte* record, std::uint64_t& digits) {
    const Byte* const bytes = record + source.offset;
    if constexpr (kind == LeadingKind::kInteger2) {
        digits = static_cast<std::uint64_t>(loadAs<std::int16_t>(bytes)) ^ kSignBit;
    } else if constexpr (kind == LeadingKind::kInteger4) {
        digits = static_cast<std::uint64_t>(loadAs<std::int32_t>(bytes)) ^ kSignBit;
    } else if constexpr (kind == LeadingKind::kInteger8) {
        digits = loadAs<std::uint64_t>(bytes) ^ kSignBit;
    } else if constexpr (kind == LeadingKind::kBytes) {
        digits = digitsOfBytes(bytes) & source.usedBytes;
    } else if constexpr (kind == LeadingKind::kString) {
        const std::int32_t length = loadOnce<std::int16_t>(record + source.fieldOffset);
        const std::int32_t content = std::min(length, source.contentBytes) - source.skippedBytes;
        digits = digitsOfBytes(bytes) & leadingBytes(content);
        return (length <= source.fieldLength) & (content >= 0);
    } else if constexpr (kind == LeadingKind::kDecimal) {
        return decimalDigits(source, record, digits);
    } else if constexpr (isFloatKind(kind)) {
        const double value = leadingFloat<kind>(bytes);
        digits = digitsOfDouble(value);
        return std::isfinite(value);
    } else {
        return false;
    }
    return true;
}

}  // namespace tvsort
