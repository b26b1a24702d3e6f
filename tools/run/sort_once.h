// One request to the sort process, as the parts of a sort see it.

#pragma once

#include <functional>

#include "host/data_set.h"
#include "host/request_builder.h"
#include "tools/run/sort_stats.h"

namespace tvsort::tools {

// Loads the source's records, has them sorted and hands the result to the sink, in order. Throws
// the process's codes as host::HostError.
using SortOnce =
    std::function<SortStats(const host::RequestBuilder& request, const host::RecordSource& source,
                            const host::RecordSink& sink)>;

}  // namespace tvsort::tools
