#include <fmt/core.h>

#include "bench/sections.h"
#include "bench/table.h"
#include "bench/transfers.h"

namespace tvsort::bench {

namespace {

// Behind its first cells: what the process takes and moves alone.
Cells rowOf(const Options& options, const Situation& situation, std::size_t recordCount,
            Cells first) {
    const Workload workload = textLines();
    const Series series = runAlone(options, workload, situation, recordCount);
    return joined(joined(std::move(first), timeCells(options, series, recordCount)),
                  transferCells(options, workload, situation, series, recordCount));
}

}  // namespace

void showGrowth(const Options& options) {
    Table table = {"growth",
                   fmt::format("Growth, 100-byte records: {}", nameOf(options.clock)),
                   joined(joined({"situation", "records"}, kTimeColumns), kTransferColumns),
                   {}};
    std::vector<Situation> situations = {withRoom(), justFitting()};
    for (const Situation& situation : spilling())
        situations.push_back(situation);
    for (const Situation& situation : situations) {
        for (std::size_t factor = 1; factor <= 8; factor *= 2) {
            const std::size_t recordCount = options.recordCount / 8 * factor;
            table.rows.push_back(rowOf(options, situation, recordCount,
                                       {situation.name, std::to_string(recordCount)}));
        }
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

void showCurve(const Options& options) {
    const std::size_t recordCount = options.recordCount / 4;
    Table table = {
        "curve",
        fmt::format("From ample memory to little, 100-byte records, {} of them", recordCount),
        joined(joined({"data/memory wanted"}, kTimeColumns), kTransferColumns),
        {}};
    for (const double ratio :
         {0.1, 0.2, 0.4, 0.5, 0.6, 0.8, 1.0, 1.05, 1.2, 1.5, 2.0, 3.0, 5.0, 8.0, 12.0, 20.0}) {
        table.rows.push_back(
            rowOf(options, dataOf(ratio), recordCount, {fmt::format("{:g}", ratio)}));
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
