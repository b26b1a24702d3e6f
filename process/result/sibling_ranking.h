// Ranks a complete run of siblings by the key list.
//
// The siblings are found one behind the other's subtree. They are sorted as linked lists, whose
// links stand in their own `outputPosition` fields, by merging lists of equal length bottom-up (D.
// E. Knuth, The Art of Computer Programming, volume 3, section 5.2.4, algorithm L, with a list of
// each power of two pending instead of passes): k siblings cost about k log2(k) comparisons. Equal
// siblings keep their order.
//
// The result is the one of comparing every pair in order of arrival, wherever that is an order. It
// is none where ties are loose (floats within their tolerance, say): 1 may tie with NaN, NaN with
// 2, and 2 precede 1. The merge finds one order then, and loses no record.
//
// Every two siblings that end up next to one another have been compared, so a value that cannot be
// compared is found, unless a key with loose ties stands before its key: a run that has such values
// then has them compared with all others. Which of several is reported is decided as if every pair
// had been compared in order of arrival (`firstComplaint`).

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Ranks the run: afterwards the `outputPosition` of each sibling is the number of records in the
// subtrees of those that come before it. Needs `subtreeSize` of every sibling. The pool and the
// comparator raise their codes, and links or sizes that do not come back as written raise 1412.
void rankSiblings(SortJob& job, const SiblingRun& run);

// What comparing each sibling, when it is complete, with every earlier one meets first in the run:
// the code of the last complaint about the first sibling that there is one about, or kSuccess. For
// a request that has failed already; the codes and the links of the run are spent.
ErrorCode firstComplaint(SortJob& job, const SiblingRun& run);

}  // namespace tvsort
