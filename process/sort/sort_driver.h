// The sort: puts records 1 to `recordCount` into their final order, in place.
//
// Three methods:
//
//     by entries   when the frames have room for entries or a copy behind the data set, there are
//                  at least 200 records and they have one order only (sort/entry_sort.h)
//     by blocks    when there is no such room, there are at least 10000 records, with one order
//                  only, and 64 frames for what is larger than these (sort/block_distribution.h)
//     quicksort    otherwise: an explicit stack of pending ranges of record numbers; each is
//                  partitioned around a copied pivot (sort/partition.h) until it lies in one block
//                  and is short enough for insertion or entries of its own (sort/short_range.h). It
//                  reaches every record by its number, so the data set may be larger than the
//                  frames.
//
// Of the two parts of a partition the larger one waits on the stack and the smaller one is worked
// on at once, so the stack never holds more than log2(recordCount) pairs: 31 are enough for every
// count that fits in 32 bits. Pending ranges come back last in, first out.
//
// The quicksort's result is one exact order, equal records included: the pivots of long ranges come
// from the C library's `rand`, which the process never seeds, so that their sequence runs on from
// request to request. With n records and w words of the key, orders that do not know the pivots
// take some 2 n log2 n comparisons and 8 n (log2 n + w) words at most.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Sorts the data set; `scratch` holds kRecordBufferBytes. The pool holds the first blocks and no
// frame is pinned. Afterwards no frame is pinned and changed frames are dirty, but for requests
// that are expected to mark none (sort/entry_sort.h). After an error the frames stay as they are,
// pins included, and the request fails. Raises 1404 and 1405; the comparator, the pool and the
// entry sort raise their own codes.
void sortRecords(SortJob& job, Byte* scratch);

// Puts a range on the partition stack. Raises 1405 when it is full and 1404 when its depth is
// negative.
void pushRange(SortJob& job, std::int32_t low, std::int32_t high);

}  // namespace tvsort
