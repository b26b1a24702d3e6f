#include "bench/transfers.h"

#include <fmt/core.h>

#include <cmath>

namespace tvsort::bench {

namespace {

// How many partitions of ranges above the memory a record is in, on average: with random pivots a
// range of x times the memory has T(x) = 1 + (2 / x^2) * (integral of y T(y) from 1 to x) of them.
double expectedLevels(double dataPerMemory) {
    return dataPerMemory > 1 ? 1 + 2 * std::log(dataPerMemory) : 0;
}

}  // namespace

Cells joined(Cells left, const Cells& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Cells timeCells(const Options& options, const Series& series, std::size_t recordCount) {
    const double seconds = medianSeconds(series, options.clock);
    return {fmt::format("{:.1f}", perRecord(seconds, recordCount)),
            fmt::format("{:.2f}", perRecordAndLevel(seconds, recordCount))};
}

// The process reads and writes its work file block by block, the messages aside; the reload at the
// end moves all frames in one call.
Cells transferCells(const Options& options, const Workload& workload, const Situation& situation,
                    const Series& series, std::size_t recordCount) {
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const double blocks = blocksOf(geometry, recordCount);
    const double frames =
        memoryPagesFor(situation, geometry, recordCount) / static_cast<double>(geometry.blockPages);
    const double bytes = blocks * static_cast<double>(geometry.blockBytes());
    const Cost& cost = series.costs.back();
    return {fmt::format("{:.2f}", blocks / frames),
            fmt::format("{:.2f}", expectedLevels(blocks / frames)),
            fmt::format("{:.2f}", static_cast<double>(cost.readCalls) / blocks),
            fmt::format("{:.2f}", static_cast<double>(cost.writeCalls) / blocks),
            fmt::format("{:.2f}", static_cast<double>(cost.movedBytes()) / bytes)};
}

}  // namespace tvsort::bench
