// A slot as tests give it to the process: memory that ends at pages without access.
//
//     +----------------+----------------+----------------+
//     |  no access     |  slot          |  no access     |
//     +----------------+----------------+----------------+
//       4 GiB                             4 GiB
//
// A record's place is an offset of 32 bits, so none reaches over the pages behind: whoever leaves
// the slot ends the program. Inside it the address sanitizer can watch what a request has no
// business to touch.

#pragma once

#include "process/job/sort_job.h"
#include "protocol/messages.h"
#include "protocol/slot_layout.h"

namespace tvsort::test {

class GuardedSlot {
  public:
    // Zero-filled.
    explicit GuardedSlot(const SlotLayout& layout);
    ~GuardedSlot();
    GuardedSlot(const GuardedSlot&) = delete;
    GuardedSlot& operator=(const GuardedSlot&) = delete;

    Byte* start() const { return start_; }
    // Puts the slot, and the memory that it divides, into the job.
    void giveTo(SortJob& job) const;

    // Until `unpoison`, the sanitizer reports accesses behind the records of the request's blocks
    // and its pivot, in frames without records, and behind the slot's last region. Seven bytes
    // behind the records stay free, which fast ways load and do not look at, and so does the room
    // of two entries for each record. Where frames go to the work file whole, or there may be a
    // copy in them, only the slot's end is watched.
    void poisonUnused(const SortRequest& request) const;
    void unpoison() const;

  private:
    void poison(std::int64_t from, std::int64_t to) const;

    SlotLayout layout_;
    Byte* start_;
};

}  // namespace tvsort::test
