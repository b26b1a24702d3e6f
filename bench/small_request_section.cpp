#include <fmt/core.h>

#include "bench/sections.h"
#include "bench/table.h"
#include "bench/verification.h"

namespace tvsort::bench {

namespace {

// With fewer records the median says little.
constexpr int kRequestsMin = 200;
constexpr int kRequestsPerRound = 1000;

}  // namespace

void showSmallRequests(const Options& options) {
    Table table = {"small-requests",
                   "Small requests, 100-byte records: from request to reply, loading aside",
                   {"records", "requests/s", "us/request", "cpu us/request", "us min", "us max"},
                   {}};
    const Workload workload = textLines();
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const int requests = options.small ? kRequestsMin : kRequestsPerRound * options.rounds;
    // One record needs no sorting: the row shows the conversation alone.
    for (const std::size_t recordCount : {1U, 10U, 30U, 100U, 300U, 1000U}) {
        const std::vector<Byte> records = makeRecords(workload, recordCount);
        const Verification verification(workload, records);
        MeasuredProcess process(options.builds[0].program, geometry,
                                memoryPagesFor(withRoom(), geometry, recordCount),
                                options.workDirectory);
        std::vector<Byte> result(records.size());
        std::vector<double> seconds;
        double cpuSeconds = 0;
        for (int i = 0; i < requests; ++i) {
            const Cost cost = process.sort(workload.request, records, result);
            verification.checkSorted(result, "tvsort, small requests");
            seconds.push_back(cost.wallSeconds);
            cpuSeconds += cost.cpuSeconds;
        }
        const Spread spread = spreadOf(seconds);
        table.rows.push_back({std::to_string(recordCount), fmt::format("{:.0f}", 1 / spread.median),
                              fmt::format("{:.1f}", spread.median * 1e6),
                              fmt::format("{:.1f}", cpuSeconds * 1e6 / requests),
                              fmt::format("{:.1f}", spread.min * 1e6),
                              fmt::format("{:.1f}", spread.max * 1e6)});
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
