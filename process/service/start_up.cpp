#include "process/service/start_up.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <limits>

#include "process/collation/collation_file.h"
#include "process/job/notice.h"
#include "protocol/slot_layout.h"

namespace tvsort {

namespace {

// The program's name stands before the five arguments.
constexpr int kArgumentCountMin = 6;
constexpr long kSlotNumberMax = std::numeric_limits<std::uint16_t>::max();
constexpr int kStandardDescriptors = 3;
constexpr int kInheritedDescriptorMax = 255;

struct Number {
    std::int32_t value;  // the nearest one that fits
    bool whole;          // all of the text was a number, and it fits
};

Number parseNumber(const char* text, int base) {
    using Limits = std::numeric_limits<std::int32_t>;
    char* end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, base);
    if (value < Limits::min()) return {Limits::min(), false};
    if (value > Limits::max()) return {Limits::max(), false};
    return {static_cast<std::int32_t>(value), end != text && *end == '\0' && errno == 0};
}

bool memoryIsUsable(std::int32_t memoryPages, std::int32_t pagesPerBlock) {
    if (pagesPerBlock < 1) return false;
    if (memoryPages < std::int64_t{kMemoryBlocksMin} * pagesPerBlock) return false;
    const SlotLayout layout = {memoryPages / pagesPerBlock, pagesPerBlock};
    return layout.frameAreaBytes() <= kFrameAreaBytesMax;
}

bool takeArguments(SortJob& job, char** arguments) {
    const Number memoryPages = parseNumber(arguments[1], 10);
    const Number slotNumber = parseNumber(arguments[2], 10);
    const Number shmFd = parseNumber(arguments[3], 10);
    const Number pagesPerBlock = parseNumber(arguments[5], 0);
    const bool good = memoryPages.whole && slotNumber.whole && shmFd.whole && pagesPerBlock.whole &&
                      slotNumber.value >= 1 && slotNumber.value <= kSlotNumberMax &&
                      memoryIsUsable(memoryPages.value, pagesPerBlock.value);
    if (!good) {
        sayFormatted(" Bad sorting process arguments (only %d memory pages, %d pages per block)\n",
                     memoryPages.value, pagesPerBlock.value);
        return false;
    }
    job.slotNumber = static_cast<std::uint16_t>(slotNumber.value);
    job.shmFd = shmFd.value;
    job.directoryPrefix = arguments[4];
    job.pagesPerBlock = pagesPerBlock.value;
    job.blockPages = pagesPerBlock.value;
    job.memoryBlocks = memoryPages.value / pagesPerBlock.value;
    return true;
}

// Where the server left one of the three standard descriptors closed, the socket or the work file
// would take its number, and a line for stdout would end up there.
void occupyStandardDescriptors() {
    for (int fd = 0; fd < kStandardDescriptors; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);
    }
}

void closeInheritedDescriptors(int keptDescriptor) {
    for (int fd = kStandardDescriptors; fd <= kInheritedDescriptorMax; ++fd) {
        if (fd != keptDescriptor) close(fd);
    }
}

// A page of the shared object or of the collation file went away under the mapping: the server or
// an operator cut the file. Nothing can be answered without the slot.
void endAfterBusError(int) {
    say(" TVSORT -- mapped memory is gone\n");
    _exit(0);
}

// The process ends with status 0 on every path, so a signal must not end it where a failed call
// can say the same: a broken socket gives EPIPE, a file at its size limit EFBIG.
void arrangeSignals() {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGBUS, endAfterBusError);
}

}  // namespace

bool startUp(SortJob& job, int argumentCount, char** arguments) {
    if (argumentCount < kArgumentCountMin) return false;
    occupyStandardDescriptors();
    arrangeSignals();
    if (!takeArguments(job, arguments)) return false;
    closeInheritedDescriptors(job.shmFd);
    loadCollation(job.directoryPrefix);
    return true;
}

}  // namespace tvsort
