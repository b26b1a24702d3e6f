// `tvsort-host sort`: files through the sort process.
//
//     input -> load -> frames, work file -> the process sorts -> read -> output
//
// Records stream; only the process's memory limits what is held at once.

#pragma once

#include "tools/command/sort_setup.h"

namespace tvsort::tools {

// Sorts as the options say, with words on standard error for --groups and --stats, and answers the
// status; throws when it cannot.
int sortFile(const SortOptions& options);

}  // namespace tvsort::tools
