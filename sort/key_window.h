// A window on the normalized key: up to 64 of its bits that differ between records, as one number.
//
// Most bits of a key say nothing. Letters differ in five bits of eight, small integers in the
// lowest bytes, and keys often begin alike. A bit that is the same in all records can be left out
// without changing their order, so a window takes the bits that differ, from a place in the key on,
// and closes the gaps:
//
//     words of the key   011xxxxx 011xxxxx 011xxxxx ...   00000000 000xxxxx ...
//     window             xxxxx    xxxxx    xxxxx    ...            xxxxx
//
// Which bits differ is seen in a sample first. Whoever reads all records through the window
// collects what differs really (`Differences`); if that is more, the window is cut again, and is
// then right.
//
// The bits of a word are brought together in up to six steps, each of which moves some of them to
// the right by a power of two (H. S. Warren, Hacker's Delight, 2nd edition, section 7-4).

#pragma once

#include <cstdint>

#include "sort/normalized_key.h"

namespace tvsort {

inline constexpr std::uint32_t kWindowWordsMax = 16;

// One word's share of a window.
struct WindowWord {
    KeyWord word;
    std::uint64_t covered;   // bits that the window speaks for: the others are not its business
    std::uint64_t differs;   // bits that it takes
    std::uint64_t first;     // the word of some record
    std::uint8_t moveCount;  // of the following steps
    std::uint8_t drop;       // bits to the right, before
    std::uint8_t place;      // bits to the left, after
    std::uint64_t moves[6];  // bits that step i moves by 2^i
};

struct KeyWindow {
    std::uint32_t wordCount;
    std::uint32_t width;  // bits, left-aligned in the number
    KeyPlace start;       // in the key
    KeyPlace next;        // where the key goes on
    bool endsKey;         // it does not go on
    WindowWord words[kWindowWordsMax];
};

// For each word of a window, the bits in which some record differs from the word's `first`.
struct Differences {
    std::uint64_t bits[kWindowWordsMax];
};

// Opens a window on the key from `place` on, with the words of `first`, and with no bits yet.
void openWindow(const NormalizedKey& key, const KeyPlace& place, const Byte* first,
                KeyWindow& window);

// Adds what `record` differs in. Needs an open window.
inline void addDifferences(const KeyWindow& window, const Byte* record, Differences& differences) {
    for (std::uint32_t i = 0; i < window.wordCount; ++i) {
        const WindowWord& at = window.words[i];
        differences.bits[i] |= readWord(at.word, record) ^ at.first;
    }
}

// Gives the window the bits that differ, as many as it can take, and shortens it to them.
void cutWindow(const NormalizedKey& key, const Differences& differences, KeyWindow& window);

// Whether records differ in bits that the window covers and does not take.
bool windowMisses(const KeyWindow& window, const Differences& differences);

// A word's bits of the window, where they belong.
inline std::uint64_t windowShare(const WindowWord& at, std::uint64_t value) {
    value = (value & at.differs) >> at.drop;
    for (std::uint32_t i = 0; i < at.moveCount; ++i) {
        const std::uint64_t moving = value & at.moves[i];
        value = (value ^ moving) | moving >> (1U << i);
    }
    return value << at.place;
}

inline std::uint64_t readWindow(const KeyWindow& window, const Byte* record) {
    std::uint64_t digits = 0;
    for (std::uint32_t i = 0; i < window.wordCount; ++i) {
        const WindowWord& at = window.words[i];
        digits |= windowShare(at, readWord(at.word, record));
    }
    return digits;
}

// The same, and what the record differs in.
inline std::uint64_t readWindow(const KeyWindow& window, const Byte* record,
                                Differences& differences) {
    std::uint64_t digits = 0;
    for (std::uint32_t i = 0; i < window.wordCount; ++i) {
        const WindowWord& at = window.words[i];
        const std::uint64_t value = readWord(at.word, record);
        differences.bits[i] |= value ^ at.first;
        digits |= windowShare(at, value);
    }
    return digits;
}

}  // namespace tvsort
