#include "service/channel.h"

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

#include "service/slot_layout.h"
#include "storage/work_file.h"

namespace tvsort {

namespace {

constexpr int kInstanceDefault = 20561;
constexpr char kSocketDirectoryDefault[] = "/tmp/tavrin";
// A directory of more characters is ignored: with the socket's name it would exceed 255.
constexpr std::size_t kSocketDirectoryCharsMax = 255 - 28;

// The bytes of the last message that did not fit into the message buffer.
Byte messageTail[kMessageBytesMax - kMessageBufferBytes];

[[noreturn]] void endProcess() {
    exit(0);
}

[[noreturn]] void endAfterSocketFailure(const SortJob& job, const char* format, int systemError) {
    printf(format, systemError);
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
        printf(" TVSORT %d  -- can't map shm object. Errno %d", job.slotNumber, errno);
        endProcess();
    }
    closeObject(job);
    Byte* const slot = static_cast<Byte*>(start);
    job.shmBase = slot;
    job.message = slot;
    job.frameArea = slot + layout.frameAreaOffset();
    job.pageDescriptors = reinterpret_cast<PageDescriptor*>(slot + layout.pageDescriptorsOffset());
    job.hashTable = reinterpret_cast<std::int32_t*>(slot + layout.hashTableOffset());
}

void setBufferSize(const SortJob& job, int option, const char* failureFormat) {
    const int bytes = kMessageBytesMax;
    if (setsockopt(job.socketFd, SOL_SOCKET, option, &bytes, sizeof bytes) != 0) {
        endAfterSocketFailure(job, failureFormat, errno);
    }
}

void connectToServer(SortJob& job) {
    constexpr char kConnectFailed[] = "Tavrin Sort: can't connect to tavrin %d\n";
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const int pathLength = snprintf(address.sun_path, sizeof address.sun_path,
                                    "%s/tavrin.internal.%d", socketDirectory(), instanceNumber());
    job.socketFd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (job.socketFd < 0) {
        printf("Tavrin Sort: can't create socket %d\n", errno);
        endProcess();
    }
    if (pathLength < 0 || static_cast<std::size_t>(pathLength) >= sizeof address.sun_path) {
        endAfterSocketFailure(job, kConnectFailed, ENAMETOOLONG);
    }
    // The family field, the path and its terminating zero.
    const auto addressLength = static_cast<socklen_t>(sizeof address.sun_family +
                                                      static_cast<std::size_t>(pathLength) + 1);
    if (connect(job.socketFd, reinterpret_cast<const sockaddr*>(&address), addressLength) != 0) {
        endAfterSocketFailure(job, kConnectFailed, errno);
    }
    setBufferSize(job, SO_SNDBUF, "Tavrin Sort: can't set socket send buffer %d\n");
    setBufferSize(job, SO_RCVBUF, "Tavrin Sort: can't set socket recv buffer %d\n");
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

void openChannel(SortJob& job) {
    job.processId = getpid();
    mapSlot(job);
    connectToServer(job);
    sendReply(job);       // the hello
    receiveMessage(job);  // the answer; a work file that did not open is reported at start-up
}

bool receiveMessage(SortJob& job) {
    readFully(job, job.message, kLengthWordBytes);
    const std::uint32_t length = messageBytes(job);
    if (length > kMessageBytesMax || length < kMessageBytesMin) {
        // Where the next message starts is unknown: nothing more can be read.
        printf("WARNING: TVSORT - too %s message received - %d size. \n",
               length > kMessageBytesMax ? "long" : "short", static_cast<int>(length));
        close(job.socketFd);
        stopProcess(job);
    }
    const std::size_t bufferedBytes = std::min<std::size_t>(length, kMessageBufferBytes);
    readFully(job, job.message + kLengthWordBytes, bufferedBytes - kLengthWordBytes);
    readFully(job, messageTail, length - bufferedBytes);

    const char* const name =
        reinterpret_cast<const char*>(job.message + offsetof(SortRequest, workDirName));
    if (memcmp(name, kShutdownName, kDirectoryNameBytes) == 0) stopProcess(job);
    if (job.workFileOpen == 0) openWorkFile(job, name);
    return job.workFileOpen == 1;
}

std::uint32_t messageBytes(const SortJob& job) {
    return loadU32(job.message);
}

void copyFromMessage(const SortJob& job, std::size_t offset, void* target, std::size_t byteCount) {
    Byte* const bytes = static_cast<Byte*>(target);
    std::size_t fromBuffer = 0;
    if (offset < kMessageBufferBytes) {
        fromBuffer = std::min(byteCount, kMessageBufferBytes - offset);
        memcpy(bytes, job.message + offset, fromBuffer);
    }
    if (fromBuffer < byteCount) {
        memcpy(bytes + fromBuffer, messageTail + (offset + fromBuffer - kMessageBufferBytes),
               byteCount - fromBuffer);
    }
}

void sendReply(SortJob& job) {
    storeAs<std::int32_t>(job.message + offsetof(SortReply, processId), job.processId);
    storeAs<std::uint32_t>(job.message + offsetof(SortReply, errorCode),
                           static_cast<std::uint32_t>(job.errorCode));
    storeAs<std::uint32_t>(job.message + offsetof(SortReply, length), sizeof(SortReply));
    // 80 bytes fit the socket's buffer whole; a count, whatever it is, ends the operation.
    while (write(job.socketFd, job.message, sizeof(SortReply)) < 0) {
        if (errno == EAGAIN || errno == EINTR) continue;
        printf(" TVSORT -- send msg error : %u\n", static_cast<unsigned>(errno));
        stopProcess(job);
    }
}

void stopProcess(SortJob& job) {
    closeWorkFile(job);
    endProcess();
}

}  // namespace tvsort
