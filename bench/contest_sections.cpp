#include <fmt/core.h>

#include <algorithm>

#include "bench/sections.h"
#include "bench/table.h"
#include "bench/transfers.h"

namespace tvsort::bench {

namespace {

// Numbers for plots: one line per contender, by both clocks.
void addValues(Table& values, const std::string& situation, const Workload& workload,
               const Contest& contest, std::size_t recordCount) {
    for (const Series& series : contest) {
        Cells row = {situation, workload.name, series.name};
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

std::string fastestSort(const Contest& contest, Clock clock) {
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

// A table that grows by rows of contests in one situation.
class SituationTable {
  public:
    SituationTable(const Options& options, std::string name, const Situation& situation)
        : options_(options), name_(std::move(name)), situation_(situation) {
        table_.title = fmt::format(
            "Memory: {}, {} records: {} of the process, and of the others as multiples of it "
            "(median and spread of {} rounds; above 1 the process is faster)",
            name_, options.recordCount, nameOf(options.clock), options.rounds);
    }

    void add(const Workload& workload, const Contest& contest, std::size_t recordCount) {
        const bool spills = situation_.dataPerMemory > 1;
        Cells columns = joined({"workload"}, kTimeColumns);
        Cells row = joined({workload.name}, timeCells(options_, contest[0], recordCount));
        for (std::size_t i = 1; i < contest.size(); ++i) {
            columns.push_back(contest[i].name);
            row.push_back(describe(ratioOf(contest[i], contest[0], options_.clock)));
        }
        table_.columns = joined(columns, spills ? kTransferColumns : Cells{"fastest sort"});
        table_.rows.push_back(joined(
            row, spills ? transferCells(options_, workload, situation_, contest[0], recordCount)
                        : Cells{fastestSort(contest, options_.clock)}));
    }

    const std::string& name() const { return name_; }
    const Table& table() const { return table_; }

  private:
    const Options& options_;
    std::string name_;
    Situation situation_;
    Table table_;
};

enum class FirstRequests : bool { kHide, kShow };

// A table for each situation, with the numbers of all of them in `fileName`.
void showSituations(const Options& options, const std::string& fileName,
                    const std::vector<Situation>& all, FirstRequests firsts, PeerSet usualPeers) {
    const std::vector<Situation> situations = chosen(all, options.situations);
    if (situations.empty()) return;
    std::vector<SituationTable> tables;
    for (const Situation& situation : situations)
        tables.emplace_back(options, situation.name, situation);
    if (firsts == FirstRequests::kShow) {
        for (const Situation& situation : situations)
            tables.emplace_back(options, "first request, " + situation.name, situation);
    }
    Table values = {fileName, "", kValueColumns, {}};
    for (const Workload& workload : chosen(workloads(), options.workloads)) {
        fmt::print(stderr, "{}: {}\n", fileName, workload.name);
        const std::size_t recordCount = recordCountOf(workload, options.recordCount);
        std::vector<Contest> contests =
            runContests(options, workload, situations, makeRecords(workload, recordCount),
                        peersIn(workload, options.peers.value_or(usualPeers)));
        for (std::size_t s = 0; s < situations.size(); ++s)
            contests.push_back(firstRequests(contests[s]));
        for (std::size_t i = 0; i < tables.size(); ++i) {
            tables[i].add(workload, contests[i], recordCount);
            addValues(values, tables[i].name(), workload, contests[i], recordCount);
        }
        writeValues(values, options.resultDirectory);
    }
    for (const SituationTable& table : tables)
        print(table.table());
}

}  // namespace

void showInMemory(const Options& options) {
    showSituations(options, "in-memory", inMemory(), FirstRequests::kShow, PeerSet::kUsual);
}

void showSpilling(const Options& options) {
    showSituations(options, "spilling", spilling(), FirstRequests::kHide, PeerSet::kStd);
}

}  // namespace tvsort::bench
