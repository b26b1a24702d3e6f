// Preloaded into the programs that the system tests start: puts pages without access around every
// slot that they map.

#include "tests/fault/guarded_mapping.h"

extern "C" void* mmap(void* start, size_t bytes, int protection, int flags, int fd,
                      off_t offset) noexcept {
    return tvsort::test::mapGuarded(start, bytes, protection, flags, fd, offset);
}
