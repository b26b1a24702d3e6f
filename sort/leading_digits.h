// A shortcut for the comparisons of the quicksort: the first eight bytes of a record's first key,
// as one number whose order is the key's, direction included.
//
// Most comparisons are decided by the first few bytes of the first key, and in a partition one side
// of all of them is the same pivot. So the pivot is turned once into a window of digits, and a
// record is compared with it by one load:
//
//     digits < low     the record comes before the pivot
//     digits > high    the pivot comes before the record
//     otherwise, or without digits: recordPrecedes decides, as it always may
//
// The window is one number wide for most types. For floats under the tolerant rule it covers all
// that may count as equal, with room to spare. A record has no digits where the comparator would
// have something to say: a null, a stored length above the field's, an invalid decimal, a value
// that is not finite. Which answers are given, which codes are raised and what becomes of
// `compareState` is therefore the same with digits and without.
//
// What it buys: see the rows "leading digits" of bench/.

#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "keys/decimal_value.h"
#include "keys/null_indicator.h"
#include "keys/record_precedes.h"
#include "keys/value_compare.h"
#include "service/sort_job.h"

namespace tvsort {

// What the digits are made of; kNone: there are none, every comparison is the comparator's.
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

inline LeadingKind leadingKind(const SortJob& job) {
    if (job.keyCount == 0) return LeadingKind::kNone;
    switch (job.keyRules[0].comparison) {
        case Comparison::kInteger2:
            return LeadingKind::kInteger2;
        case Comparison::kInteger4:
            return LeadingKind::kInteger4;
        case Comparison::kInteger8:
            return LeadingKind::kInteger8;
        case Comparison::kBytes:
            return LeadingKind::kBytes;
        case Comparison::kString:
            return LeadingKind::kString;
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

// Calls `function.operator()<kind>(...)` for the job's kind: one switch for a whole loop.
template <typename Function, typename... Arguments>
auto withLeadingKind(LeadingKind kind, Function function, Arguments&&... arguments) {
    switch (kind) {
        case LeadingKind::kInteger2:
            return function.template operator()<LeadingKind::kInteger2>(arguments...);
        case LeadingKind::kInteger4:
            return function.template operator()<LeadingKind::kInteger4>(arguments...);
        case LeadingKind::kInteger8:
            return function.template operator()<LeadingKind::kInteger8>(arguments...);
        case LeadingKind::kBytes:
            return function.template operator()<LeadingKind::kBytes>(arguments...);
        case LeadingKind::kString:
            return function.template operator()<LeadingKind::kString>(arguments...);
        case LeadingKind::kSingle:
            return function.template operator()<LeadingKind::kSingle>(arguments...);
        case LeadingKind::kDouble:
            return function.template operator()<LeadingKind::kDouble>(arguments...);
        case LeadingKind::kDecimal:
            return function.template operator()<LeadingKind::kDecimal>(arguments...);
        case LeadingKind::kNone:
            break;
    }
    return function.template operator()<LeadingKind::kNone>(arguments...);
}

constexpr bool isFloatKind(LeadingKind kind) {
    return kind == LeadingKind::kSingle || kind == LeadingKind::kDouble;
}

inline constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

// The first bytes of `bytes`, at most eight, most significant first. Loads eight; behind a record's
// end the slot goes on.
inline std::uint64_t digitsOfBytes(const Byte* bytes, std::int32_t count) {
    if (count <= 0) return 0;
    const std::uint64_t digits = __builtin_bswap64(loadAs<std::uint64_t>(bytes));
    return count >= 8 ? digits : digits & ~(~std::uint64_t{0} >> 8 * count);
}

// A finite number; both zeros have the same digits.
inline std::uint64_t digitsOfDouble(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value + 0.0);
    return (bits & kSignBit) != 0 ? ~bits : bits | kSignBit;
}

// A valid decimal: its class rank, how many digits it has, and the seven highest of them, so that
// leading zeros take no room.
inline std::uint64_t digitsOfDecimal(const Byte* field, DecimalClass valueClass) {
    constexpr std::uint64_t kRank[] = {2, 1, 3, 0, 4};
    constexpr int kRankShift = 60;
    constexpr int kCountShift = 56;
    const std::uint64_t rank = kRank[static_cast<int>(valueClass)] << kRankShift;
    if (valueClass != DecimalClass::kPositive && valueClass != DecimalClass::kNegative) return rank;

    const std::uint64_t high = loadAs<std::uint64_t>(field + 8);
    const std::uint64_t low = loadAs<std::uint64_t>(field) & ~std::uint64_t{0xff};
    const int zeroBytes = std::countl_zero(high != 0 ? high : low) / 8;
    const int zeroBits = 8 * zeroBytes;
    const std::uint64_t count = static_cast<std::uint64_t>((high != 0 ? 15 : 7) - zeroBytes);
    std::uint64_t first = (high != 0 ? high : low) << zeroBits;
    if (high != 0 && zeroBytes > 0) first |= low >> (64 - zeroBits);
    const std::uint64_t magnitude = count << kCountShift | first >> 8;
    constexpr std::uint64_t kMagnitudeBits = (std::uint64_t{1} << kRankShift) - 1;
    return rank | (valueClass == DecimalClass::kPositive ? magnitude : magnitude ^ kMagnitudeBits);
}

template <LeadingKind kind>
double leadingFloat(const Byte* field) {
    if constexpr (kind == LeadingKind::kSingle) return double{loadAs<float>(field)};
    return loadAs<double>(field);
}

// The digits of a record, in ascending sense. False when it has none.
template <LeadingKind kind>
bool ascendingDigits(const KeyRule& rule, const Byte* record, std::uint64_t& digits) {
    const Byte* const field = record + rule.fieldOffset;
    if constexpr (kind == LeadingKind::kInteger2) {
        digits = static_cast<std::uint64_t>(loadAs<std::int16_t>(field)) ^ kSignBit;
    } else if constexpr (kind == LeadingKind::kInteger4) {
        digits = static_cast<std::uint64_t>(loadAs<std::int32_t>(field)) ^ kSignBit;
    } else if constexpr (kind == LeadingKind::kInteger8) {
        digits = loadAs<std::uint64_t>(field) ^ kSignBit;
    } else if constexpr (kind == LeadingKind::kBytes) {
        digits = digitsOfBytes(field, rule.fieldLength);
    } else if constexpr (kind == LeadingKind::kString) {
        const std::int32_t length = loadI16(field);
        if (length > std::int32_t{rule.fieldLength}) return false;
        digits = digitsOfBytes(field + kLengthPrefixBytes, std::min(length, rule.contentBytes));
    } else if constexpr (kind == LeadingKind::kDecimal) {
        const DecimalClass valueClass = decimalClass(field);
        if (valueClass == DecimalClass::kInvalid) return false;
        digits = digitsOfDecimal(field, valueClass);
    } else if constexpr (isFloatKind(kind)) {
        const double value = leadingFloat<kind>(field);
        if (!std::isfinite(value)) return false;
        digits = digitsOfDouble(value);
    } else {
        return false;
    }
    return true;
}

// The digits of a record in the key's direction: smaller ones come first. False when it has none.
template <LeadingKind kind>
bool leadingDigits(const SortJob& job, const Byte* record, std::uint64_t& digits) {
    const KeyRule& rule = job.keyRules[0];
    if (kind == LeadingKind::kNone) return false;
    if (job.hasKind4Key != 0 && isNull(record, rule)) return false;
    if (!ascendingDigits<kind>(rule, record, digits)) return false;
    if (!rule.ascending) digits = ~digits;
    return true;
}

// The digits that do not decide a comparison with one record. Empty, low above high, when none do.
struct DigitWindow {
    std::uint64_t low = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t high = 0;
    bool decides = false;
};

// Every float outside the window differs from `value` by the tolerant rule: the window is four
// tolerances wide on each side.
template <LeadingKind kind>
DigitWindow tolerantWindow(double value) {
    constexpr double kTolerance =
        kind == LeadingKind::kSingle ? double{kSingleTolerance} : double{kDoubleTolerance};
    const double margin = std::fabs(value) * kTolerance * 4;
    return {digitsOfDouble(value - margin), digitsOfDouble(value + margin), true};
}

template <LeadingKind kind>
DigitWindow digitWindow(const SortJob& job, const Byte* record) {
    std::uint64_t digits = 0;
    if (!leadingDigits<kind>(job, record, digits)) return {};
    if constexpr (isFloatKind(kind)) {
        const KeyRule& rule = job.keyRules[0];
        if (rule.ascending)
            return tolerantWindow<kind>(leadingFloat<kind>(record + rule.fieldOffset));
    }
    return {digits, digits, true};
}

// Where the digits put a record, against the record whose window it is.
enum class Side : std::int8_t { kBefore = -1, kUndecided = 0, kBehind = 1 };

template <LeadingKind kind>
Side sideOf(const SortJob& job, const Byte* record, const DigitWindow& window) {
    std::uint64_t digits = 0;
    if (!window.decides || !leadingDigits<kind>(job, record, digits)) return Side::kUndecided;
    if (digits < window.low) return Side::kBefore;
    return digits > window.high ? Side::kBehind : Side::kUndecided;
}

}  // namespace tvsort
