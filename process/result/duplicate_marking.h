// Marks duplicates among sorted records in the frames: sort modes 1, 2 and 10 up.
//
// Records arrive with a non-zero `recordFlag`, and the marker does just two things to it:
//
//     sets it to 0    the record is equal to the reference, the first record of its run
//     ORs in 2        mode 2 only: the last record before one that starts a new group; the very
//                     last record of a data set is never marked
//
// Only what the equality comparator calls equal is (keys/records_differ.h): without a row limit
// that concerns the leading keys with a `groupKey` alone.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// Compares records `start` to `last` with the reference record `reference`, which each record that
// differs becomes; adds the group ends of mode 2 to `groupCount`. Records are numbered from frame 0
// on (placeInFrames). The comparator raises its codes and the walk stops.
void markDuplicates(SortJob& job, std::int32_t reference, std::int32_t start, std::int32_t last);

}  // namespace tvsort
