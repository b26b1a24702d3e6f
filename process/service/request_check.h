// Whether a request can be served as it describes itself.
//
// Nothing behind this check tests a count, length or offset of the request again, so everything
// that could lead a record, a key field or a block out of its place is refused here, with 1406,
// before any record or block is touched:
//
//     always                      blockPages below 1 or above pagesPerBlock; fileBlocks,
//                                 recordCount or limitCount negative
//     with two or more records    no records per block; records of no bytes; records that do not
//                                 fit their block or would start at byte 65536 of it or later; more
//                                 records than fileBlocks hold; a sort key, its null indicator or a
//                                 field that the sort mode uses outside the record; in sort mode 7
//                                 a level that overlaps the fields that the sort writes
//
// Why no comparison reads beyond the slot: a record ends inside its block, a block inside its
// frame, and frames and the pivot's copy inside the frame area. A key's field ends inside the
// record (keyFieldBytes), and the content of a prefixed value with it (KeyRule::contentBytes).
// Digits are loaded eight bytes at a time from where a value has at least one, so at most seven
// bytes are read behind a record's end, of which none counts; behind the frame area stand the page
// descriptors. A key that reads no byte may stand anywhere and is never loaded from.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Raises 1406. Needs the request's words and key list in the job.
void checkRequest(SortJob& job);

}  // namespace tvsort
