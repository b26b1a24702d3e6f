#include "process/sort/pivot_judge.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace tvsort {

namespace {

bool areAlike(const KeyWord& word, const Byte* const* records, int count) {
    std::uint64_t unlike = 0;
    for (int i = 1; i < count; ++i)
        unlike |= readWord(word, records[i]) ^ readWord(word, records[0]);
    return (unlike & word.bits) == 0;
}

// Takes the pivot's word and what may count as equal to it.
void setBounds(PivotJudge& judge, const Byte* pivot) {
    std::uint64_t tolerance = isTolerantFloat(judge.word) ? kAlikeFloatsMax : 0;
    if (judge.word.kind == WordKind::kSingle) tolerance <<= 32;
    const std::uint64_t word = readWord(judge.word, pivot) & judge.word.bits;
    judge.low = word - std::min(word, tolerance);
    judge.span = word + std::min(~word, tolerance) - judge.low;
}

bool isNumber(const Byte* decimal) {
    const DecimalClass found = decimalClass(decimal);
    return found == DecimalClass::kNegative || found == DecimalClass::kPositive;
}

// Requires of all records `bytes` bytes of the pivot. False when there is no room.
bool addAlike(PivotJudge& judge, const Byte* pivot, std::uint32_t offset, std::int32_t bytes) {
    for (; bytes > 0; bytes -= 8, offset += 8) {
        if (judge.alikeCount == kAlikeWordsMax) return false;
        const std::uint64_t mask = __builtin_bswap64(leadingBytes(bytes));
        const std::uint64_t value = loadAs<std::uint64_t>(pivot + offset) & mask;
        judge.alikeWords[judge.alikeCount++] = {offset, mask, value};
    }
    return true;
}

// The same for a word of a string's content: a record that has its bytes has the word only if its
// content does not end before. Where the pivot's does, both must end alike.
bool addAlikeContent(PivotJudge& judge, const Byte* pivot, const KeyWord& word) {
    constexpr std::int32_t kWordBytes = 8;
    const std::int32_t left = bytesLeft(word, pivot);
    if (left < kWordBytes) {
        return addAlike(judge, pivot, word.offset, left) &&
               addAlike(judge, pivot, word.lengthOffset, kLengthPrefixBytes);
    }
    judge.lengthOffset = word.lengthOffset;
    judge.lengthMin = word.skippedBytes + kWordBytes;
    return addAlike(judge, pivot, word.offset, kWordBytes);
}

// Goes on behind a word in which the sample is alike. A record that has the bytes of the pivot's
// word has its word.
bool passWord(PivotJudge& judge, const KeyWord& word, const Byte* pivot) {
    if (word.nullable && pivot[word.nullOffset] == kNullIndicator) return true;
    const std::int32_t bytes = std::popcount(word.bits) / 8;
    switch (word.kind) {
        case WordKind::kNullMark:
            return addAlike(judge, pivot, word.offset, 1);
        case WordKind::kDecimalHigh:
            return addAlike(judge, pivot, word.offset, 1) &&
                   addAlike(judge, pivot, word.offset + kDecimalBytes - 7, 7);
        case WordKind::kDecimalLow:
            return addAlike(judge, pivot, word.offset + 1, 8);
        case WordKind::kUnitCount:
            return addAlike(judge, pivot, word.lengthOffset, kLengthPrefixBytes);
        default:
            return word.bounded ? addAlikeContent(judge, pivot, word)
                                : addAlike(judge, pivot, word.offset, bytes);
    }
}

}  // namespace

void appointJudge(const NormalizedKey& key, const Byte* const* sample, int count,
                  PivotJudge& judge) {
    const Byte* const pivot = sample[0];
    judge.key = &key;
    judge.alikeCount = 0;
    judge.lengthOffset = 0;
    judge.lengthMin = std::numeric_limits<std::int32_t>::min();
    judge.isAble = false;
    if (doubtsAbout(key, pivot) != kNoDoubts) return;
    // No word reaches the key whose values are checked for uniqueness.
    for (std::uint32_t s = 0; s < key.uniqueSegment; ++s) {
        const std::uint32_t words = key.segments[s].words;
        for (std::uint32_t w = 0; w < words; ++w) {
            judge.word = wordAt(key, s, w);
            // Nulls are few, or all: a pivot that is none is judged by what comes behind.
            const bool isMark = judge.word.kind == WordKind::kNullMark &&
                                pivot[judge.word.offset] != kNullIndicator;
            if (isMark || areAlike(judge.word, sample, count)) {
                if (!passWord(judge, judge.word, pivot)) return;
                continue;
            }
            if (judge.word.kind == WordKind::kDecimalLow && !isNumber(pivot + judge.word.offset))
                return;
            judge.checkCount = key.segments[s].checkCount;
            setBounds(judge, pivot);
            const bool isLast = s + 1 == key.segmentCount && w + 1 == words;
            judge.next = w + 1 < words ? KeyPlace{s, w + 1, kKeyStart.openBits}
                                       : KeyPlace{s + 1, 0, kKeyStart.openBits};
            judge.isComplete = isLast && isFree(key) && judge.span == 0;
            judge.isAble = true;
            return;
        }
    }
}

Verdict judgeRecord(const PivotJudge& judge, const Byte* record) {
    return withJudgedWord(judge, [&](const auto& reader) {
        const std::uint64_t word = reader.read(record);
        if (reader.isSure(record) == 0 || word - judge.low <= judge.span) return Verdict::kOpen;
        return word < judge.low ? Verdict::kBefore : Verdict::kBehind;
    });
}

}  // namespace tvsort
