// Where records stand to the pivot of a partition, told by one word of the key instead of by the
// comparator, and without a branch that could be mispredicted.
//
// The word is the first one in which a few records of the range differ. The fields that those
// before it come from must be the pivot's, byte for byte. A record whose word is below the pivot's
// stands before it, one whose word is above behind it. About the others, and those about which
// there are doubts, the comparator is asked: which answers are given and which codes are raised is
// the same with a judge and without. Ascending floats near the pivot's may count as equal, so all
// that lie within the tolerance are left to the comparator, too.

#pragma once

#include <cstdint>

#include "process/keys/normalized_key.h"

namespace tvsort {

// A word is not used if it takes more than so many eight bytes to tell that a record is the pivot's
// like before it.
inline constexpr int kAlikeWordsMax = 8;

// Up to eight bytes of a record, and what they are in the pivot.
struct AlikeWord {
    std::uint32_t offset;  // bytes from the record's start
    std::uint64_t mask;
    std::uint64_t value;
};

struct PivotJudge {
    const NormalizedKey* key;
    bool isAble;         // otherwise it judges nothing
    bool endsKey;        // a sure record with the pivot's word equals it in every key
    std::uint64_t low;   // the pivot's word, less the tolerance
    std::uint64_t span;  // from there to the word and the tolerance
    KeyWord word;
    KeyPlace next;             // where the key goes on behind it
    std::uint32_t checkCount;  // checks of the values up to that word
    int alikeCount;
    AlikeWord alikeWords[kAlikeWordsMax];
    // Of a string whose beginning is alike: where its length stands, and how long it must be for
    // that beginning.
    std::uint32_t lengthOffset;
    std::int32_t lengthMin;

    bool isAlike(const Byte* record) const {
        std::uint64_t unlike = loadI16(record + lengthOffset) < lengthMin ? 1 : 0;
        for (int i = 0; i < alikeCount; ++i) {
            const AlikeWord& alike = alikeWords[i];
            unlike |= (loadAs<std::uint64_t>(record + alike.offset) & alike.mask) ^ alike.value;
        }
        return unlike == 0;
    }
};

// Whether records without doubts may be compared in any order because no code can come of it.
inline bool isFree(const NormalizedKey& key) {
    return key.isWhole && !key.isUnique();
}

// Fits a judge to the pivot, which is the first record of `sample`, and `count` - 1 records of its
// range.
void appointJudge(const NormalizedKey& key, const Byte* const* sample, int count,
                  PivotJudge& judge);

// Unlike floats that are no further apart than this, in units of their last place, may count as
// equal: the tolerance is 2^5 units of the larger value, or 2^6 of the smaller one's where a power
// of two lies between.
inline constexpr std::uint64_t kAlikeFloatsMax = 65;

inline bool isTolerantFloat(const KeyWord& word) {
    return isFloat(word.kind) && word.ascending;
}

// Reads a judge's word. A record is sure when it is the pivot's like before and there is no doubt
// about a value up to this one: the comparator would get here without a word. What is alike has
// been checked with the pivot. A null's word reads as anything: it is not alike in its mark.
template <WordKind kind, bool bounded>
struct JudgedWord {
    const PivotJudge& judge;
    KeyWord word;
    bool first;

    explicit JudgedWord(const PivotJudge& from)
        : judge(from), word(from.word), first(from.alikeCount == 0) {}
    bool isSure(const Byte* record) const {
        bool sure = first || judge.isAlike(record);
        if constexpr (bounded) sure &= loadI16(record + word.lengthOffset) <= word.lengthMax;
        if constexpr (kind == WordKind::kDecimalHigh) sure &= isDecimal(record + word.offset);
        // The high word of a zero is another.
        if constexpr (kind == WordKind::kDecimalLow)
            sure &=
                isDecimal(record + word.offset) && !decimalMagnitude(record + word.offset).isZero();
        return sure;
    }
    std::uint64_t read(const Byte* record) const {
        return readKnownWord(word, kind, bounded, record) & word.bits;
    }
};

// Reads any.
struct AnyJudgedWord {
    const PivotJudge& judge;

    bool isSure(const Byte* record) const {
        return judge.isAlike(record) &&
               findDoubts(*judge.key, judge.checkCount, record) == kNoDoubts;
    }
    std::uint64_t read(const Byte* record) const {
        return readWord(judge.word, record) & judge.word.bits;
    }
};

// Calls `use` with a reader of the judge's word: one switch for a whole loop.
template <typename Use>
auto withJudgedWord(const PivotJudge& judge, Use use) {
    const KeyWord& word = judge.word;
    switch (word.kind) {
        case WordKind::kBytes:
            if (word.bounded) return use(JudgedWord<WordKind::kBytes, true>(judge));
            return use(JudgedWord<WordKind::kBytes, false>(judge));
        case WordKind::kInteger:
            return use(JudgedWord<WordKind::kInteger, false>(judge));
        case WordKind::kDecimalHigh:
            return use(JudgedWord<WordKind::kDecimalHigh, false>(judge));
        case WordKind::kDecimalLow:
            return use(JudgedWord<WordKind::kDecimalLow, false>(judge));
        case WordKind::kSingle:
            // Of descending floats some have no place.
            if (word.ascending) return use(JudgedWord<WordKind::kSingle, false>(judge));
            break;
        case WordKind::kDouble:
            if (word.ascending) return use(JudgedWord<WordKind::kDouble, false>(judge));
            break;
        default:
            break;
    }
    return use(AnyJudgedWord{judge});
}

}  // namespace tvsort
