// The entry of the sort process. Its status is 0 on every path; what there is to say stands on
// standard output.

#include "process/service/channel.h"
#include "process/service/request_loop.h"
#include "process/service/start_up.h"

namespace {

// All of the process's state but its scratch areas: static, so that it is zero-filled and needs
// neither heap nor stack.
tvsort::SortJob sortJob;

}  // namespace

int main(int argumentCount, char** arguments) {
    if (!tvsort::startUp(sortJob, argumentCount, arguments)) return 0;
    tvsort::openChannel(sortJob);
    sortJob.framesPerBlock = 1;
    sortJob.hashBlocks = sortJob.memoryBlocks;
    tvsort::serveRequests(sortJob);
}
