// Notices, in the midst of a request, that the server has gone.
//
// A small request can stand for hours of work, on a large file or with keys that need all siblings
// compared. Who hangs up waits for no answer, so the process looks at its socket now and then while
// it moves blocks and compares records, and ends when the other side is closed. A message that
// arrives early is no reason, nor is a server that only sends no more.

#pragma once

#include <cstddef>

#include "process/job/sort_job.h"

namespace tvsort {

// How much may be moved to or from the work file, or compared, between two looks, in bytes. A look
// costs less than moving one page.
inline constexpr std::size_t kUnwatchedBytesMax = std::size_t{1} << 20;

// Says on standard output why the reply cannot be sent, closes the work file and ends the process
// with status 0.
[[noreturn]] void endWithoutReply(SortJob& job, int systemError);

// To be called before `byteCount` bytes of the work file are moved, or of records compared. Ends
// the process as a reply that cannot be sent does, where the server has hung up.
void watchServer(SortJob& job, std::size_t byteCount);

}  // namespace tvsort
