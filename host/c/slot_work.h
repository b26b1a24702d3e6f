// One slot of a server as the C interface works with it: it starts the process again when an
// earlier call has ended it, and reads results block by block.
//
// A process that has been asked and has not answered, because somebody cancelled or the time ran
// out, is ended at once: it would go on sorting for nobody.

#pragma once

#include <mutex>
#include <span>
#include <vector>

#include "host/sort_server.h"

namespace tvsort::capi {

class SlotWork {
  public:
    // Processes say hello at one door, so only one of a server is started at a time.
    SlotWork(host::SortSlot& slot, std::mutex& door) : slot_(slot), door_(door) {}

    host::SortSlot& slot() { return slot_; }
    // Starts the process if there is none.
    void ensureStarted();
    // `SortSlot::ask`, with a process that is ended when it fails. Throws the answer's code.
    SortReply ask(const host::RequestBuilder& request, const host::Geometry& geometry,
                  const host::Extent& extent);
    // For the next call to start another.
    void stop() noexcept;

  private:
    host::SortSlot& slot_;
    std::mutex& door_;
    bool isStarted_ = false;
};

// The records of a result, one block after the other, where they lie. The process has the slot
// before its eyes all the time, so who reads a number in a record loads it once and bounds it.
class ResultReader {
  public:
    ResultReader(host::SortSlot& slot, const host::Geometry& geometry, std::int64_t recordCount)
        : slot_(&slot), geometry_(geometry), left_(recordCount) {}

    // The next records, all that stand in one block; empty at the end. Good until the next call.
    std::span<const Byte> next();
    std::int64_t left() const { return left_; }

  private:
    host::SortSlot* slot_;
    host::Geometry geometry_;
    std::int64_t left_;
    std::int32_t blockIndex_ = 0;
    std::vector<Byte> spilled_;
};

}  // namespace tvsort::capi
