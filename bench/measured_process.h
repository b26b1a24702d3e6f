// The running process as a contender: records in, records out, and what it cost in between.

#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

#include "bench/cost.h"
#include "host/sort_server.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

class MeasuredProcess {
  public:
    // One process with `memoryPages` of fresh memory and its work file below `workDirectory`.
    MeasuredProcess(const std::filesystem::path& program, const host::Geometry& geometry,
                    std::int32_t memoryPages, const std::filesystem::path& workDirectory);

    // Lays the records into the slot, has them sorted and reads them to `result`, which is as
    // large. The cost is that of the request alone, from its sending to its reply. An answer with
    // an error code is thrown.
    Cost sort(const host::RequestBuilder& request, std::span<const Byte> records,
              std::span<Byte> result);

  private:
    host::Geometry geometry_;
    host::SortServer server_;
};

}  // namespace tvsort::bench
