// What the reply to a request can say. A process that is broken, or is another program than it
// should be, says anything; what cannot be must not be believed, for the result is read by it.
//
//     sort mode         records, of n             blocks that they lie in
//     0, 7, 8, 9        n; with a limit of K      those of the request
//                       min(K, n) to n
//     1, 10 to 255      1 to n                    those that they fill
//     2                 n                         those that they fill
//     3 to 6            0 to n                    those that they fill
//     any, n below 2    n                         those of the request
//
// Groups, 1 to n of them, are counted in mode 2 alone; with n below 2 they are n in every mode, and
// else nobody looks at them. Record length and pages per block are the request's.
//
// Whether the records are those that were sent, and in order, is not checked: that takes as long as
// sorting them. Whoever reads a result trusts no length and no place in it.

#pragma once

#include <string>

#include "host/request_builder.h"
#include "protocol/messages.h"

namespace tvsort::host {

// What in the reply cannot be, to follow "the process ..."; empty where all can be.
std::string replyFault(const RequestBuilder& request, const Geometry& geometry,
                       const Extent& extent, const SortReply& reply);

}  // namespace tvsort::host
