// The sort of a data set for whose entries there is no room. What does not fit into the frames goes
// through the memory twice, however much larger it is:
//
//     work file   [1][2][3][4] ...        the blocks in the order in which they came
//                  |
//                  v  read in order; each record goes to the buffer of its range
//     frames      [a  ][b  ][c  ] ...     a full buffer goes to a free place of the file
//                  |
//     work file   [a][b][a][c] ...        a map knows range and number of each
//                  |
//                  v  read range by range; a range is ordered by entries (sort/entry_sort.h)
//     work file   [a][a][a][b] ...        and written; a block of a later range that is in the way
//                                         moves to where its own range will be, or behind
//
// The ranges are cut by a sample (sort/splitters.h) so that each fits into the frames with its
// entries, and one of twice its share, too. One that does not is distributed once more, by a sample
// of its own; where there are few frames (sort/block_plan.h) most are, once or twice. One of equal
// records needs no order. While a range is ordered the system is told of the blocks of the next.
//
// There is always a free place: those of the blocks that the request brought in the frames are free
// from the start, and every other becomes free when its block is read, before any of its records
// can be written. No place behind the data set is touched. Until it is written a record stands in
// a place, a frame or a buffer; what a failed transfer leaves in the file is part of the data set,
// in no order.
//
// A data set that fits is sorted the same way: its frames are the places, and what would be laid
// out in frames is memory of the process's own.
//
// All that the entry sort orders is ordered here, too, and equal records keep the order in which
// they arrived. What the comparator has to decide may be met only after records have moved: they
// are written back as they are then, and the quicksort sorts and raises codes as it always does.
// What fits is looked at before it moves, and left alone where floats may tie or duplicates are
// refused.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Fewer frames, or fewer records, are not worth it.
inline constexpr std::int32_t kDistributionFramesMin = 64;
inline constexpr std::int32_t kDistributionRecordsMin = 10000;

// Sorts the data set, if it has one order only; `scratch` has kRecordBufferBytes. True when it is
// sorted or the pool's codes 1402, 1403 and 1409 were raised. What fits the frames is in them then,
// all of them dirty if any record has moved; anything else is in the work file, and the pool holds
// no block. False leaves the data set to the quicksort.
bool sortByBlocks(SortJob& job, Byte* scratch);

}  // namespace tvsort
