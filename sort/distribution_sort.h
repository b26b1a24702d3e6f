// The distribution sort: orders a large data set that fits into the frames without comparing
// records, by stable passes over the digits of its keys.
//
// Regions, from `frameArea`, with F the bytes of a frame, N records of L bytes:
//
//     0                                 data area     the frames with the blocks of the data set
//     fileBlocks x F                    scratch area  N x L bytes
//     + N x L, rounded up to 4          counters      262144 bytes
//
// The frames behind the data set hold no block, so they are free for this use. Two ways lead to the
// same bytes:
//
//     sort/entry_sort.h      records of 32 bytes and more: passes over small entries of key digits
//                            and place, then each record moves once
//     sort/record_passes.h   smaller records, and very long keys: passes over whole records
//
// Records that are equal in every key stay in the order in which they arrived. The order is
// everywhere the one that `recordPrecedes` defines; what only comparing can tell is left to the
// quicksort.

#pragma once

#include "service/sort_job.h"

namespace tvsort {

// From this many records on the distribution sort pays.
inline constexpr std::int32_t kDistributionRecordsMin = 10000;

// Whether the data set is large enough, fits twice into the frames with the counters, and has only
// keys that passes over raw bytes order as the comparator does: types 2, 4, 5 and 6, and strings of
// type 9 that are no geometry and whose fields hold nothing but zeros behind the stored length.
// Reads the string fields; touches nothing.
bool distributionSortApplies(const SortJob& job);

// Sorts the data set in frames 0 to `fileBlocks` - 1. Marks no frame dirty and pins none. Needs
// distributionSortApplies. Raises 1090 when it comes to a key with an unknown decimal class, or an
// invalid decimal under an ascending key, and leaves the records wherever they are; 903 when sort
// mode 8 or 9 finds two records that its unique check refuses.
void distributionSort(SortJob& job);

}  // namespace tvsort
