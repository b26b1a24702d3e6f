// Whether a request can be served as it describes itself.
//
// Nothing behind this check tests a count, length or offset of the request again, so everything
// that could lead a record, a key field or a block out of its place is refused here, with 1406,
// before any record or block is touched:
//
//     always                      blockPages below 1 or above pagesPerBlock; fileBlocks,
//                                 recordCount or limitCount negative; more than 32 items; a message
//                                 shorter than its descriptors and items
//     with two or more records    no records per block; records that do not fit their block or
//                                 would start at byte 65536 of it or later; more records than
//                                 fileBlocks hold; a sort key, its null indicator or a field that
//                                 the sort mode uses outside the record; in sort mode 7 a level
//                                 that overlaps the fields that the sort writes
//
// Why no comparison reads beyond the slot: a record ends inside its block, a block inside its
// frame, and frames and the pivot's copy inside the frame area, behind which the page descriptors
// follow. A key's field ends inside the record (keyFieldBytes); only a prefixed value may state a
// length that reaches two bytes further, and those bytes are still the slot's own.

#pragma once

#include "service/sort_job.h"

namespace tvsort {

// Raises 1406. Needs the request's words and key list in the job.
void checkRequest(SortJob& job);

}  // namespace tvsort
