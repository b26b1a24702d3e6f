// Memory in whole pages that costs nothing until it is touched.
//
// The system is not asked for large pages. Where it has to make them first, as virtual machines do
// that give memory back to their host, they cost three times what small ones do that are at hand.

#pragma once

#include <sys/mman.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

class PageMemory {
  public:
    PageMemory() = default;
    explicit PageMemory(std::size_t byteCount) : byteCount_(byteCount) {
        if (byteCount == 0) return;
        void* const start = mmap(nullptr, byteCount, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (start == MAP_FAILED) {
            throw host::systemFailure("cannot get " + std::to_string(byteCount) + " bytes", errno,
                                      "give less --memory or raise the limit of address space");
        }
        start_ = static_cast<char*>(start);
    }
    ~PageMemory() {
        if (start_ != nullptr) munmap(start_, byteCount_);
    }
    PageMemory(PageMemory&& other) noexcept
        : start_(std::exchange(other.start_, nullptr)),
          byteCount_(std::exchange(other.byteCount_, 0)) {}
    PageMemory& operator=(PageMemory&& other) noexcept {
        std::swap(start_, other.start_);
        std::swap(byteCount_, other.byteCount_);
        return *this;
    }

    char* data() const { return start_; }
    std::size_t size() const { return byteCount_; }

  private:
    char* start_ = nullptr;
    std::size_t byteCount_ = 0;
};

}  // namespace tvsort::tools
