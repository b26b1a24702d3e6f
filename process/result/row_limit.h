// The row limit with ties: sort modes 0, 7, 8 and 9.
//
// A limit must not cut through a run of equal records. It is moved behind the last record that is
// equal to the last one inside it; no record is moved or changed.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Raises `limitCount`, which is at least 1, by the number of records behind it that are equal to
// record `limitCount` by the equality comparator. A limit at or beyond `recordCount` stays. The
// pool and the comparator raise their codes.
void extendLimitToTies(SortJob& job);

}  // namespace tvsort
