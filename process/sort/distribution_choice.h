// Whether a request is one for the distribution sort.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// From this many records on the distribution sort pays.
inline constexpr std::int32_t kDistributionRecordsMin = 10000;

// Whether the data set is large enough, fits twice into the frames with the counters, and has only
// keys that passes over raw bytes order as the comparator does: types 2, 4, 5 and 6, and strings of
// type 9 that are no geometry and whose fields hold nothing but zeros behind the stored length.
// Reads the string fields; touches nothing.
bool distributionSortApplies(const SortJob& job);

}  // namespace tvsort
