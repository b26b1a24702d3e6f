// One stable pass of a distribution sort: counts the digit of every record, gives each digit value
// its place in the target, and moves the records there in source order (H. H. Seward, 1954; D. E.
// Knuth, The Art of Computer Programming, volume 3, section 5.2, algorithm D).
//
// Digits of 16 bits halve the number of passes that 8 bits would need. A pass is skipped when all
// records have the same digit, which spares the passes over bytes that carry no information.

#pragma once

#include <cstdint>

#include "service/bytes.h"

namespace tvsort {

// How a digit lies in a record, at its offset.
enum class DigitKind : std::uint8_t {
    kByte,           // 256 buckets
    kLittleWord,     // 65536 buckets, the low half first
    kBigWord,        // 65536 buckets, the high half first
    kSignedTopWord,  // kLittleWord, of a two's complement number: below 0 comes first
};

enum class BucketOrder : std::uint8_t { kDescending = 0, kAscending = 1 };

inline constexpr std::uint32_t kCounterCount = 65536;
inline constexpr std::uint32_t kCounterTableBytes = kCounterCount * sizeof(std::uint32_t);

// Moves `count` records of `stride` bytes from `source` to `target` in the order of their digits;
// records with the same digit keep theirs. `counters` holds kCounterCount words of any content.
// False when nothing had to move, because there are fewer than two records or all have one digit;
// the target is then as it was.
bool countingPass(std::uint32_t* counters, const Byte* source, Byte* target, std::uint32_t count,
                  std::uint32_t stride, std::uint32_t digitOffset, DigitKind kind,
                  BucketOrder order);

}  // namespace tvsort
