// The distribution sort: orders a large data set that fits into the frames without comparing
// records, by stable passes over the digits of its keys.
//
// Regions, from `frameArea`, with F the bytes of a frame, N records of L bytes:
//
//     0                                 data area     the frames with the blocks of the data set
//     fileBlocks x F                    scratch area  N x L bytes
//
// The frames behind the data set hold no block, so they are free for this use. Counters and entries
// say where records go, so they stand in the process's own memory; servers reckon with a table of
// 262,148 bytes behind the scratch area all the same, and what must fit is what it was. What
// decides the speed is how often records move between memory and cache, so each moves only twice:
//
//     sort/arrival_order.h   records that arrive in order, or reversed, go another way
//     sort/counting_pass.h   one pass brings all records to the scratch area, in about a thousand
//                            buckets that follow one another in the order of the keys
//     sort/bucket_sort.h     each bucket, small enough for the cache, is put in order by entries
//                            and its records are copied back, to their places in the data area
//
// A bucket that is too large is distributed once more: into its own part of the data area, packed,
// and back as it is, in buckets. Both sorts read the key through windows (sort/key_window.h) on its
// normalized form (sort/normalized_key.h). Each time a range is distributed its records agree in
// more bits of the key, so the work is bounded by the key's length, as that of plain passes over
// every digit is.
//
// Records that are equal in every key stay in the order in which they arrived. The order is
// everywhere the one that `recordPrecedes` defines; what only comparing can tell is left to the
// quicksort.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Sorts the data set in frames 0 to `fileBlocks` - 1. Marks no frame dirty and pins none. Needs
// distributionSortApplies (sort/distribution_choice.h). Raises 1090, before any record has moved,
// when there is a decimal of an unknown class, or an invalid one under an ascending key; 903 when
// sort mode 8 or 9 finds two records that its unique check refuses.
void distributionSort(SortJob& job);

}  // namespace tvsort
