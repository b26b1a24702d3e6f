// The request loop: one request after the other, from message to reply.
//
//     receive -> key list -> check -> pool set-up -> order -> flush -> shape -> reload -> reply
//                   |          |                       |        |        |        ^
//                   +----------+--- an error code -----+--------+--------+--------+
//
// Whoever meets a failure leaves a code in the job, and the request goes on at the reload. With a
// data set larger than the pool the frames are filled again from the work file, so that the server
// finds the start of the result in them, after a failure too. The exception is a request refused as
// contradictory (1406): nothing of its data set has been touched, and nothing is.
//
// How the sort modes run:
//
//     mode            ordering           after the flush
//     0, 8, 9         in-memory sort     row limit with ties, when there is a limit
//     7               hierarchy sort     the same
//     1 to 6, 10 up   in-memory sort     compaction

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Serves requests for ever; the channel ends the process. Needs the channel open. An error code
// left by the start-up is answered first.
[[noreturn]] void serveRequests(SortJob& job);

// Serves one request: from its message to its reply.
void serveRequest(SortJob& job);

}  // namespace tvsort
