// The set-operation filter: intersection and difference of tagged operands, sort modes 3 to 6.
//
// Every record carries the tag of its operand in `recordFlag`: 1 for the first operand, any other
// value for another one. Sorting has brought equal records together. A group begins at a record of
// tag 1 and goes on over the records that are equal to it; a record of another tag that stands
// before the first one of tag 1 in its run belongs to no group. Of each group's records of tag 1,
// numbered j = 0, 1, 2, ... with count1 of them, these survive:
//
//     mode                    survivors
//     3  intersection         j = 0, if another tag is there
//     4  with multiplicity    j < the smallest count of any tag, with exactly two tags; j = 0 with
//                             three or more; none with one
//     5  difference           j = 0, if no other tag is there
//     6  with multiplicity    j >= the largest count of any other tag
//
// All other records are dropped.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Operands that a group can tell apart.
inline constexpr int kOperandTagsMax = 64;

// Sets the `recordFlag` of every record to 1 (survives) or 0. Works through the page pool. Raises
// 1407 for a group of more than kOperandTagsMax tags; the pool and the comparator raise their
// codes. The filter stops at the first.
void applySetOperation(SortJob& job);

}  // namespace tvsort
