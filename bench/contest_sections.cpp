#include <fmt/core.h>

#include <algorithm>

#include "bench/sections.h"
#include "bench/table.h"
#include "bench/transfers.h"

namespace tvsort::bench {

namespace {

// Numbers for plots: one line per contender, by both clocks.
void addValues(Table& values, const Situation& situation, const Workload& workload,
               const std::vector<Series>& contest, std::size_t recordCount) {
    for (const Series& series : contest) {
        Cells row = {situation.name, workload.name, series.name};
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

const Cells kValueColumns = {
    "situation",  "workload",       "contender",      "wall_ns_per_record", "wall_ns_level",
    "wall_ratio", "wall_ratio_min", "wall_ratio_max", "cpu_ns_record",      "cpu_ns_level",
    "cpu_ratio",  "cpu_ratio_min",  "cpu_ratio_max"};

std::string fastestSort(const std::vector<Series>& contest, Clock clock) {
    const Series* fastest = nullptr;
    for (const Series& series : contest) {
        if (series.role == Role::kSort &&
            (fastest == nullptr || medianSeconds(series, clock) < medianSeconds(*fastest, clock))) {
            fastest = &series;
        }
    }
    return fastest == nullptr ? "none" : fastest->name;
}

std::vector<Peer> peersIn(const Workload& workload, PeerSet set) {
    std::vector<Peer> peers;
    std::copy_if(workload.peers.begin(), workload.peers.end(), std::back_inserter(peers),
                 [set](const Peer& peer) { return peer.set <= set; });
    return peers;
}

// A table of the situation, whose values are also added to `values`.
void showSituation(const Options& options, const Situation& situation, PeerSet usualPeers,
                   Table& values) {
    const PeerSet set = options.peers.value_or(usualPeers);
    const bool spills = situation.dataPerMemory > 1;
    Table table = {
        "",
        fmt::format("Memory: {}, {} records: {} of the process, and of the others as "
                    "multiples of it (median and spread of {} rounds; above 1 the "
                    "process is faster)",
                    situation.name, options.recordCount, nameOf(options.clock), options.rounds),
        joined({"workload"}, kTimeColumns),
        {}};
    for (const Workload& workload : chosen(workloads(), options.workloads)) {
        const std::size_t recordCount = recordCountOf(workload, options.recordCount);
        const std::vector<Byte> records = makeRecords(workload, recordCount);
        const std::vector<Series> contest =
            runContest(options, workload, situation, records, peersIn(workload, set));
        Cells row = joined({workload.name}, timeCells(options, contest[0], recordCount));
        for (std::size_t i = 1; i < contest.size(); ++i) {
            row.push_back(describe(ratioOf(contest[i], contest[0], options.clock)));
            if (table.rows.empty()) table.columns.push_back(contest[i].name);
        }
        row = joined(row, spills
                              ? transferCells(options, workload, situation, contest[0], recordCount)
                              : Cells{fastestSort(contest, options.clock)});
        table.rows.push_back(row);
        addValues(values, situation, workload, contest, recordCount);
    }
    table.columns = joined(table.columns, spills ? kTransferColumns : Cells{"fastest sort"});
    print(table);
}

void showSituations(const Options& options, const std::string& fileName,
                    const std::vector<Situation>& situations, PeerSet usualPeers) {
    Table values = {fileName, "", kValueColumns, {}};
    for (const Situation& situation : chosen(situations, options.situations)) {
        showSituation(options, situation, usualPeers, values);
        writeValues(values, options.resultDirectory);
    }
}

}  // namespace

void showInMemory(const Options& options) {
    showSituations(options, "in-memory", inMemory(), PeerSet::kUsual);
}

void showSpilling(const Options& options) {
    showSituations(options, "spilling", spilling(), PeerSet::kStd);
}

}  // namespace tvsort::bench
