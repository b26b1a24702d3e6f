// The ordering comparator: the one definition of the result's order.
//
// It walks the request's keys in comparison order. For each key: nulls first (two nulls are equal,
// one null stands where the key's placement puts it), then the values by type, in the key's
// direction; the first key that tells the records apart decides. In the set-operation modes records
// that are equal in every key are told apart by their `recordFlag`, in the last key's direction.
//
// Floating values compare by the tolerant rule in ascending keys and exactly in descending ones.
// What cannot be compared:
//
//     1090  an invalid decimal, raised under ascending keys only; the key counts as equal
//     181   an unreadable geometry; the key counts as equal
//     1411  a stored length above the field's; the answer is false at once
//     903   sort modes 8 and 9: the records differ in nothing but the last key; false at once
//
// The comparator never clears a code; its callers test for one after their scans.

#pragma once

#include <cstdint>

#include "process/job/sort_job.h"

namespace tvsort {

// True when the record at `left` must stand strictly before the one at `right` (places from
// `frameArea`); false when it must not, or when nothing tells them apart. `compareState` becomes 1
// when the comparison found a difference or stopped on an error, and is unchanged otherwise. Both
// places may be the same.
bool recordPrecedes(SortJob& job, std::uint32_t left, std::uint32_t right);

// Whether the unique check passes over a record that stands left in a comparison: sort mode 9 does
// where there is a null among its other keys.
bool isExcused(const SortJob& job, const Byte* left);

}  // namespace tvsort
