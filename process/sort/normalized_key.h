// The sort keys of a record as one string of bits whose plain order is the records' order (M. W.
// Blasgen, R. G. Casey, K. P. Eswaran, An encoding method for multifield sorting and indexing, CACM
// 20/11, 1977). It is never built: it is read by words of 64 bits, from where they lie in the
// record. A key is a row of segments, each of one or more words, left-aligned, most significant
// first:
//
//     null mark    1 bit, where the request has indicators; the words of a null are zero
//     integer      2, 4 or 8 bytes, the sign bit turned
//     bytes        8 bytes a word, as they are
//     string       its zero-filled content as bytes, then its length as an integer without sign
//     decimal      2 words: the class's rank, the number of digits, and the digits from the highest
//                  one on, so that leading zeros take no room:
//
//                      bits 60 to 63  rank   56 to 59  count   0 to 55  digits 1 to 7
//                      bits 0 to 63   digits 8 to 15
//
//     recordFlag   1 byte, last, in the set-operation modes
//
// All bits of descending keys are turned, and in a negative decimal those of count and digits.

#pragma once

#include <bit>
#include <cstdint>

#include "process/keys/decimal_value.h"
#include "process/keys/null_indicator.h"
#include "protocol/messages.h"

namespace tvsort {

struct SortJob;

enum class WordKind : std::uint8_t { kBytes, kInteger, kDecimalHigh, kDecimalLow, kNullMark };

// One word of the key, and how to read it from a record.
struct KeyWord {
    WordKind kind;
    bool nullable;
    std::uint8_t shift;        // kInteger: to the left
    Byte digitTurn;            // decimals: what turns a digit of a negative one
    std::uint32_t offset;      // bytes from the record's start
    std::uint32_t nullOffset;  // of the indicator, where there is one
    std::uint64_t turn;        // bits to be turned
    std::uint64_t bits;        // bits that belong to the key; the others read as anything
};

struct KeySegment {
    KeyWord first;  // with the bits of a word that is not the last one
    std::uint32_t words;
    std::uint64_t lastBits;  // of the last word
};

inline constexpr std::uint32_t kSegmentsMax = 3 * kKeysMax + 1;

struct NormalizedKey {
    std::uint32_t segmentCount;
    KeySegment segments[kSegmentsMax];
};

// A place in the key, for what goes on there.
struct KeyPlace {
    std::uint32_t segment;
    std::uint32_t word;
    std::uint64_t openBits;  // of that word; the higher ones have been looked at
};

inline constexpr KeyPlace kKeyStart = {0, 0, ~std::uint64_t{0}};

// Describes the key of the request. Needs keys that the distribution sort knows.
void describeKey(const SortJob& job, NormalizedKey& key);

// Whether every decimal has a place in the order: none has an unknown class, and under ascending
// keys none is invalid. A digit above 99 under a descending key has no code to be reported with; it
// is ordered as the number that it is, and `key` takes note of it. Reads the decimals of all
// records.
bool decimalsHavePlaces(const SortJob& job, NormalizedKey& key);

inline KeyWord wordAt(const NormalizedKey& key, std::uint32_t segment, std::uint32_t word) {
    const KeySegment& found = key.segments[segment];
    KeyWord result = found.first;
    if (word + 1 == found.words) result.bits = found.lastBits;
    if (result.kind == WordKind::kBytes) {
        result.offset += 8 * word;
    } else if (result.kind == WordKind::kDecimalHigh && word == 1) {
        result.kind = WordKind::kDecimalLow;
    }
    return result;
}

// A decimal's word, before direction. Its class is one that decimalsHavePlaces lets pass, unless
// the record has changed since.
inline std::uint64_t readDecimal(const Byte* value, Byte digitTurn, bool isHigh) {
    constexpr int kRankShift = 60;
    constexpr int kCountShift = 56;
    constexpr std::uint64_t kCountBits = std::uint64_t{0xf} << kCountShift;
    constexpr std::uint64_t kDigitBits = (std::uint64_t{1} << kCountShift) - 1;
    constexpr std::uint64_t kEachByte = 0x0101010101010101;

    const DecimalMagnitude magnitude = decimalMagnitude(value);
    auto valueClass = static_cast<DecimalClass>(loadOnce<Byte>(value));
    const bool isNumber = !magnitude.isZero() && (valueClass == DecimalClass::kNegative ||
                                                  valueClass == DecimalClass::kPositive);
    if (!isNumber) {
        if (magnitude.isZero() && valueClass < DecimalClass::kLowest)
            valueClass = DecimalClass::kZero;
        return isHigh ? std::uint64_t{decimalClassRank(valueClass)} << kRankShift : 0;
    }
    // The digits as one number of 128 bits, moved up to its first digit that is not 0.
    std::uint64_t high = magnitude.high;
    std::uint64_t low = magnitude.low;
    std::uint64_t count = kDecimalDigitCount;
    if (high == 0) {
        high = low;
        low = 0;
        count -= 8;
    }
    const int zeroBits = std::countl_zero(high) & ~7;
    if (zeroBits > 0) {
        high = high << zeroBits | low >> (64 - zeroBits);
        low <<= zeroBits;
        count -= static_cast<std::uint64_t>(zeroBits / 8);
    }
    // Without a branch: signs are as random as the values.
    const std::uint64_t negative = 0 - std::uint64_t{valueClass == DecimalClass::kNegative};
    const std::uint64_t turn = kEachByte * digitTurn & negative;
    if (!isHigh) return (high << kCountShift | low >> 8) ^ turn;
    constexpr std::uint64_t kPositiveRank = std::uint64_t{decimalClassRank(DecimalClass::kPositive)}
                                            << kRankShift;
    constexpr std::uint64_t kNegativeRank = std::uint64_t{decimalClassRank(DecimalClass::kNegative)}
                                            << kRankShift;
    const std::uint64_t rank = kPositiveRank ^ ((kPositiveRank ^ kNegativeRank) & negative);
    return rank |
           ((count << kCountShift ^ (kCountBits & negative)) | ((high >> 8 ^ turn) & kDigitBits));
}

// The word of a record. May read up to seven bytes behind the record's end.
inline std::uint64_t readWord(const KeyWord& word, const Byte* record) {
    const Byte* const field = record + word.offset;
    if (word.nullable && record[word.nullOffset] == kNullIndicator) return 0;
    switch (word.kind) {
        case WordKind::kBytes:
            return __builtin_bswap64(loadAs<std::uint64_t>(field)) ^ word.turn;
        case WordKind::kInteger:
            return loadAs<std::uint64_t>(field) << word.shift ^ word.turn;
        case WordKind::kDecimalHigh:
            return readDecimal(field, word.digitTurn, true) ^ word.turn;
        case WordKind::kDecimalLow:
            return readDecimal(field, word.digitTurn, false) ^ word.turn;
        case WordKind::kNullMark:
            break;
    }
    return (*field == kNullIndicator ? ~std::uint64_t{0} : 0) ^ word.turn;
}

// Below 0, 0 or above 0: how the key of `left` from `place` on stands to that of `right`.
int compareKeys(const NormalizedKey& key, const KeyPlace& place, const Byte* left,
                const Byte* right);

}  // namespace tvsort
