#include <fmt/core.h>

#include <algorithm>

#include "bench/sections.h"
#include "bench/table.h"

namespace tvsort::bench {

namespace {

// Numbers for plots: one line per contender, by both clocks.
void addValues(Table& values, const Situation& situation, const Workload& workload,
               const std::vector<Series>& contest, std::size_t recordCount) {
    for (const Series& series : contest) {
        std::vector<std::string> row = {situation.name, workload.name, series.name};
        for (const Clock clock : {Clock::kWall, Clock::kCpu}) {
            const double seconds = medianSeconds(series, clock);
            const Spread ratio = ratioOf(series, contest[0], clock);
            row.push_back(fmt::format("{:.2f}", perRecord(seconds, recordCount)));
            row.push_back(fmt::format("{:.3f}", perRecordAndLevel(seconds, recordCount)));
            row.push_back(fmt::format("{:.3f}", ratio.median));
            row.push_back(fmt::format("{:.3f}", ratio.min));
            row.push_back(fmt::format("{:.3f}", ratio.max));
        }
        values.rows.push_back(row);
    }
}

const std::vector<std::string> kValueColumns = {
    "situation",  "workload",       "contender",      "wall_ns_per_record", "wall_ns_level",
    "wall_ratio", "wall_ratio_min", "wall_ratio_max", "cpu_ns_record",      "cpu_ns_level",
    "cpu_ratio",  "cpu_ratio_min",  "cpu_ratio_max"};

const Series& fastestSort(const std::vector<Series>& contest, Clock clock) {
    const Series* fastest = &contest[1];
    for (std::size_t i = 2; i < contest.size(); ++i) {
        if (contest[i].sorts && medianSeconds(contest[i], clock) < medianSeconds(*fastest, clock)) {
            fastest = &contest[i];
        }
    }
    return *fastest;
}

void addRow(Table& table, const Workload& workload, const std::vector<Series>& contest,
            const Options& options) {
    const double seconds = medianSeconds(contest[0], options.clock);
    std::vector<std::string> row = {
        workload.name, fmt::format("{:.1f}", perRecord(seconds, options.recordCount)),
        fmt::format("{:.2f}", perRecordAndLevel(seconds, options.recordCount))};
    for (std::size_t i = 1; i < contest.size(); ++i)
        row.push_back(describe(ratioOf(contest[i], contest[0], options.clock)));
    row.push_back(fastestSort(contest, options.clock).name);
    table.rows.push_back(row);
}

std::vector<std::string> tableColumns(const std::vector<Peer>& peers) {
    std::vector<std::string> columns = {"workload", "ns/record", "ns/record/log2"};
    for (const Peer& peer : peers)
        columns.push_back(peer.name);
    columns.push_back("fastest sort");
    return columns;
}

}  // namespace

void showInMemory(const Options& options) {
    Table values = {"in-memory", "", kValueColumns, {}};
    for (const Situation& situation : {withRoom(), justFitting()}) {
        Table table = {"", "", tableColumns(workloads().front().peers), {}};
        table.title = fmt::format(
            "Memory {}, {} records: {} of the process, and of the others as multiples of it "
            "(median "
            "and spread of {} rounds; above 1 the process is faster)",
            situation.name, options.recordCount, nameOf(options.clock), options.rounds);
        for (const Workload& workload : workloads()) {
            const std::vector<Byte> records = makeRecords(workload, options.recordCount);
            const auto contest = runContest(options, workload, situation, records, workload.peers);
            addRow(table, workload, contest, options);
            addValues(values, situation, workload, contest, options.recordCount);
        }
        print(table);
    }
    writeValues(values, options.resultDirectory);
}

void showFastPaths(const Options& options) {
    Table table = {"fast-paths",
                   fmt::format("What fast paths buy, {} records: {}, nanoseconds per record",
                               options.recordCount, nameOf(options.clock)),
                   {"workload", "with room", "just fitting", "data = 2 x memory"},
                   {}};
    for (const Workload& workload : fastPathWorkloads()) {
        std::vector<std::string> row = {workload.name};
        for (const Situation& situation : {withRoom(), justFitting(), dataOf(2)}) {
            const Series series = runAlone(options, workload, situation, options.recordCount);
            row.push_back(fmt::format(
                "{:.1f}", perRecord(medianSeconds(series, options.clock), options.recordCount)));
        }
        table.rows.push_back(row);
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
