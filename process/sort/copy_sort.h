// Orders short records by way of a copy, when there is room for one: the records themselves are
// distributed to parts (H. H. Seward, 1954; D. E. Knuth, The Art of Computer Programming, volume 3,
// section 5.2, algorithm D), and each part, which the cache holds, is ordered by entries and copied
// back:
//
//     records ---- by the upper bits of a window ----> parts in the copy
//        ^                                                |
//        +------ part by part, in the entries' order -----+
//
// A record moves twice, but in a few streams; in place it would move once, at random. That pays for
// records of a few dozen bytes, and needs no memory for entries.
//
// A part that is too large is distributed once more: to its own places in the data set, packed, and
// back as it is, in parts. Each time its records agree in more bits of the key. Crafted keys can
// make that as often as every few bits, which costs long records dear: where entries could take
// over, four times the data set may be distributed again, and no more.

#pragma once

#include "process/keys/normalized_key.h"
#include "process/storage/record_array.h"

namespace tvsort {

// Longer records are moved in place faster.
inline constexpr std::uint32_t kCopiedBytesMax = 32;

// Orders `records`, of which there are two at least; `copy` has room for them, packed. Equal
// records keep their order. False when it `mayGiveUp` and did: the records are in some order, but
// equal ones still in theirs.
bool sortByCopy(const NormalizedKey& key, const RecordArray& records, Byte* copy, bool mayGiveUp);

}  // namespace tvsort
