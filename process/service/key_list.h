// The key list of a request: split into sort keys and others, and put into comparison order.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Takes the `keyCount` descriptors that follow the request in the message buffer. Afterwards the
// sort keys (kinds 0 to 2) stand at the front of `keys` in their order of arrival, each with its
// place in the request in `position`; `kind4Key` holds the null-indicator descriptor, if any;
// `keyOrder` and `keyPositions` give the keys in comparison order and `keyCount` counts them. In
// sort mode 7 the first descriptor is no sort key, whatever its kind. A request of which no
// descriptor is a sort key goes on with `keyCount` 0.
//
// Raises 137 for more than 100 descriptors, 1410 for none at all, 1406 for a message that ends
// before its descriptors do, and 1408 when the order numbers do not give each sort key its own
// place.
void takeKeyList(SortJob& job);

// Copies the request's byte-weight tables into `items`. Needs its key list. Raises 1406 for more
// than 32, and for a message that ends before they do.
void takeItems(SortJob& job);

}  // namespace tvsort
