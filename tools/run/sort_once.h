// One request to the sort process, as the parts of a sort see it.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "host/data_set.h"
#include "host/request_builder.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

struct SortRequest {
    host::RequestBuilder request;
    std::uint16_t recordLength = 0;
    // The part of several that a record belongs to, below the number of processes, in the order of
    // the keys; none where one process sorts.
    std::function<std::size_t(const Byte* record)> partOf;
    // The slot that sorts it, from 0, where one does. Those of different slots may be served at
    // once.
    std::size_t slotIndex = 0;
};

// Loads the source's records, has them sorted and hands the result to the sink, in order. Throws
// the process's codes as host::HostError.
using SortOnce = std::function<SortStats(
    const SortRequest& request, const host::RecordSource& source, const host::RecordSink& sink)>;

}  // namespace tvsort::tools
