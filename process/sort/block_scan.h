// The exchanges of a partition, found many at a time (S. Edelkamp, A. Weiss, BlockQuicksort:
// Avoiding Branch Mispredictions in Quicksort, 2016).
//
// A scan that stops at the first record of the wrong side ends in a branch that no processor can
// foresee. Here a run of records on each side is judged without branches, and the places of those
// that a scan would stop at are noted:
//
//      i -->                                           <-- j
//     +--------------------+- - - - - - - +--------------------+
//     | .  x  .  .  x  x   |              |  x  .  x  .  .  x  |    x: must change sides
//     +--------------------+- - - - - - - +--------------------+
//
// Then the first x from the left changes with the first from the right, the second with the second:
// these are the very exchanges that the two scans make, in their order, because which records stop
// a scan depends on nothing but the comparison with the pivot. Each cursor moves to the first x
// that is left over, or behind the run. It never leaves the block that it stands in: which frames
// are asked for, and when, stays with the plain scans.

#pragma once

#include "process/job/sort_job.h"
#include "process/sort/pivot_judge.h"
#include "process/storage/record_address.h"

namespace tvsort {

// The two cursors of a partition and how far each may go in its block.
struct BlockCursors {
    HeldRecord& i;
    HeldRecord& j;
    std::int32_t iLast;   // last record of i's block
    std::int32_t jFirst;  // first record of j's block
};

// Makes the exchanges between i and j that lie in the cursors' blocks, while `judge` is able to
// judge; the plain scans do the rest. Sets `compareState` and the dirty flags as they do. `pivot`
// is the place of the pivot's copy. A judge that judges too many in vain, because runs end at
// records about which the comparator may not be asked out of turn, is able no more.
void exchangeInBlocks(SortJob& job, PivotJudge& judge, std::uint32_t pivot,
                      const BlockCursors& cursors);

}  // namespace tvsort
