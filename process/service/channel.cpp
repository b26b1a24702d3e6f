#include "process/service/channel.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "process/job/notice.h"
#include "process/service/system_call_filter.h"
#include "process/storage/page_pool.h"
#include "process/storage/server_watch.h"
#include "process/storage/work_file.h"
#include "protocol/slot_layout.h"

namespace tvsort {

namespace {

constexpr int kInstanceDefault = 20561;
constexpr char kSocketDirectoryDefault[] = "/tmp/tavrin";
// A directory of more characters is ignored: with the socket's name it would exceed 255.
constexpr std::size_t kSocketDirectoryCharsMax = 255 - 28;

// The last message.
Byte received[kMessageBytesMax];

[[noreturn]] void endProcess() {
    exit(0);
}

[[noreturn]] void endAfterSocketFailure(const SortJob& job, const char* what, int systemError) {
    sayFormatted("Tavrin Sort: can't %s %d\n", what, systemError);
    close(job.socketFd);
    endProcess();
}

int instanceNumber() {
    const char* const instance = getenv("TAVRIN_MBX");
    if (instance == nullptr) return kInstanceDefault;
    return static_cast<int>(strtol(instance, nullptr, 10));
}

const char* socketDirectory() {
    const char* const directory = getenv("TAVRIN_TMP");
    if (directory == nullptr || strlen(directory) > kSocketDirectoryCharsMax) {
        return kSocketDirectoryDefault;
    }
    return directory;
}

// A mapping may reach beyond the end of the object, but touching it there would end the process by
// signal. False, with errno set, when the slot does not lie inside.
bool objectHolds(int fd, std::int64_t end) {
    struct stat status;
    if (fstat(fd, &status) != 0) return false;
    const std::int64_t wholePages = (status.st_size + kPageBytes - 1) & ~(kPageBytes - 1);
    if (!S_ISREG(status.st_mode) || end <= wholePages) return true;
    errno = ENXIO;
    return false;
}

// The mapping stays without it, and nobody can do anything else to the object through this process.
// The place of a standard stream is kept: the socket would take it.
void closeObject(SortJob& job) {
    if (job.shmFd > STDERR_FILENO) close(job.shmFd);
    job.shmFd = -1;
}

void mapSlot(SortJob& job) {
    const SlotLayout layout = {job.memoryBlocks, job.pagesPerBlock};
    const std::int64_t offset = layout.slotOffset(job.slotNumber);
    void* start = MAP_FAILED;
    if (objectHolds(job.shmFd, offset + layout.slotBytes())) {
        start = mmap(nullptr, static_cast<std::size_t>(layout.slotBytes()), PROT_READ | PROT_WRITE,
                     MAP_SHARED, job.shmFd, offset);
    }
    if (start == MAP_FAILED) {
        sayFormatted(" TVSORT %d  -- can't map shm object. Errno %d", job.slotNumber, errno);
        endProcess();
    }
    closeObject(job);
    attachSlot(job, static_cast<Byte*>(start));
}

void setBufferSize(const SortJob& job, int option, const char* what) {
    const int bytes = kMessageBytesMax;
    if (setsockopt(job.socketFd, SOL_SOCKET, option, &bytes, sizeof bytes) != 0) {
        endAfterSocketFailure(job, what, errno);
    }
}

void connectToServer(SortJob& job) {
    constexpr char kConnect[] = "connect to tavrin";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const int pathLength = snprintf(address.sun_path, sizeof address.sun_path,
                                    "%s/tavrin.internal.%d", socketDirectory(), instanceNumber());
    job.socketFd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (job.socketFd < 0) {
        sayFormatted("Tavrin Sort: can't create socket %d\n", errno);
        endProcess();
    }
    if (pathLength < 0 || static_cast<std::size_t>(pathLength) >= sizeof address.sun_path) {
        endAfterSocketFailure(job, kConnect, ENAMETOOLONG);
    }
    // The family field, the path and its terminating zero.
    const auto addressLength = static_cast<socklen_t>(sizeof address.sun_family +
                                                      static_cast<std::size_t>(pathLength) + 1);
    if (connect(job.socketFd, reinterpret_cast<const sockaddr*>(&address), addressLength) != 0) {
        endAfterSocketFailure(job, kConnect, errno);
    }
    setBufferSize(job, SO_SNDBUF, "set socket send buffer");
    setBufferSize(job, SO_RCVBUF, "set socket recv buffer");
}

// Reads exactly `byteCount` bytes. The end of the stream and every failure but an interrupted call
// end the process.
void readFully(SortJob& job, Byte* target, std::size_t byteCount) {
    while (byteCount > 0) {
        const ssize_t moved = read(job.socketFd, target, byteCount);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) stopProcess(job);
        target += moved;
        byteCount -= static_cast<std::size_t>(moved);
    }
}

}  // namespace

void attachSlot(SortJob& job, Byte* slot) {
    const SlotLayout layout = {job.memoryBlocks, job.pagesPerBlock};
    job.shmBase = slot;
    job.message = slot;
    job.frameArea = slot + layout.frameAreaOffset();
    job.shownPageDescriptors =
        reinterpret_cast<PageDescriptor*>(slot + layout.pageDescriptorsOffset());
    job.shownHashTable = reinterpret_cast<std::int32_t*>(slot + layout.hashTableOffset());
    attachPool(job);
}

void openChannel(SortJob& job) {
    job.processId = getpid();
    mapSlot(job);
    connectToServer(job);
    job.reply = loadAs<SortReply>(job.message);
    restrictSystemCalls(job);
    sendReply(job);       // the hello
    receiveMessage(job);  // the answer; a work file that did not open is reported at start-up
}

bool receiveMessage(SortJob& job) {
    readFully(job, received, kLengthWordBytes);
    memcpy(job.message, received, kLengthWordBytes);
    const std::uint32_t length = messageBytes();
    if (length > kMessageBytesMax || length < kMessageBytesMin) {
        // Where the next message starts is unknown: nothing more can be read.
        sayFormatted("WARNING: TVSORT - too %s message received - %d size. \n",
                     length > kMessageBytesMax ? "long" : "short", static_cast<int>(length));
        close(job.socketFd);
        stopProcess(job);
    }
    readFully(job, received + kLengthWordBytes, length - kLengthWordBytes);
    memcpy(job.message, received, std::min<std::size_t>(length, kMessageBufferBytes));
    // A message shorter than a reply leaves what the buffer held behind it. The rest is taken from
    // the private copy: in the buffer another writer could have put a shutdown.
    job.reply = loadAs<SortReply>(job.message);
    memcpy(&job.reply, received, std::min<std::size_t>(length, sizeof job.reply));

    char name[kDirectoryNameBytes];
    memcpy(name, reinterpret_cast<const Byte*>(&job.reply) + offsetof(SortRequest, workDirName),
           sizeof name);
    if (memcmp(name, kShutdownName, kDirectoryNameBytes) == 0) stopProcess(job);
    if (job.workFileOpen == 0) {
        openWorkFile(job, name);
        if (job.workFileOpen == 1) refuseOpening(job);
    }
    return job.workFileOpen == 1;
}

std::uint32_t messageBytes() {
    return loadU32(received);
}

void copyFromMessage(std::size_t offset, void* target, std::size_t byteCount) {
    memcpy(target, received + offset, byteCount);
}

void sendReply(SortJob& job) {
    job.reply.length = sizeof(SortReply);
    job.reply.processId = job.processId;
    job.reply.errorCode = static_cast<std::uint32_t>(job.errorCode);
    storeAs(job.message, job.reply);
    // 80 bytes fit the socket's buffer whole; a count, whatever it is, ends the operation.
    while (write(job.socketFd, &job.reply, sizeof(SortReply)) < 0) {
        if (errno == EAGAIN || errno == EINTR) continue;
        endWithoutReply(job, errno);
    }
}

void stopProcess(SortJob& job) {
    closeWorkFile(job);
    endProcess();
}

}  // namespace tvsort
