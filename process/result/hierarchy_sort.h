// The hierarchy sort: replaces the in-memory sort in sort mode 7.
//
// The records are the nodes of a forest, in pre-order: each carries its level, 1 for a root, and is
// followed by its whole subtree. The sort keeps the forest as it is and orders the children of each
// parent, and the roots, by the key list; siblings that compare equal keep their order. The result
// is in pre-order again.
//
//     arrives (level, key)    1B  2z  2y  1A  2x          1A  2x  1B  2y  2z    leaves
//
// Fields of a record, i32:
//
//     first key's offset - 4   level, 1 to 4095
//     4                        subtreeSize: records of the subtree, the record included
//     8                        outputPosition: place in the result, from 0
//
// The last two are set by the process, whatever they arrive with. How it works:
//
//     1. One walk over the records finds where each subtree ends: `subtreeSize`. A run of siblings
//        is ranked when it is complete (result/sibling_ranking.h), after which `outputPosition` of
//        each sibling counts the records of the siblings' subtrees that come before its own.
//     2. A second walk adds, from the roots down, each parent's place: `outputPosition` is final.
//     3. The records move to their places along the cycles of the permutation.
//
// In the first walk `groupTable` holds, for each level up to `groupTableTop`, the first and the
// newest sibling of the run that is open there; in the second the place where the children of the
// record last seen at the level begin.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

inline constexpr std::uint32_t kSubtreeSizeOffset = 4;
inline constexpr std::uint32_t kOutputPositionOffset = 8;
inline constexpr std::uint32_t kHierarchyFieldsEnd = 12;
inline constexpr std::uint32_t kHierarchyLevelBytes = 4;

// Orders the data set. Raises 1412 for a level outside 1 to 4095, a first record that is no root
// and a record more than one level deeper than the one before it, and for fields that come back
// from the work file as no forest has them; the pool and the comparator raise their codes. Records
// do not move before the whole forest has been ranked.
void sortHierarchy(SortJob& job);

}  // namespace tvsort
