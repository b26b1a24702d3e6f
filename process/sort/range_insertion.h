// Sorting a short range by insertion.

#pragma once

#include "process/job/sort_job.h"
#include "process/storage/record_address.h"

namespace tvsort {

// A range whose ends lie closer together than this, in one block, is sorted by insertion.
inline constexpr std::int32_t kInsertionDistance = 20;

// Sorts the records low to high, which lie back to back in one frame, at most 20 of them. A record
// goes behind every earlier one that it does not precede, so equal records keep their order. The
// frame becomes dirty if any record moved. `scratch` holds one record. The comparator raises its
// codes; the range is then left as far as the work had got.
void insertRange(SortJob& job, const HeldRecord& low, const HeldRecord& high, Byte* scratch);

}  // namespace tvsort
