// A sort as the command sees it, whatever its records are.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "tools/formats/record_field.h"
#include "tools/run/memory_plan.h"
#include "tools/run/sort_once.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

// What each of some processes gets.
struct SlotPlan {
    MemoryPlan memory;
    int slotCount;
};

class Sorting {
  public:
    virtual ~Sorting() = default;
    // Bytes of the records that the process gets, in the first request.
    virtual std::uint16_t recordLength() const = 0;
    virtual std::vector<RecordField> fields() const = 0;
    // Of the sort's memory, one of so many parts is not the process's; 0: all is.
    virtual std::uint64_t memoryShare() const = 0;
    // Where the sort knows what slots it needs.
    virtual std::optional<SlotPlan> slotPlan() const { return std::nullopt; }
    // Reads all inputs and writes the output, with as many requests as that takes.
    virtual SortStats run(const SortOnce& sortOnce) = 0;
    // The same without the end of the output.
    virtual SortStats shape(const SortOnce& sortOnce) = 0;
    // What is to be done as soon as no request follows, while there is still work.
    void setAfterRequests(std::function<void()> action) { afterRequests_ = std::move(action); }

  protected:
    void endRequests() const {
        if (afterRequests_) afterRequests_();
    }

  private:
    std::function<void()> afterRequests_;
};

}  // namespace tvsort::tools
