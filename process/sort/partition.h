// Partitioning a range of records around a pivot (C. A. R. Hoare, Algorithm 63: Partition, 1961).
//
//      low          i -->               <-- j          high
//     +----------------------------------------------------+
//     | do not come  |     not looked at    | do not come  |
//     | after pivot  |          yet         | before pivot |
//     +----------------------------------------------------+
//
// The pivot is copied once to the spare block behind the frames, so that every comparison reads a
// fixed place that no exchange can move. A pivot of a long range is drawn at random, of a short one
// taken from the middle. Each scan stops at the latest at a record that does not precede, or
// follow, the pivot, and the range always holds one: the pivot's own record, then a record that an
// exchange placed. That holds for comparisons that are not transitive too, because every record is
// compared with the same copy; the scans are bounded by the range all the same.
//
// A scan that stops at the first record of the wrong side ends in a branch that no processor can
// foresee. So a run of records on each side is judged ahead, without branches (sort/pivot_judge.h),
// and those that may end the scan are noted (S. Edelkamp, A. Weiss, BlockQuicksort: Avoiding Branch
// Mispredictions in Quicksort, 2016):
//
//      i -->                                           <-- j
//     +--------------------+- - - - - - - +--------------------+
//     | .  x  .  .  ?  x   |              |  x  .  ?  .  .  x  |    x: must change sides
//     +--------------------+- - - - - - - +--------------------+    ?: the comparator knows
//
// The cursors go from one of these to the next. The comparator is asked when a cursor gets there:
// it sees the records that it would see without a judge, less those that the judge knows, in the
// same order.
//
// Four places are held while a range is worked on: its ends and the two cursors. The frames that
// hold them are pinned, so at most four frames are. A cursor asks the pool only where it crosses
// into another block, and keeps its old frame pinned until the new one is there.

#pragma once

#include "process/job/sort_job.h"
#include "process/keys/normalized_key.h"
#include "process/storage/record_address.h"

namespace tvsort {

struct HeldRange {
    HeldRecord low;
    HeldRecord high;
    HeldRecord i;  // moves up from low
    HeldRecord j;  // moves down from high
};

// Partitions low to high, whose frames are pinned. Afterwards low to j do not come after the pivot
// and i to high do not come before it, and the frames of all four are pinned; `compareState` has
// become 1 unless all records equal the pivot. `key` is the request's. Changed frames are dirty.
// The pool and the comparator raise their codes; what was moved until then stays moved.
void partitionRange(SortJob& job, const NormalizedKey& key, HeldRange& held);

// Unpins `released`'s frame unless it is the frame of one of the others.
void unpinUnlessHeld(SortJob& job, const HeldRecord& released, const HeldRecord& first,
                     const HeldRecord& second);

}  // namespace tvsort
