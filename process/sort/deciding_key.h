// The key that decides the comparisons with one record, the reference.
//
// A partition compares all records of its range with the pivot. The range's ends and the pivot tell
// which key is likely to decide: the first in which they are not all alike. The records whose
// earlier keys are byte for byte those of the pivot are then told apart from it by the digits of
// the deciding key (sort/leading_digits.h):
//
//     digits below `low`    the record comes before the reference
//     digits above `high`   it comes behind the reference
//     alike                 where the digits hold all that is left of the keys, they are equal
//     anything else         recordPrecedes decides, as it always may
//
// `low` and `high` are the reference's digits for most types. For floats under the tolerant rule
// they enclose all that may count as equal, with room to spare. Records that are unlike the
// reference in an earlier key, nulls and values without digits are left to the comparator: which
// answers are given and which codes are raised is the same with a deciding key and without.
//
// What it buys: see the rows "without a deciding key" of bench/.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"
#include "process/keys/null_indicator.h"
#include "process/sort/leading_digits.h"

namespace tvsort {

// A deciding key that would need more than so many words to tell whether the earlier keys are alike
// is not used.
inline constexpr int kAlikeWordsMax = 8;

// Up to eight bytes of a record, and what they are in the reference.
struct AlikeWord {
    std::uint32_t offset;  // bytes from the record's start
    std::uint64_t mask;
    std::uint64_t value;

    std::uint64_t differences(const Byte* record) const {
        return (loadAs<std::uint64_t>(record + offset) & mask) ^ value;
    }
};

struct DecidingKey {
    DigitSource source;  // of kind kNone: there is no deciding key
    const KeyRule* rule;
    bool isExact;     // floats: only the zeros are alike
    bool isComplete;  // records with the reference's digits equal it in every key
    bool checksNulls;
    std::uint32_t nullOffset;
    std::uint64_t turn;  // turns the digits of descending keys
    std::uint64_t low;
    std::uint64_t high;
    bool goesOn;               // bytes and strings: the reference's value has more digits,
    DigitSource nextSource;    // which come from here
    std::uint64_t nextDigits;  // and are these
    int alikeWordCount;
    AlikeWord alikeWords[kAlikeWordsMax];

    // Whether nothing but the digits needs a look.
    bool isPlain() const { return !checksNulls && alikeWordCount == 0; }
};

// The key that decides between `reference` and records like `first` and `last`.
DecidingKey chooseDecidingKey(const SortJob& job, const Byte* reference, const Byte* first,
                              const Byte* last);

// What may be taken for granted of the comparator, for the keys of a request.
struct FreeComparisons {
    bool ofComparable;  // it raises no code for records with a comparable value of the deciding key
    bool ofAll;         // nor for any other: such comparisons may be made in any order
    bool areOrderly;    // the other keys order records without exception: no floats that may count
                        // as equal or tie with all, no decimals that may be none
};

FreeComparisons freeComparisons(const SortJob& job, const DecidingKey& key);

// Calls `function.operator()<kind, plain>()` for a key.
template <typename Function>
auto withDecidingKey(const DecidingKey& key, Function function) {
    const auto forKind = [&]<LeadingKind kind>() {
        return key.isPlain() ? function.template operator()<kind, true>()
                             : function.template operator()<kind, false>();
    };
    switch (key.source.kind) {
        case LeadingKind::kInteger2:
            return forKind.template operator()<LeadingKind::kInteger2>();
        case LeadingKind::kInteger4:
            return forKind.template operator()<LeadingKind::kInteger4>();
        case LeadingKind::kInteger8:
            return forKind.template operator()<LeadingKind::kInteger8>();
        case LeadingKind::kBytes:
            return forKind.template operator()<LeadingKind::kBytes>();
        case LeadingKind::kString:
            return forKind.template operator()<LeadingKind::kString>();
        case LeadingKind::kSingle:
            return forKind.template operator()<LeadingKind::kSingle>();
        case LeadingKind::kDouble:
            return forKind.template operator()<LeadingKind::kDouble>();
        case LeadingKind::kDecimal:
            return forKind.template operator()<LeadingKind::kDecimal>();
        case LeadingKind::kNone:
            break;
    }
    return function.template operator()<LeadingKind::kNone, false>();
}

// The digits of a record in the key's direction, smaller ones first. False when they say nothing.
template <LeadingKind kind, bool plain>
inline bool decidingDigits(const DecidingKey& key, const Byte* record, std::uint64_t& digits) {
    if constexpr (kind == LeadingKind::kNone) return false;
    bool good = ascendingDigits<kind>(key.source, record, digits);
    digits ^= key.turn;
    if constexpr (!plain) {
        // The first word has a mask of 0 when there is none.
        std::uint64_t differences = key.alikeWords[0].differences(record);
        for (int i = 1; i < key.alikeWordCount; ++i)
            differences |= key.alikeWords[i].differences(record);
        good &= differences == 0;
        if (key.checksNulls) good &= record[key.nullOffset] != kNullIndicator;
    }
    return good;
}

// The digits of all floats that may count as equal to `value`, and of some more: four tolerances on
// each side. Under descending keys values compare exactly, and only the zeros are alike.
struct DigitRange {
    std::uint64_t low;
    std::uint64_t high;
};

template <LeadingKind kind>
inline DigitRange alikeFloats(const DecidingKey& key, double value) {
    constexpr double kTolerance =
        kind == LeadingKind::kSingle ? double{kSingleTolerance} : double{kDoubleTolerance};
    const double margin = key.isExact ? 0 : std::fabs(value) * kTolerance * 4;
    const std::uint64_t below = digitsOfDouble(value == 0 ? -0.0 : value - margin) ^ key.turn;
    const std::uint64_t above = digitsOfDouble(value == 0 ? 0.0 : value + margin) ^ key.turn;
    return {std::min(below, above), std::max(below, above)};
}

// The digits that do not tell a record from one with `digits`.
template <LeadingKind kind>
inline DigitRange alikeDigits(const DecidingKey& key, std::uint64_t digits) {
    if constexpr (!isFloatKind(kind)) return {digits, digits};
    return alikeFloats<kind>(key, doubleOfDigits(digits ^ key.turn));
}

// Where a record stands to the reference. Numbers, 0 or 1, so that loops can count with them
// instead of branching.
struct Verdict {
    std::uint32_t before;
    std::uint32_t behind;
    std::uint32_t open;  // the comparator must say; else neither means equal

    std::uint32_t differs() const { return before | behind; }
};

template <LeadingKind kind, bool plain>
inline Verdict judge(const DecidingKey& key, const Byte* record) {
    std::uint64_t digits = 0;
    const std::uint32_t good{decidingDigits<kind, plain>(key, record, digits)};
    const std::uint32_t before = good & std::uint32_t{digits < key.low};
    const std::uint32_t behind = good & std::uint32_t{digits > key.high};
    const std::uint32_t equal = good & std::uint32_t{key.isComplete};
    return {before, behind, (before | behind | equal) ^ 1U};
}

}  // namespace tvsort
