// Memory maps inside the built process, by the shims: what is shared and written to, its slot, gets
// pages without access before and behind, so that whoever leaves it ends the process.
//
// Goes straight to the kernel; fails as the kernel does.

#pragma once

#include <errno.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>

namespace tvsort::test {

// More than a record; small enough for a process whose address space is bounded.
inline constexpr std::size_t kMappingGuardBytes = std::size_t{128} << 10;

inline void* mapByKernel(void* start, std::size_t bytes, int protection, int flags, int fd,
                         off_t offset) {
    const long result = syscall(SYS_mmap, start, bytes, protection, flags, fd, offset);
    return reinterpret_cast<void*>(result);  // NOLINT(performance-no-int-to-ptr)
}

inline void* mapGuarded(void* start, std::size_t bytes, int protection, int flags, int fd,
                        off_t offset) {
    const bool isSlot = start == nullptr && (protection & PROT_WRITE) != 0 &&
                        (flags & (MAP_SHARED | MAP_PRIVATE)) == MAP_SHARED;
    if (!isSlot) return mapByKernel(start, bytes, protection, flags, fd, offset);
    const std::size_t guardedBytes = bytes + 2 * kMappingGuardBytes;
    void* const guarded = mapByKernel(nullptr, guardedBytes, PROT_NONE,
                                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (guarded == MAP_FAILED) return MAP_FAILED;
    void* const mapped = mapByKernel(static_cast<char*>(guarded) + kMappingGuardBytes, bytes,
                                     protection, flags | MAP_FIXED, fd, offset);
    if (mapped == MAP_FAILED) {
        const int systemError = errno;
        syscall(SYS_munmap, guarded, guardedBytes);
        errno = systemError;
    }
    return mapped;
}

}  // namespace tvsort::test
