#include <fmt/core.h>

#include "bench/child_process.h"
#include "bench/memory_cage.h"
#include "bench/other_programs.h"
#include "bench/sections.h"
#include "bench/table.h"

namespace tvsort::bench {

namespace {

namespace fs = std::filesystem;

// Beside what a program is granted: programs, buffers of files, and what the system keeps of both.
constexpr std::int64_t kCageBytes = 200'000'000;

std::vector<std::string> commandOf(const Options& options, std::int64_t memoryBytes) {
    const fs::path program = options.builds[0].program;
    return {(program.parent_path() / "tvsort-host").string(),
            "sort",
            "--lines",
            "--process",
            program.string(),
            "--memory",
            std::to_string(memoryBytes / 1024) + "K",
            "--temp-dir",
            options.workDirectory.string(),
            "--output",
            (options.workDirectory / "out").string(),
            (options.workDirectory / "lines").string()};
}

std::vector<std::string> gnuSortOf(const Options& options, std::int64_t memoryBytes) {
    return {"env",
            "LC_ALL=C",
            "sort",
            fmt::format("--buffer-size={}b", memoryBytes),
            "--parallel=1",
            "--temporary-directory=" + options.workDirectory.string(),
            "--output=" + (options.workDirectory / "gnu-out").string(),
            (options.workDirectory / "lines").string()};
}

void checkAlike(const Options& options) {
    run({{"cmp", (options.workDirectory / "out").string(),
          (options.workDirectory / "gnu-out").string()},
         {}});
}

}  // namespace

void showUncached(const Options& options) {
    Table table = {"uncached",
                   fmt::format("{} lines of 100 bytes from file to file, in memory that cannot "
                               "hold the files (medians of {} rounds)",
                               options.recordCount, options.rounds),
                   {"data/memory", "program", "seconds", "multiple", "bytes moved/byte"},
                   {}};
    std::int64_t bytes = 0;
    {
        const std::vector<Byte> lines = makeRecords(textLines(), options.recordCount);
        writeFile(options.workDirectory / "lines", lines);
        bytes = static_cast<std::int64_t>(lines.size());
    }
    for (const int ratio : {2, 8, 20, 100}) {
        const std::int64_t memory = bytes / ratio;
        const std::int64_t cageBytes = 2 * memory + kCageBytes;
        const auto cage = MemoryCage::make(cageBytes);
        if (cage == nullptr || cageBytes > bytes) {
            fmt::print("{} x memory: {}.\n", ratio,
                       cage == nullptr ? "this machine allows no memory control group"
                                       : "the files could be cached; more --records");
            continue;
        }
        std::vector<Series> contest = {{"tvsort-host", Role::kBuild, {}, {}},
                                       {"GNU sort", Role::kSort, {}, {}}};
        for (int round = 0; round < options.rounds; ++round) {
            contest[0].costs.push_back(run({cage->wrap(commandOf(options, memory)), {}}));
            contest[1].costs.push_back(run({cage->wrap(gnuSortOf(options, memory)), {}}));
            checkAlike(options);
        }
        for (const Series& series : contest) {
            const auto moved = static_cast<double>(series.costs.back().movedBytes());
            table.rows.push_back({std::to_string(ratio), series.name,
                                  fmt::format("{:.1f}", medianSeconds(series, Clock::kWall)),
                                  describe(ratioOf(series, contest[0], Clock::kWall)),
                                  fmt::format("{:.2f}", moved / static_cast<double>(bytes))});
        }
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
