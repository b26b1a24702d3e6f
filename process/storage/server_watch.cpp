#include "process/storage/server_watch.h"

#include <errno.h>
#include <poll.h>

#include <cstdlib>

#include "process/job/notice.h"
#include "process/storage/work_file.h"

namespace tvsort {

void endWithoutReply(SortJob& job, int systemError) {
    sayFormatted(" TVSORT -- send msg error : %u\n", static_cast<unsigned>(systemError));
    closeWorkFile(job);
    exit(0);
}

void watchServer(SortJob& job, std::size_t byteCount) {
    job.unwatchedBytes += byteCount;
    if (job.unwatchedBytes < kUnwatchedBytesMax) return;
    job.unwatchedBytes = 0;
    // No event is asked for: a hang-up is told all the same.
    pollfd socket = {job.socketFd, 0, 0};
    if (poll(&socket, 1, 0) < 1 || (socket.revents & POLLHUP) == 0) return;
    endWithoutReply(job, EPIPE);
}

}  // namespace tvsort
