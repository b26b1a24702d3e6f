// Preloaded into the built sort process: makes the system calls that the plan names go wrong, and
// counts the calls for heap memory. Its slot ends at pages without access.
//
// It goes straight to the kernel, so that it needs nothing that it might itself replace.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>

#include "tests/fault/fault_plan.h"
#include "tests/fault/guarded_mapping.h"

using tvsort::test::Call;
using tvsort::test::Deed;
using tvsort::test::FaultPlan;

namespace {

FaultPlan* plan = nullptr;
int connectedSocket = -1;

__attribute__((constructor)) void mapPlan() {
    const char* const path = getenv(tvsort::test::kPlanVariable);
    if (path == nullptr) return;
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR));
    if (fd < 0) _exit(125);
    const long start =
        syscall(SYS_mmap, nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    syscall(SYS_close, fd);
    if (start == -1) _exit(125);
    plan = reinterpret_cast<FaultPlan*>(start);  // NOLINT(performance-no-int-to-ptr)
    // What the loader and a program before this one took does not count.
    plan->heapCalls = 0;
}

void logCall(Call call) {
    const std::int32_t place = plan->logCount;
    if (place == tvsort::test::kLogCallsMax) return;
    plan->log[place] = call;
    plan->logCount = place + 1;
}

// Whether this call is one of those that go wrong; sets errno for those that fail.
bool strikes(Call call) {
    if (plan == nullptr) return false;
    const bool onFile = call == Call::kSeek || call == Call::kReadFile || call == Call::kWriteFile;
    if (onFile) logCall(call);
    const Call planned = plan->call;
    if (planned != call && !(onFile && planned == Call::kAnyOnFile)) return false;
    const std::int32_t number = ++plan->seen;
    if (number < plan->first || number > plan->last) return false;
    ++plan->injected;
    errno = plan->systemError;
    return true;
}

template <typename Transfer>
ssize_t moveBytes(Call call, std::size_t byteCount, const Transfer& transfer) {
    if (!strikes(call)) return transfer(byteCount);
    if (plan->deed == Deed::kFail) return -1;
    if (plan->deed == Deed::kNothing) return 0;
    return transfer(byteCount > 1 ? byteCount / 2 : byteCount);
}

void countHeapCall() {
    if (plan != nullptr) ++plan->heapCalls;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    if (strikes(Call::kOpen)) return -1;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);  // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(arguments);
    if (strikes(Call::kFcntl)) return -1;
    return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
}

int close(int fd) {
    // A close that reports a failure has closed the descriptor all the same.
    if (syscall(SYS_close, fd) != 0 || strikes(Call::kClose)) return -1;
    return 0;
}

int fstat(int fd, struct stat* status) noexcept {
    if (strikes(Call::kFstat)) return -1;
    return static_cast<int>(syscall(SYS_fstat, fd, status));
}

void* mmap(void* start, size_t bytes, int protection, int flags, int fd, off_t offset) noexcept {
    if (fd >= 0 && strikes(Call::kMmap)) return MAP_FAILED;
    return tvsort::test::mapGuarded(start, bytes, protection, flags, fd, offset);
}

int socket(int domain, int type, int protocol) noexcept {
    if (strikes(Call::kSocket)) return -1;
    connectedSocket = static_cast<int>(syscall(SYS_socket, domain, type, protocol));
    return connectedSocket;
}

int connect(int fd, const struct sockaddr* address, socklen_t addressBytes) {
    if (strikes(Call::kConnect)) return -1;
    return static_cast<int>(syscall(SYS_connect, fd, address, addressBytes));
}

int setsockopt(int fd, int level, int option, const void* value, socklen_t valueBytes) noexcept {
    if (strikes(Call::kSetsockopt)) return -1;
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, option, value, valueBytes));
}

off_t lseek(int fd, off_t offset, int whence) noexcept {
    if (strikes(Call::kSeek)) return -1;
    return syscall(SYS_lseek, fd, offset, whence);
}

ssize_t read(int fd, void* target, size_t byteCount) {
    const Call call = fd == connectedSocket ? Call::kReadSocket : Call::kReadFile;
    return moveBytes(call, byteCount,
                     [&](std::size_t here) { return syscall(SYS_read, fd, target, here); });
}

ssize_t write(int fd, const void* source, size_t byteCount) {
    const Call call = fd == connectedSocket ? Call::kWriteSocket : Call::kWriteFile;
    return moveBytes(call, byteCount,
                     [&](std::size_t here) { return syscall(SYS_write, fd, source, here); });
}

int rand() noexcept {
    if (plan == nullptr) return 0;
    const std::uint32_t next = plan->randomState * 1103515245U + 12345U;
    plan->randomState = next;
    return static_cast<int>((next >> 1) & RAND_MAX);
}

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

void* malloc(size_t byteCount) noexcept {
    countHeapCall();
    return __libc_malloc(byteCount);
}

void* calloc(size_t count, size_t byteCount) noexcept {
    countHeapCall();
    return __libc_calloc(count, byteCount);
}

void* realloc(void* block, size_t byteCount) noexcept {
    countHeapCall();
    return __libc_realloc(block, byteCount);
}

// What an instrumented build writes at the end is no concern of the plan.
void exit(int status) noexcept {
    if (plan != nullptr) plan->call = Call::kNone;
    using Exit = void (*)(int);
    reinterpret_cast<Exit>(dlsym(RTLD_NEXT, "exit"))(status);
    __builtin_unreachable();
}

}  // extern "C"
