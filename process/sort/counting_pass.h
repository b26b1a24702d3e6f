// The pass of the distribution sort that moves records: counts a digit of every record, gives each
// digit value its place in the target, and moves the records there in source order (H. H. Seward,
// 1954; D. E. Knuth, The Art of Computer Programming, volume 3, section 5.2, algorithm D).
//
// The digit is the upper end of a window on the key (sort/key_window.h), up to 16 bits wide. So
// many targets at once would be slow: each is a place in memory that has to be at hand.
// Neighbouring digit values are therefore put together to about a thousand buckets of about equal
// size, whatever the distribution of the keys:
//
//     records per digit value   0 3 9 4 0 0 85 1 2 ...
//     buckets                   0 0 0 0 0 0  1 2 2 ...
//
// A value that is frequent has a bucket for itself.

#pragma once

#include <cstdint>

#include "process/sort/key_window.h"
#include "process/sort/record_array.h"

namespace tvsort {

inline constexpr std::uint32_t kDigitBitsMax = 16;
inline constexpr std::uint32_t kCounterCount = std::uint32_t{1} << kDigitBitsMax;
inline constexpr std::uint32_t kCounterTableBytes = kCounterCount * sizeof(std::uint32_t);

// How many buckets a pass aims at. Two neighbours together hold more than a bucket is meant to, so
// there are at most twice as many and one.
inline constexpr std::uint32_t kBucketsWanted = 1024;
inline constexpr std::uint32_t kBucketsMax = 2 * kBucketsWanted + 1;

struct Digit {
    KeyWindow window;
    bool fitsAll;  // the window fits every record
};

struct Bucket {
    std::uint32_t end;  // index behind its last record; it begins where the last bucket ends
    bool equal;         // its records have the same key up to where the digit ends
};

struct Buckets {
    std::uint32_t count;
    Bucket buckets[kBucketsMax];
};

// Opens a window from `place` on in which records differ, and counts the digits that it shows.
// `counters` holds kCounterCount words of any content. False when all records have the same key
// from `place` on.
bool countDigits(const NormalizedKey& key, const KeyPlace& place, const RecordArray& source,
                 std::uint32_t* counters, Digit& digit);

// Replaces each count by the number of the digit's bucket.
void makeBuckets(std::uint32_t recordCount, const Digit& digit, std::uint32_t* counters,
                 Buckets& buckets);

// Moves the records of `source` to their buckets in `target`, where they are packed. Records in one
// bucket keep their order.
void moveToBuckets(const RecordArray& source, const Digit& digit, const std::uint32_t* counters,
                   const Buckets& buckets, Byte* target);

}  // namespace tvsort
