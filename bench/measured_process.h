// The running process as a contender: records in, records out, and what it cost in between.

#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "host/sort_server.h"
#include "service/bytes.h"

namespace tvsort::bench {

struct Cost {
    double wallSeconds = 0;
    double cpuSeconds = 0;  // of the contender alone; 0 where nobody counted
    std::int64_t readBytes = 0;
    std::int64_t writtenBytes = 0;
    std::int64_t readCalls = 0;
    std::int64_t writeCalls = 0;

    std::int64_t movedBytes() const { return readBytes + writtenBytes; }
};

class MeasuredProcess {
  public:
    // One process with `memoryPages` of memory and its work file in `workDirectory`.
    MeasuredProcess(const std::filesystem::path& program, const host::Geometry& geometry,
                    std::int32_t memoryPages, const std::filesystem::path& workDirectory);

    // Lays the records into the slot, has them sorted and reads them to `result`, which is as
    // large. The cost is that of the request alone, from its sending to its reply. An answer with
    // an error code is thrown.
    Cost sort(const host::RequestBuilder& request, std::span<const Byte> records,
              std::span<Byte> result);

    // Data blocks per frame.
    double dataPerMemory(std::size_t recordCount) const;

  private:
    host::Geometry geometry_;
    host::SortServer server_;
};

}  // namespace tvsort::bench
