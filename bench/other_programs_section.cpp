#include <fmt/core.h>

#include "bench/other_programs.h"
#include "bench/sections.h"
#include "bench/table.h"
#include "bench/verification.h"

namespace tvsort::bench {

namespace {

using Programs = std::vector<std::unique_ptr<OtherProgram>>;

Programs installedPrograms(const Options& options) {
    Programs programs;
    const auto take = [&](const char* name, std::unique_ptr<OtherProgram> program) {
        if (program == nullptr) {
            fmt::print("{} is not installed: its rows are left out.\n", name);
        } else {
            programs.push_back(std::move(program));
        }
    };
    take("GNU sort", makeGnuSort(options.workDirectory, 1));
    take("GNU sort", makeGnuSort(options.workDirectory, 2));
    take("SQLite", makeSqlite(options.workDirectory));
    take("PostgreSQL", makePostgres(options.workDirectory));
    return programs;
}

std::vector<Series> runRounds(const Options& options, const Situation& situation,
                              std::span<const Byte> records, const Programs& programs) {
    const Workload workload = textLines();
    const host::Geometry geometry = host::chooseGeometry(workload.recordLength, options.blockPages);
    const std::int32_t pages = memoryPagesFor(situation, geometry, options.recordCount);
    MeasuredProcess process(options.builds[0].program, geometry, pages, options.workDirectory);
    const Verification verification(workload, records);
    std::vector<Byte> result(records.size());
    std::vector<Series> series = {{"tvsort", Role::kBuild, {}, {}}};
    for (const auto& program : programs)
        series.push_back({program->name(), Role::kSort, {}, {}});
    for (int round = 0; round < options.rounds; ++round) {
        series[0].costs.push_back(process.sort(workload.request, records, result));
        verification.checkSorted(result, "tvsort, " + situation.name);
        for (std::size_t i = 0; i < programs.size(); ++i) {
            series[i + 1].costs.push_back(programs[i]->sort(pages * kPageBytes, result));
            verification.checkSorted(result, programs[i]->name());
        }
    }
    return series;
}

}  // namespace

void showOtherPrograms(const Options& options) {
    const Programs programs = installedPrograms(options);
    const std::vector<Byte> records = makeRecords(textLines(), options.recordCount);
    for (const auto& program : programs)
        program->load(records);
    Table table = {"other-programs",
                   fmt::format("Larger than memory, {} lines of 100 bytes: time as a multiple of "
                               "the process's (median and spread of {} rounds)",
                               options.recordCount, options.rounds),
                   {"program", "data/memory", "seconds", "multiple", "bytes moved/byte"},
                   {}};
    for (const double ratio : {2.0, 8.0}) {
        const std::vector<Series> contest = runRounds(options, dataOf(ratio), records, programs);
        for (const Series& series : contest) {
            const auto moved = static_cast<double>(series.costs.back().movedBytes());
            table.rows.push_back(
                {series.name, fmt::format("{:g}", ratio),
                 fmt::format("{:.3f}", medianSeconds(series, Clock::kWall)),
                 describe(ratioOf(series, contest[0], Clock::kWall)),
                 fmt::format("{:.2f}", moved / static_cast<double>(records.size()))});
        }
    }
    print(table);
    writeValues(table, options.resultDirectory);
}

}  // namespace tvsort::bench
