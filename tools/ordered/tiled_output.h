// All rows of sorted runs, merged and written by several workers.
//
//     runs     [a b c .. | l m .. | t u ..]     tiles: ranges of keys that all runs have in common
//              [a a d .. | n o .. | s w ..]
//     worker   1           2        1            merges a tile, puts its rows together
//     output   [ tile 1   ][ tile 2 ][ tile 3]   in turn
//
// Rows whose keys begin alike stand in one tile. One that has more than a worker's memory holds is
// written piece by piece when its turn has come.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/files/progress.h"
#include "tools/formats/keyed_input.h"
#include "tools/formats/row_writer.h"
#include "tools/ordered/run_plan.h"
#include "tools/ordered/sorted_run.h"

namespace tvsort::tools {

// Writes everything; answers how many rows that were.
std::int64_t writeTiles(const RunForm& form, const RunPlan& plan, const KeyedInput& input,
                        std::span<const SortedRun> runs, RowWriter& writer, Progress& progress);

// How many runs a worker may merge at once.
std::size_t runsAtOnce(const RunPlan& plan);
// Bytes that a merge reads at once of each run in a file.
std::size_t runBufferBytes(const RunPlan& plan, std::size_t runCount);

}  // namespace tvsort::tools
