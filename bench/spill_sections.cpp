#include <fmt/core.h>

#include <cmath>

#include "bench/sections.h"
#include "bench/table.h"

namespace tvsort::bench {

namespace {

// What a request moved, as multiples of the data.
struct Transfers {
    double blocksRead;
    double blocksWritten;
    double bytes;
};

// The process reads and writes its work file block by block, the messages aside; the reload at the
// end moves all frames in one call.
Transfers transfersOf(const Cost& cost, std::size_t dataBlocks, std::size_t dataBytes) {
    return {static_cast<double>(cost.readCalls) / static_cast<double>(dataBlocks),
            static_cast<double>(cost.writeCalls) / static_cast<double>(dataBlocks),
            static_cast<double>(cost.movedBytes()) / static_cast<double>(dataBytes)};
}

struct Outcome {
    double seconds;
    double dataPerMemory;
    Transfers transfers;
};

Outcome outcomeOf(const Options& options, const Workload& workload, const Situation& situation,
                  const Series& series, std::size_t recordCount) {
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const auto blocks = static_cast<std::size_t>(blocksOf(geometry, recordCount));
    const std::int32_t pages = memoryPagesFor(situation, geometry, recordCount);
    const double frames = static_cast<double>(pages) / geometry.blockPages;
    return {medianSeconds(series, options.clock), static_cast<double>(blocks) / frames,
            transfersOf(series.costs.back(), blocks, blocks * geometry.blockBytes())};
}

// How many partitions of ranges above the memory a record is in, on average: with random pivots a
// range of x times the memory has T(x) = 1 + (2 / x^2) * (integral of y T(y) from 1 to x) of them.
double expectedLevels(double dataPerMemory) {
    return dataPerMemory > 1 ? 1 + 2 * std::log(dataPerMemory) : 0;
}

std::vector<std::string> transferCells(const Outcome& outcome) {
    const Transfers& transfers = outcome.transfers;
    return {fmt::format("{:.2f}", outcome.dataPerMemory),
            fmt::format("{:.2f}", expectedLevels(outcome.dataPerMemory)),
            fmt::format("{:.2f}", transfers.blocksRead),
            fmt::format("{:.2f}", transfers.blocksWritten), fmt::format("{:.2f}", transfers.bytes)};
}

const std::vector<std::string> kTransferColumns = {"data/memory", "levels", "reads/block",
                                                   "writes/block", "bytes moved/byte"};

std::vector<std::string> joined(std::vector<std::string> left,
                                const std::vector<std::string>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

std::vector<std::string> timeCells(double seconds, std::size_t recordCount) {
    return {fmt::format("{:.1f}", perRecord(seconds, recordCount)),
            fmt::format("{:.2f}", perRecordAndLevel(seconds, recordCount))};
}

}  // namespace

void showSpilling(const Options& options) {
    for (const Situation& situation : spilling()) {
        Table table = {
            fmt::format("spilling-{:g}", situation.dataPerMemory),
            fmt::format("{}, {} records: {}, std::sort with all the memory it wants as a multiple, "
                        "and transfers of the work file by the data's blocks",
                        situation.name, options.recordCount, nameOf(options.clock)),
            joined({"workload", "ns/record", "ns/record/log2", "std::sort"}, kTransferColumns),
            {}};
        for (const Workload& workload : workloads()) {
            const std::vector<Byte> records = makeRecords(workload, options.recordCount);
            const auto contest = runContest(options, workload, situation, records,
                                            std::span(workload.peers).first(1));
            const Outcome outcome =
                outcomeOf(options, workload, situation, contest[0], options.recordCount);
            std::vector<std::string> row =
                joined({workload.name}, timeCells(outcome.seconds, options.recordCount));
            row.push_back(describe(ratioOf(contest[1], contest[0], options.clock)));
            table.rows.push_back(joined(row, transferCells(outcome)));
        }
        print(table);
        writeValues(table, options.resultDirectory);
    }
}

void showGrowth(const Options& options) {
    Table table = {
        "growth",
        fmt::format("Growth, 100-byte records: {}", nameOf(options.clock)),
        joined({"situation", "records", "ns/record", "ns/record/log2"}, kTransferColumns),
        {}};
    const Workload workload = textLines();
    std::vector<Situation> situations = {withRoom(), justFitting()};
    for (const Situation& situation : spilling())
        situations.push_back(situation);
    for (const Situation& situation : situations) {
        for (std::size_t factor = 1; factor <= 8; factor *= 2) {
            const std::size_t recordCount = options.recordCount / 8 * factor;
            const Series series = runAlone(options, workload, situation, recordCount);
            const Outcome outcome = outcomeOf(options, workload, situation, series, recordCount);
            table.rows.push_back(joined(joined({situation.name, std::to_string(recordCount)},
                                               timeCells(outcome.seconds, recordCount)),
                                        transferCells(outcome)));
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
        joined({"data/memory wanted", "ns/record", "ns/record/log2"}, kTransferColumns),
        {}};
    const Workload workload = textLines();
    for (const double ratio :
         {0.1, 0.2, 0.4, 0.5, 0.6, 0.8, 1.0, 1.05, 1.2, 1.5, 2.0, 3.0, 5.0, 8.0, 12.0, 20.0}) {
        const Situation situation = dataOf(ratio);
        const Series series = runAlone(options, workload, situation, recordCount);
        const Outcome outcome = outcomeOf(options, workload, situation, series, recordCount);
        table.rows.push_back(
            joined(joined({fmt::format("{:g}", ratio)}, timeCells(outcome.seconds, recordCount)),
                   transferCells(outcome)));
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
