// A window on the normalized key: up to 64 of its bits that tell records apart, as one number.
//
// Most bits of a key say nothing. Letters differ in five bits of eight, small integers in the
// lowest bytes, and keys often begin alike. A bit can be left out without changing the order of the
// records when it is the same in all of them, and when it always follows a higher bit, as the upper
// bits of a small integer follow its sign. A window takes the bits that are left, from a place in
// the key on, and closes the gaps:
//
//     words of the key   011xxxxx 011xxxxx 011xxxxx ...   sssssssss ssxxxxxx ...
//     window             xxxxx    xxxxx    xxxxx    ...   s           xxxxxx
//
// A window is fitted to records. That may be a sample: whoever reads other records through it
// learns of each whether it fits, too.
//
// The bits of a word are brought together in up to six steps, each of which moves some of them to
// the right by a power of two (H. S. Warren, Hacker's Delight, 2nd edition, section 7-4).

#pragma once

#include <bit>
#include <cstdint>

#include "process/keys/normalized_key.h"

namespace tvsort {

inline constexpr std::uint32_t kWindowWordsMax = 16;
inline constexpr std::uint32_t kWindowBits = 64;

// One word's share of a window.
struct WindowWord {
    KeyWord word;
    std::uint64_t first;      // the word of some record
    std::uint64_t constant;   // bits that are as in that
    std::uint64_t followers;  // bits that differ from it where the top bit does
    std::uint64_t taken;      // bits in the window
    std::uint8_t topBit;      // the highest of them
    std::uint8_t moveCount;   // of the following steps
    std::uint8_t drop;        // bits to the right, before
    std::uint8_t place;       // bits to the left, after
    std::uint64_t moves[6];   // bits that step i moves by 2^i
};

struct KeyWindow {
    std::uint32_t wordCount;
    std::uint32_t width;  // bits
    KeyPlace start;       // in the key
    KeyPlace next;        // where the key goes on
    bool endsKey;         // it does not go on
    WindowWord words[kWindowWordsMax];
};

// How wide a window may be, and from which width on no further word is asked. Bits that follow
// others are looked for if there is something to be gained; there must be one group then.
struct WindowFit {
    std::uint32_t widthMax;
    std::uint32_t widthWanted;
    bool findFollowers;
};

// Opens an empty window on the key at `place`.
void openWindow(const NormalizedKey& key, const KeyPlace& place, KeyWindow& window);

// Whether the window can take another word: answers it in `at`, with the bits that are open there.
bool nextWord(const NormalizedKey& key, const WindowFit& fit, KeyWindow& window,
              std::uint64_t& openBits);

// Adds that word, in which records differ in the bits `differing`, and of which `followers` follow
// the highest.
void takeWord(const NormalizedKey& key, const WindowFit& fit, std::uint64_t differing,
              std::uint64_t followers, KeyWindow& window);

// Where the difference from the first word has the top bit, all bits.
inline std::uint64_t followTop(std::uint64_t difference, std::uint8_t topBit) {
    return 0 - (difference >> topBit & 1);
}

// Opens a window at `place` and fits it to the records that `visitAll(look)` calls `look` with, and
// with whether a record starts a group. The window tells records of a group apart; it is empty only
// when those of each agree in all its words.
template <typename VisitAll>
void fitWindow(const NormalizedKey& key, const KeyPlace& place, const WindowFit& fit,
               VisitAll visitAll, KeyWindow& window) {
    openWindow(key, place, window);
    std::uint64_t openBits = 0;
    while (nextWord(key, fit, window, openBits)) {
        WindowWord& at = window.words[window.wordCount];
        const KeyWord word = at.word;
        std::uint64_t first = 0;
        std::uint64_t differing = 0;
        visitAll([&](const Byte* record, bool starts) {
            const std::uint64_t value = readWord(word, record);
            if (starts) first = value;
            differing |= value ^ first;
        });
        at.first = first;  // of the last group: misfits are asked for where there is one
        differing &= openBits;
        std::uint64_t followers = 0;
        if (fit.findFollowers && std::popcount(differing) > 1) {
            const auto topBit = static_cast<std::uint8_t>(std::bit_width(differing) - 1);
            std::uint64_t own = std::uint64_t{1} << topBit;
            visitAll([&](const Byte* record, bool) {
                const std::uint64_t difference = readWord(word, record) ^ first;
                own |= difference ^ followTop(difference, topBit);
            });
            followers = differing & ~own;
        }
        takeWord(key, fit, differing, followers, window);
    }
}

// The bits of a word's value that are in the window, where they belong.
inline std::uint64_t windowShare(const WindowWord& at, std::uint64_t value) {
    value = (value & at.taken) >> at.drop;
    for (std::uint32_t i = 0; i < at.moveCount; ++i) {
        const std::uint64_t moving = value & at.moves[i];
        value = (value ^ moving) | moving >> (1U << i);
    }
    return value << at.place;
}

// Not 0 when the window does not fit a record with that value: the bits that are unlike.
inline std::uint64_t misfit(const WindowWord& at, std::uint64_t value) {
    const std::uint64_t difference = value ^ at.first;
    return (difference & at.constant) |
           ((difference ^ followTop(difference, at.topBit)) & at.followers);
}

// All ones or zeros, as the value is above or below those that the window fits.
inline std::uint64_t sideOf(std::uint64_t value, std::uint64_t unlike) {
    return 0 - (value >> (std::bit_width(unlike) - 1) & 1);
}

// A value as the window reads it if it does not fit.
inline std::uint64_t pushToSide(std::uint64_t value, std::uint64_t unlike) {
    const std::uint64_t lower = (std::uint64_t{1} << (std::bit_width(unlike) - 1)) - 1;
    return (value & ~lower) | (sideOf(value, unlike) & lower);
}

// Reads any window.
struct WindowReader {
    const KeyWindow& window;

    // For records that the window has been fitted to.
    std::uint64_t readFitted(const Byte* record) const {
        std::uint64_t digits = 0;
        for (std::uint32_t i = 0; i < window.wordCount; ++i)
            digits |= windowShare(window.words[i], readWord(window.words[i].word, record));
        return digits;
    }
    // For any record; needs a window of fewer than 64 bits. Counts in `misfits` those that do not
    // fit: they may read like their neighbours in the key's order, but never beyond them.
    std::uint64_t read(const Byte* record, std::uint32_t& misfits) const {
        std::uint64_t digits = 0;
        for (std::uint32_t i = 0; i < window.wordCount; ++i) {
            const WindowWord& at = window.words[i];
            const std::uint64_t value = readWord(at.word, record);
            const std::uint64_t unlike = misfit(at, value);
            if (unlike != 0) {
                misfits += 1;
                digits |= windowShare(at, pushToSide(value, unlike));
                const std::uint64_t behind = (std::uint64_t{1} << at.place) - 1;
                return digits | (sideOf(value, unlike) & behind);
            }
            digits |= windowShare(at, value);
        }
        return digits;
    }
};

// Reads a window of one word of this kind that is never null: most are, and a loop that knows it
// keeps all in registers.
template <WordKind kind>
struct WordReader {
    WindowWord at;

    std::uint64_t value(const Byte* record) const {
        return readKnownWord(at.word, kind, false, record);
    }
    std::uint64_t readFitted(const Byte* record) const { return windowShare(at, value(record)); }
    std::uint64_t read(const Byte* record, std::uint32_t& misfits) const {
        std::uint64_t found = value(record);
        const std::uint64_t unlike = misfit(at, found);
        if (unlike != 0) {
            misfits += 1;
            found = pushToSide(found, unlike);
        }
        return windowShare(at, found);
    }
};

// Calls `use` with a reader of the window: one switch for a whole loop. `hasFloats`: it may be one
// of a key with floats.
template <bool hasFloats = true, typename Use>
void withReader(const KeyWindow& window, Use use) {
    const WindowWord& at = window.words[0];
    if (window.wordCount == 1 && !at.word.nullable && !at.word.bounded) {
        if (at.word.kind == WordKind::kBytes) return use(WordReader<WordKind::kBytes>{at});
        if (at.word.kind == WordKind::kInteger) return use(WordReader<WordKind::kInteger>{at});
        if constexpr (!hasFloats) return use(WindowReader{window});
        if (at.word.kind == WordKind::kDouble) return use(WordReader<WordKind::kDouble>{at});
        if (at.word.kind == WordKind::kSingle) return use(WordReader<WordKind::kSingle>{at});
    }
    use(WindowReader{window});
}

}  // namespace tvsort
