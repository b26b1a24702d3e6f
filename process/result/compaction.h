// The compaction pass: decides which of the sorted records survive, and packs them.
//
// It follows the ordering step in sort modes 1 to 6 and 10 up. A marker sets every record's
// `recordFlag`, byte 4: 0 drops the record, any other value keeps it.
//
//     mode          marker                                      dropped
//     1, 10 up      duplicate marking                           equal to the record kept before
//     2             duplicate marking, with group-end marks     nothing
//     3 to 6        set-operation filter                        by operand and multiplicity
//
// Set operations go through the page pool, as everything before them. Duplicates are taken out of a
// data set that does not fit in chunks of consecutive blocks, read straight into the frames and
// written back over the file from block 1 on, each block read once and written at most once:
//
//     block slot   0       1 ..................... C
//                | carry | chunk as read          |     C = frames - 1
//                  |
//                  the last, partly filled block of survivors: travels to the next chunk, so that
//                  its first record is compared with the last survivor before it
//
// Writing never passes reading. When the data set fits, there is one chunk, no block is read or
// written, and the result stays in the frames. Blocks beyond those that the records fill are not
// touched.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Packs the survivors of the sorted, flushed data set to its front, in their order, and sets
// `recordCount` and `fileBlocks` to what they are and fill; in the duplicate modes `groupCount` as
// well. Raises what the work file, the pool and the equality comparator raise, and 1407; the counts
// are then as they were.
void compactSortedFile(SortJob& job);

}  // namespace tvsort
