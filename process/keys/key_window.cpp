#include "process/keys/key_window.h"

#include <algorithm>

namespace tvsort {

namespace {

bool isEnd(const NormalizedKey& key, const KeyPlace& place) {
    return place.segment == key.segmentCount;
}

void stepToNextWord(const NormalizedKey& key, KeyPlace& place) {
    place.openBits = kKeyStart.openBits;
    place.word += 1;
    if (place.word < key.segments[place.segment].words) return;
    place.segment += 1;
    place.word = 0;
}

std::uint32_t countOf(std::uint64_t bits) {
    return static_cast<std::uint32_t>(std::popcount(bits));
}

// The highest `count` bits of `bits`.
std::uint64_t highestBits(std::uint64_t bits, std::uint32_t count) {
    while (countOf(bits) > count)
        bits &= bits - 1;
    return bits;
}

// Sets the steps that bring the taken bits together at the right end.
void setMoves(WindowWord& at) {
    at.moveCount = 0;
    at.drop = 0;
    if (at.taken == 0) return;
    at.drop = static_cast<std::uint8_t>(std::countr_zero(at.taken));
    const std::uint64_t bits = at.taken >> at.drop;
    // Every bit moves by the number of gaps to its right, in step i by 2^i if that number has bit
    // i. The order of the bits stays, so the r-th of `bits` is always the r-th of `moved`.
    std::uint64_t moved = bits;
    const std::uint32_t gapsMax = static_cast<std::uint32_t>(std::bit_width(bits)) - countOf(bits);
    for (std::uint32_t i = 0; gapsMax >> i != 0; ++i) {
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

// The words' shares stand side by side, the first one at the upper end.
void setPlaces(KeyWindow& window) {
    std::uint32_t behind = window.width;
    for (std::uint32_t i = 0; i < window.wordCount; ++i) {
        WindowWord& at = window.words[i];
        behind -= countOf(at.taken);
        at.place = static_cast<std::uint8_t>(std::min(behind, kWindowBits - 1));
    }
}

}  // namespace

void openWindow(const NormalizedKey& key, const KeyPlace& place, KeyWindow& window) {
    window.wordCount = 0;
    window.width = 0;
    window.start = place;
    window.next = place;
    window.endsKey = isEnd(key, place);
}

bool nextWord(const NormalizedKey& key, const WindowFit& fit, KeyWindow& window,
              std::uint64_t& openBits) {
    if (window.endsKey || window.width >= fit.widthWanted || window.wordCount == kWindowWordsMax) {
        return false;
    }
    WindowWord& at = window.words[window.wordCount];
    at = {};
    at.word = wordAt(key, window.next.segment, window.next.word);
    openBits = at.word.bits & window.next.openBits;
    return true;
}

void takeWord(const NormalizedKey& key, const WindowFit& fit, std::uint64_t differing,
              std::uint64_t followers, KeyWindow& window) {
    WindowWord& at = window.words[window.wordCount++];
    const std::uint64_t open = at.word.bits & window.next.openBits;
    const std::uint64_t telling = differing & ~followers;
    std::uint64_t covered = open;
    at.taken = highestBits(telling, fit.widthMax - window.width);
    if (at.taken != telling) {
        covered = open & ~std::uint64_t{0} << std::countr_zero(at.taken);
        window.next.openBits &= ~covered;
    } else {
        stepToNextWord(key, window.next);
    }
    at.constant = covered & ~differing;
    at.followers = covered & followers;
    at.topBit =
        differing == 0 ? std::uint8_t{0} : static_cast<std::uint8_t>(std::bit_width(differing) - 1);
    setMoves(at);
    window.width += countOf(at.taken);
    window.endsKey = isEnd(key, window.next);
    setPlaces(window);
}

}  // namespace tvsort
