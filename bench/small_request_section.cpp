#include <fmt/core.h>

#include <memory>

#include "bench/sections.h"
#include "bench/table.h"
#include "bench/verification.h"

namespace tvsort::bench {

namespace {

// With fewer records the median says little.
constexpr int kRequestsMin = 200;
constexpr int kRequestsPerRound = 1000;

// The measured build's times, and those of the others as multiples.
std::vector<std::string> rowOf(const Contest& contest, std::size_t recordCount) {
    std::vector<double> seconds;
    double cpuSeconds = 0;
    for (const Cost& cost : contest[0].costs) {
        seconds.push_back(cost.wallSeconds);
        cpuSeconds += cost.cpuSeconds;
    }
    const Spread spread = spreadOf(seconds);
    std::vector<std::string> row = {
        std::to_string(recordCount),
        fmt::format("{:.0f}", 1 / spread.median),
        fmt::format("{:.1f}", spread.median * 1e6),
        fmt::format("{:.1f}", cpuSeconds * 1e6 / static_cast<double>(seconds.size())),
        fmt::format("{:.1f}", spread.min * 1e6),
        fmt::format("{:.1f}", spread.max * 1e6)};
    for (std::size_t b = 1; b < contest.size(); ++b)
        row.push_back(
            fmt::format("{:.2f}", medianSeconds(contest[b], Clock::kWall) / spread.median));
    return row;
}

}  // namespace

void showSmallRequests(const Options& options) {
    Table table = {"small-requests",
                   "Small requests, 100-byte records: from request to reply, loading aside",
                   {"records", "requests/s", "us/request", "cpu us/request", "us min", "us max"},
                   {}};
    for (std::size_t b = 1; b < options.builds.size(); ++b)
        table.columns.push_back(options.builds[b].name);
    const Workload workload = textLines();
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const int requests = options.small ? kRequestsMin : kRequestsPerRound * options.rounds;
    // One record needs no sorting: the row shows the conversation alone.
    for (const std::size_t recordCount : {1U, 10U, 30U, 100U, 300U, 1000U}) {
        const std::vector<Byte> records = makeRecords(workload, recordCount);
        const Verification verification(workload, records);
        std::vector<std::unique_ptr<MeasuredProcess>> processes;
        Contest contest;
        for (const Build& build : options.builds) {
            processes.push_back(std::make_unique<MeasuredProcess>(
                build.program, geometry, memoryPagesFor(withRoom(), geometry, recordCount),
                options.workDirectory));
            contest.push_back({build.name, Role::kBuild, {}, {}});
        }
        std::vector<Byte> result(records.size());
        for (int i = 0; i < requests; ++i) {
            for (std::size_t b = 0; b < processes.size(); ++b) {
                contest[b].costs.push_back(processes[b]->sort(workload.request, records, result));
                verification.checkSorted(result, contest[b].name + ", small requests");
            }
        }
        table.rows.push_back(rowOf(contest, recordCount));
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
