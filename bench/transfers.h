// Cells of tables: time, and what a request moved between frames and work file.

#pragma once

#include <string>
#include <vector>

#include "bench/contest.h"

namespace tvsort::bench {

using Cells = std::vector<std::string>;

Cells joined(Cells left, const Cells& right);

inline const Cells kTimeColumns = {"ns/record", "ns/record/log2"};
Cells timeCells(const Options& options, const Series& series, std::size_t recordCount);

inline const Cells kTransferColumns = {"data/memory", "levels", "reads/block", "writes/block",
                                       "bytes moved/byte"};
// Of the last request of the series: calls by the data's blocks, bytes by the blocks' bytes.
Cells transferCells(const Options& options, const Workload& workload, const Situation& situation,
                    const Series& series, std::size_t recordCount);

}  // namespace tvsort::bench
