#include "process/sort/pivot_judge.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace tvsort {

namespace {

std::uint64_t valueOf(const KeyWord& word, const Byte* record) {
    return readWord(word, record) & word.bits;
}

bool areAlike(const KeyWord& word, const Byte* const* records, int count) {
    return std::all_of(records + 1, records + count, [&](const Byte* record) {
        return valueOf(word, record) == valueOf(word, records[0]);
    });
}

// Whether the word is passed by, with a demand to be alike in it. Nulls are few, or all: a pivot
// that is none is judged by what comes behind the mark.
bool isPassed(const KeyWord& word, const Byte* const* sample, int count) {
    const bool isMarkOfNoNull =
        word.kind == WordKind::kNullMark && sample[0][word.offset] != kNullIndicator;
    return isMarkOfNoNull || areAlike(word, sample, count);
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

// Requires of all records the bytes that the pivot's word comes from: a record that has them has
// the word.
bool addWord(PivotJudge& judge, const KeyWord& word, const Byte* pivot) {
    if (word.nullable && pivot[word.nullOffset] == kNullIndicator) return true;
    if (word.kind == WordKind::kNullMark) return addAlike(judge, pivot, word.offset, 1);
    if (word.kind == WordKind::kDecimalLow) return addAlike(judge, pivot, word.offset + 1, 8);
    if (word.kind == WordKind::kDecimalHigh) {
        return addAlike(judge, pivot, word.offset, 1) &&
               addAlike(judge, pivot, word.offset + kDecimalBytes - 7, 7);
    }
    std::int32_t bytes = std::popcount(word.bits) / 8;
    const std::int32_t left = word.bounded ? bytesLeft(word, pivot) : bytes;
    if (word.kind == WordKind::kUnitCount || left < bytes) {
        // Where the pivot's content ends the others must end, too.
        bytes = word.kind == WordKind::kUnitCount ? 0 : left;
        if (!addAlike(judge, pivot, word.lengthOffset, kLengthPrefixBytes)) return false;
    } else if (word.bounded) {
        judge.lengthOffset = word.lengthOffset;
        judge.lengthMin = word.skippedBytes + bytes;
    }
    return addAlike(judge, pivot, word.offset, bytes);
}

// Takes the pivot's word and what may count as equal to it.
void setBounds(PivotJudge& judge, std::uint64_t word) {
    std::uint64_t tolerance = isTolerantFloat(judge.word) ? kAlikeFloatsMax : 0;
    if (judge.word.kind == WordKind::kSingle) tolerance <<= 32;
    judge.low = word - std::min(word, tolerance);
    judge.span = word + std::min(~word, tolerance) - judge.low;
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
    KeyPlace place = kKeyStart;
    while (place.segment < key.uniqueSegment) {
        const std::uint32_t s = place.segment;
        judge.word = wordAt(key, s, place.word);
        place = place.word + 1 < key.segments[s].words
                    ? KeyPlace{s, place.word + 1, kKeyStart.openBits}
                    : KeyPlace{s + 1, 0, kKeyStart.openBits};
        if (!isPassed(judge.word, sample, count)) {
            judge.next = place;
            judge.checkCount = std::min(key.segments[s].checkCount, key.checkCount);
            setBounds(judge, valueOf(judge.word, pivot));
            judge.endsKey = place.segment == key.segmentCount && isFree(key) && judge.span == 0;
            judge.isAble = true;
            return;
        }
        if (!addWord(judge, judge.word, pivot)) return;
    }
}

}  // namespace tvsort
