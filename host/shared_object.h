// The object in memory that a server shares with its sort processes, in pages of 4 KiB or of 2 MiB.
//
// In small pages it is a memory file with its size sealed: a process that cut it would end this
// side by signal at the next look at a page that is gone. So it is in huge pages where the system
// lets shared memory ask for them (`advise` in
// /sys/kernel/mm/transparent_hugepage/shmem_enabled). Elsewhere huge pages are had from a tmpfs
// mounted with `huge=always`, which nobody else sees: a child makes it in a user and a mount
// namespace of its own, which takes no right, and leaves its one file, without name, to this side.
// Such a file cannot be sealed; what keeps a process from cutting it is that it gives up the
// descriptor when it has mapped it, and may open no other.
//
// Reserved huge pages (hugetlb) are not used: a slot's length is no multiple of theirs.

#pragma once

#include <cstddef>
#include <cstdint>

#include "host/file_descriptor.h"
#include "protocol/bytes.h"

namespace tvsort::host {

enum class HugePages : std::uint8_t {
    kOff,
    kTry,  // where they can be had, and the object is large enough for it to pay
    kOn    // or not at all: kBadUse is thrown
};

class SharedObject {
  public:
    SharedObject() = default;
    // Of so many bytes, zero-filled and mapped; the first page has been touched.
    SharedObject(std::size_t byteCount, HugePages hugePages);
    ~SharedObject();
    SharedObject(SharedObject&& other) noexcept;
    SharedObject& operator=(SharedObject&& other) noexcept;

    // For a process to inherit.
    int descriptor() const { return file_.number(); }
    Byte* start() const { return start_; }
    std::size_t byteCount() const { return byteCount_; }
    bool hasHugePages() const { return hasHugePages_; }

  private:
    SharedObject(FileDescriptor file, std::size_t byteCount, bool advises);

    FileDescriptor file_;
    Byte* start_ = nullptr;
    std::size_t byteCount_ = 0;
    bool hasHugePages_ = false;
};

}  // namespace tvsort::host
