// Orders a bucket of the distribution sort: a few thousand packed records that lie in the
// processor's cache.
//
// The records stay where they are. Each has an entry, and the entries are ordered:
//
//     0   u64   digits: a window on the key (sort/key_window.h)
//     8   u32   the record's index in the bucket
//     12  u32   in the first entry of an open run: how many entries it has
//
// An open run is a run of entries whose records are equal in all windows so far. At first that is
// the whole bucket. In each round the open runs are ordered by their digits; where digits are
// equal, a few records are put in order by comparing the rest of their keys, and many are an open
// run of the next round, which gives it the next window's digits. Every round moves on in the key,
// so there are not more of them than words of the key.
//
// A run is ordered by one counting pass over the upper bits in which its digits differ, as many as
// it takes to tell most of them apart, and insertion. Where that leaves too many together, by
// passes over all bytes in which they differ. Both keep the order of what is equal.

#pragma once

#include <cstdint>

#include "process/sort/key_window.h"

namespace tvsort {

struct Entry {
    std::uint64_t digits;
    std::uint32_t index;
    std::uint32_t openCount;
};
static_assert(sizeof(Entry) == 16);

// Room for the entries of a bucket, twice.
struct EntryArrays {
    Entry* entries;
    Entry* others;
};

// Orders the `count` packed records at `records`, which are equal in the key before `place`. Leaves
// their indexes in `arrays.entries`, in order; the records stay.
void orderBucket(const NormalizedKey& key, const KeyPlace& place, const Byte* records,
                 std::uint32_t count, std::uint32_t recordLength, const EntryArrays& arrays);

}  // namespace tvsort
