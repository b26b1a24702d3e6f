// One request to a running server: records in, result out, and what it cost.

#pragma once

#include "host/data_set.h"
#include "host/request_builder.h"
#include "host/sort_server.h"
#include "tools/progress.h"
#include "tools/sort_stats.h"

namespace tvsort::tools {

// The source's records through the process of slot 1 to the sink. Throws the process's codes as
// host::HostError.
SortStats sortThroughSlot(host::SortServer& server, const host::Geometry& geometry,
                          const host::RequestBuilder& request, const host::RecordSource& source,
                          const host::RecordSink& sink, Progress& progress);

}  // namespace tvsort::tools
