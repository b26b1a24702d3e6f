// The sort keys of a record as one string of bits whose plain order is the records' order (M. W.
// Blasgen, R. G. Casey, K. P. Eswaran, An encoding method for multifield sorting and indexing, CACM
// 20/11, 1977). It is never built: it is read by words of 64 bits, from where they lie in the
// record. A key is a row of segments, each of one or more words, left-aligned, most significant
// first:
//
//     null mark    1 bit, where the request has indicators; the words of a null are zero
//     integer      2, 4 or 8 bytes, the sign bit turned
//     float        4 or 8 bytes, its bits turned so that they order as the numbers do; the zeros
//                  are one, and under ascending keys all that is not finite is the highest value
//     bytes        8 bytes a word, as they are or by their weights
//     units        4 units a word, as they are or by their weights
//     string       its content as bytes or units, zeros behind its end, then its length
//     decimal      2 words: the class's rank and the seven highest digits; the other eight
//     recordFlag   1 byte, last, in the set-operation modes
//
// All bits of descending keys are turned, and in a negative decimal those of the digits.
//
// Not every value has a place in that order. About some the comparator has something to say: a
// stored length above the field's, a decimal that is none, a NaN under a descending key.
// `doubtsAbout` finds these; of two records without doubts the words tell the order, but for floats
// that are unlike and count as equal all the same. A geometry has no words at all: the key ends
// before it.

#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "process/collation/collation_table.h"
#include "process/keys/decimal_value.h"
#include "process/keys/null_indicator.h"
#include "protocol/messages.h"

namespace tvsort {

struct SortJob;

enum class WordKind : std::uint8_t {
    kBytes,
    kInteger,
    kLength,  // an integer of 2 bytes, which is checked
    kSingle,
    kDouble,
    kWeighted,
    kUnits,
    kCollated,
    kUnitCount,
    kDecimalHigh,
    kDecimalLow,
    kNullMark,
};

constexpr bool isFloat(WordKind kind) {
    return kind == WordKind::kSingle || kind == WordKind::kDouble;
}

// One word of the key, and how to read it from a record.
struct KeyWord {
    WordKind kind;
    bool nullable;
    bool bounded;  // content of a string: bytes behind its end count as zeros
    bool ascending;
    std::uint8_t shift;          // integers: to the left
    Byte digitTurn;              // decimals: what turns a digit of a negative one
    std::uint32_t offset;        // bytes from the record's start
    std::uint32_t nullOffset;    // of the indicator, where there is one
    std::uint32_t lengthOffset;  // of the stored length, where there is one
    std::int32_t skippedBytes;   // of the content, before this word
    std::int32_t contentBytes;   // strings: as many as the record has room for
    std::int32_t lengthMax;      // strings: a stored length above it is an error
    const Byte* weights;         // kWeighted: 256
    std::uint64_t turn;          // bits to be turned
    std::uint64_t bits;          // bits that belong to the key; the others read as anything
};

struct KeySegment {
    KeyWord first;  // with the bits of a word that is not the last one
    std::uint32_t words;
    std::uint64_t lastBits;    // of the last word
    std::uint32_t checkCount;  // checks of the values up to this one
};

inline constexpr std::uint32_t kSegmentsMax = 3 * kKeysMax + 1;

// A value that may have no place in the order.
enum class CheckKind : std::uint8_t { kLength, kDecimal, kNumber, kDouble };

struct ValueCheck {
    CheckKind kind;
    bool nullable;
    bool ascending;
    std::uint16_t lengthMax;
    std::uint32_t offset;
    std::uint32_t nullOffset;
};

struct NormalizedKey {
    std::uint32_t segmentCount;
    bool isWhole;                 // no geometry ends it early
    std::uint32_t uniqueSegment;  // of the last key in sort modes 8 and 9, or segmentCount
    bool hasTolerantFloats;       // under ascending keys
    KeySegment segments[kSegmentsMax];
    std::uint32_t admitted;  // doubts that are none
    std::uint32_t checkCount;
    ValueCheck checks[kKeysMax];

    // Whether the last key is checked for uniqueness.
    bool isUnique() const { return uniqueSegment < segmentCount; }
};

// A place in the key, for what goes on there.
struct KeyPlace {
    std::uint32_t segment;
    std::uint32_t word;
    std::uint64_t openBits;  // of that word; the higher ones have been looked at
};

inline constexpr KeyPlace kKeyStart = {0, 0, ~std::uint64_t{0}};

// Describes the key of the request, whose rules are resolved.
void describeKey(const SortJob& job, NormalizedKey& key);

// What there is to say about the values of a record; they add up.
using Doubts = std::uint32_t;
inline constexpr Doubts kNoDoubts = 0;
inline constexpr Doubts kNotOrdered = 1;   // a stored length too long, a NaN under a descending key
inline constexpr Doubts kNoDecimal = 2;    // unknown class, or invalid under an ascending key
inline constexpr Doubts kWideDecimal = 4;  // invalid, but of a known class, under a descending key

// By the first `checkCount` checks.
Doubts findDoubts(const NormalizedKey& key, std::uint32_t checkCount, const Byte* record);

inline Doubts doubtsAbout(const NormalizedKey& key, const Byte* record) {
    return key.checkCount == 0 ? kNoDoubts : findDoubts(key, key.checkCount, record);
}

// Lets wide decimals have a place: as the numbers that their digits make, above 99 too.
void admitWideDecimals(NormalizedKey& key);

inline KeyWord wordAt(const NormalizedKey& key, std::uint32_t segment, std::uint32_t word) {
    const KeySegment& found = key.segments[segment];
    KeyWord result = found.first;
    if (word + 1 == found.words) result.bits = found.lastBits;
    if (result.kind == WordKind::kDecimalHigh) {
        if (word == 1) result.kind = WordKind::kDecimalLow;
        return result;
    }
    result.offset += 8 * word;
    result.skippedBytes += static_cast<std::int32_t>(8 * word);
    return result;
}

// A decimal's word, before direction.
inline std::uint64_t readDecimal(const Byte* value, Byte digitTurn, bool isHigh) {
    constexpr int kRankShift = 56;
    constexpr std::uint64_t kEachByte = 0x0101010101010101;
    const DecimalMagnitude magnitude = decimalMagnitude(value);
    auto valueClass = static_cast<DecimalClass>(loadOnce<Byte>(value));
    if (magnitude.isZero() && valueClass < DecimalClass::kLowest) valueClass = DecimalClass::kZero;
    const bool isNegative = valueClass == DecimalClass::kNegative;
    const bool isNumber = isNegative || valueClass == DecimalClass::kPositive;
    const std::uint64_t used = 0 - std::uint64_t{isNumber};
    const std::uint64_t turn = kEachByte * digitTurn & (0 - std::uint64_t{isNegative});
    if (!isHigh) return ((magnitude.high << kRankShift | magnitude.low >> 8) ^ turn) & used;
    return std::uint64_t{decimalClassRank(valueClass)} << kRankShift |
           ((magnitude.high ^ turn) >> 8 & used);
}

// The words of values that need a table, before direction; `bytes` of the content are there, at
// most 8.
std::uint64_t readWeighted(const Byte* weights, const Byte* content, std::int32_t bytes);
std::uint64_t readCollated(const Byte* content, std::int32_t bytes);

inline constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

// The bits that the first `count` bytes take of a word. By a table: lengths are random, and a shift
// by 64 is none.
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
    return kLeadingBytes[std::clamp(count, 0, 8)];
}

// Exchanges the bytes of each unit.
inline std::uint64_t swapInUnits(std::uint64_t units) {
    constexpr std::uint64_t kLowBytes = 0x00ff00ff00ff00ff;
    return (units & kLowBytes) << 8 | (units >> 8 & kLowBytes);
}

// A float's bits in the order of the numbers. The bits of a single stand in the upper half.
inline std::uint64_t orderedFloat(std::uint64_t bits, std::uint64_t exponent, bool ascending) {
    const std::uint64_t magnitude = bits & ~kSignBit;
    if (magnitude == 0) return kSignBit;  // both zeros
    if (ascending && magnitude >= exponent) return ~std::uint64_t{0};
    const auto sign = static_cast<std::uint64_t>(static_cast<std::int64_t>(bits) >> 63);
    return bits ^ (sign | kSignBit);
}

// Bytes of a string's content from `word` on.
inline std::int32_t bytesLeft(const KeyWord& word, const Byte* record) {
    const std::int32_t length = loadOnce<std::int16_t>(record + word.lengthOffset);
    return std::clamp(length, 0, word.contentBytes) - word.skippedBytes;
}

// One program of the tests counts the words that are read.
#ifdef TVSORT_COUNT_WORDS
extern std::int64_t wordsRead;
inline void countWord() {
    wordsRead += 1;
}
#else
inline void countWord() {}
#endif

// The word of a record. May read up to seven bytes behind the record's end: each word begins with a
// byte of a field, and all fields with words lie in the record. In line by force, so that a loop
// that knows the kind of its word keeps nothing of the others.
[[gnu::always_inline]] inline std::uint64_t readKnownWord(const KeyWord& word, WordKind kind,
                                                          bool bounded, const Byte* record) {
    constexpr std::uint64_t kSingleExponent = std::uint64_t{0x7f800000} << 32;
    constexpr std::uint64_t kDoubleExponent = std::uint64_t{0x7ff} << 52;
    countWord();
    const Byte* const field = record + word.offset;
    const std::int32_t bytes = bounded ? bytesLeft(word, record) : 8;
    switch (kind) {
        case WordKind::kBytes:
            return (__builtin_bswap64(loadAs<std::uint64_t>(field)) & leadingBytes(bytes)) ^
                   word.turn;
        case WordKind::kInteger:
        case WordKind::kLength:
            return loadAs<std::uint64_t>(field) << word.shift ^ word.turn;
        case WordKind::kSingle:
            return orderedFloat(std::uint64_t{loadAs<std::uint32_t>(field)} << 32, kSingleExponent,
                                word.ascending) ^
                   word.turn;
        case WordKind::kDouble:
            return orderedFloat(loadAs<std::uint64_t>(field), kDoubleExponent, word.ascending) ^
                   word.turn;
        case WordKind::kWeighted:
            return readWeighted(word.weights, field, bytes) ^ word.turn;
        case WordKind::kUnits:
            return (swapInUnits(__builtin_bswap64(loadAs<std::uint64_t>(field))) &
                    leadingBytes(bytes & ~1)) ^
                   word.turn;
        case WordKind::kCollated:
            return readCollated(field, bytes) ^ word.turn;
        case WordKind::kUnitCount:
            return static_cast<std::uint64_t>(bytes / 2) << 48 ^ word.turn;
        case WordKind::kDecimalHigh:
            return readDecimal(field, word.digitTurn, true) ^ word.turn;
        case WordKind::kDecimalLow:
            return readDecimal(field, word.digitTurn, false) ^ word.turn;
        case WordKind::kNullMark:
            break;
    }
    return (*field == kNullIndicator ? ~std::uint64_t{0} : 0) ^ word.turn;
}

// The same for any word; that of a null is zeros.
std::uint64_t readWord(const KeyWord& word, const Byte* record);

// How the key of one record stands to that of another: below 0, 0 or above 0, and in which segment
// that shows.
struct KeyOrder {
    int order;
    std::uint32_t segment;
};

// Compares the keys from `place` on.
KeyOrder compareKeys(const NormalizedKey& key, const KeyPlace& place, const Byte* left,
                     const Byte* right);

}  // namespace tvsort
