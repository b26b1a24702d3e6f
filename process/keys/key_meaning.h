// What a key descriptor means to the comparators.
//
// A descriptor as the server sends it is cheap to transport and dear to interpret: type code
// (protocol/data_type.h), length, direction and null bits, and an item list that may or may not
// hold a weight table for the key. All of that is the same for every comparison of a request, so
// the request loop turns each sort key once into a `KeyRule`, and the comparators read rules only.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Fills `job.keyRules` from `keyOrder`, `keyPositions`, `kind4Key`, `items` and `sortMode`.
// Needs the collation table loaded. Cannot fail.
void resolveKeyRules(SortJob& job);

}  // namespace tvsort
