#include "sort/key_window.h"

#include <bit>

namespace tvsort {

namespace {

constexpr std::uint32_t kWindowBits = 64;

bool endsKey(const NormalizedKey& key, const KeyPlace& place) {
    return place.segment == key.segmentCount;
}

void stepToNextWord(const NormalizedKey& key, KeyPlace& place) {
    place.openBits = kKeyStart.openBits;
    place.word += 1;
    if (place.word < key.segments[place.segment].words) return;
    place.segment += 1;
    place.word = 0;
}

// The highest `count` bits of `bits`.
std::uint64_t highestBits(std::uint64_t bits, std::uint32_t count) {
    std::uint64_t rest = bits;
    for (std::uint32_t i = 0; i < count; ++i)
        rest &= ~(std::uint64_t{1} << (63 - std::countl_zero(rest)));
    return bits & ~rest;
}

// Sets the steps that bring the bits of `at.differs` together at the right end.
void setMoves(WindowWord& at) {
    at.moveCount = 0;
    at.drop = 0;
    if (at.differs == 0) return;
    at.drop = static_cast<std::uint8_t>(std::countr_zero(at.differs));
    const std::uint64_t bits = at.differs >> at.drop;
    // Every bit moves by the number of gaps to its right, in step i by 2^i if that number has bit
    // i. The order of the bits stays, so the r-th of `bits` is always the r-th of `moved`.
    std::uint64_t moved = bits;
    for (std::uint32_t i = 0; i < 6; ++i) {
        std::uint64_t moving = 0;
        std::uint64_t rest = moved;
        std::uint32_t rank = 0;
        for (std::uint64_t from = bits; from != 0; from &= from - 1, rest &= rest - 1, ++rank) {
            const std::uint32_t gaps = static_cast<std::uint32_t>(std::countr_zero(from)) - rank;
            if ((gaps >> i & 1) != 0) moving |= rest & (~rest + 1);
        }
        at.moves[i] = moving;
        moved = (moved ^ moving) | moving >> (1U << i);
        if (moving != 0) at.moveCount = static_cast<std::uint8_t>(i + 1);
    }
}

}  // namespace

void openWindow(const NormalizedKey& key, const KeyPlace& place, const Byte* first,
                KeyWindow& window) {
    window.wordCount = 0;
    window.width = 0;
    KeyPlace next = place;
    while (window.wordCount < kWindowWordsMax && !endsKey(key, next)) {
        WindowWord& at = window.words[window.wordCount++];
        at = {};
        at.word = wordAt(key, next.segment, next.word);
        at.covered = at.word.bits & next.openBits;
        at.first = readWord(at.word, first);
        stepToNextWord(key, next);
    }
    window.start = place;
    window.next = place;
    window.endsKey = endsKey(key, place);
}

void cutWindow(const NormalizedKey& key, const Differences& differences, KeyWindow& window) {
    const std::uint32_t wordsMax = window.wordCount;
    window.wordCount = 0;
    window.width = 0;
    window.next = window.start;
    while (window.wordCount < wordsMax && window.width < kWindowBits) {
        const std::uint32_t room = kWindowBits - window.width;
        WindowWord& at = window.words[window.wordCount];
        const std::uint64_t open = at.word.bits & window.next.openBits;
        const std::uint64_t varying = differences.bits[window.wordCount] & open;
        at.differs = varying;
        at.covered = open;
        const bool overflows = static_cast<std::uint32_t>(std::popcount(varying)) > room;
        if (overflows) {
            at.differs = highestBits(varying, room);
            at.covered = open & ~std::uint64_t{0} << std::countr_zero(at.differs);
            window.next.openBits &= ~at.covered;
        } else {
            stepToNextWord(key, window.next);
        }
        setMoves(at);
        window.width += static_cast<std::uint32_t>(std::popcount(at.differs));
        at.place = at.differs == 0 ? std::uint8_t{0}
                                   : static_cast<std::uint8_t>(kWindowBits - window.width);
        window.wordCount += 1;
    }
    window.endsKey = endsKey(key, window.next);
}

bool windowMisses(const KeyWindow& window, const Differences& differences) {
    for (std::uint32_t i = 0; i < window.wordCount; ++i) {
        const WindowWord& at = window.words[i];
        if ((differences.bits[i] & at.covered & ~at.differs) != 0) return true;
    }
    return false;
}

}  // namespace tvsort
