#include "tools/command/sort_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "host/sort_server.h"
#include "tools/command/collation_command.h"
#include "tools/command/process_path.h"
#include "tools/command/subcommands.h"
#include "tools/command/verify_command.h"
#include "tools/files/byte_units.h"
#include "tools/files/interrupt.h"
#include "tools/files/spoken.h"
#include "tools/ordered/order_check.h"
#include "tools/run/run_sort.h"
#include "tools/run/slot_sort.h"
#include "tools/run/sort_stats.h"
#include "tools/run/spill_forecast.h"

namespace tvsort::tools {

namespace {

host::ServerOptions serverOptions(SortSetup& setup) {
    const SortOptions& options = setup.options();
    host::ServerOptions server;
    server.processPath = findProcess(options.process);
    server.memoryPages = setup.memoryPlan().pages;
    server.pagesPerBlock = setup.memoryPlan().blockPages;
    server.slotCount = setup.processCount();
    server.hugePages = options.hugePages == "on"    ? host::HugePages::kOn
                       : options.hugePages == "try" ? host::HugePages::kTry
                                                    : host::HugePages::kOff;
    server.tempDirectory = tempDirectoryOf(options);
    if (options.timeoutSeconds.has_value()) {
        server.requestTimeout = host::Timeout{std::llround(*options.timeoutSeconds * 1000)};
        server.startTimeout = std::min(server.startTimeout, server.requestTimeout);
    }
    server.whileWaiting = [&progress = setup.progress()] {
        throwIfInterrupted();
        progress.tick();
    };
    return server;
}

// Counts what the process gets, and says when all is there how much of it goes to the work file,
// where that is more than one would think.
host::RecordSource withSpillWarning(SortSetup& setup, std::uint16_t recordLength,
                                    const host::RecordSource& source) {
    return [&setup, recordLength, &source, recordCount = std::int64_t{0}](
               Byte* target, std::size_t recordsMax) mutable {
        const std::size_t records = source(target, recordsMax);
        recordCount += static_cast<std::int64_t>(records);
        if (records > 0) return records;
        const std::int64_t workFileBytes =
            forecastSpill(setup.memoryPlan(), setup.processCount(), recordLength, recordCount)
                .workFileBytes();
        const std::string warning = spillWarning(workFileBytes, setup.inputBytes());
        if (warning.empty()) return records;
        setup.progress().clear();
        speak(fmt::format("tvsort-host: warning: {} go to the work file, {}\n",
                          inUnits(workFileBytes), warning));
        return records;
    };
}

std::string report(const SortOptions& options, const SortStats& stats) {
    if (options.stats == "json") return statsAsJson(stats);
    std::string text;
    if (!options.mode.groups.empty()) {
        text = fmt::format("{} {}\n", stats.groupCount, stats.groupCount == 1 ? "group" : "groups");
    }
    return options.stats == "text" ? text + statsAsText(stats) : text;
}

}  // namespace

int sortFile(const SortOptions& options) {
    SortSetup setup(options);
    host::ServerOptions processOptions = serverOptions(setup);
    const auto collation =
        putCollationInForce(options.collation, setup.userRequest(), processOptions);
    host::SortServer server(processOptions);
    const std::optional<host::KeyRanges> ranges = setup.keyRanges();
    const auto slotCount = static_cast<std::size_t>(setup.processCount());
    // A sort in runs tells itself how far it has come.
    Progress silent(true);
    const bool isInRuns = setup.orderedSort() != nullptr;
    RunSort typedRuns(server, tempDirectoryOf(options), setup.progress());
    std::vector<SlotSort> slots;
    for (std::size_t i = 0; i < slotCount; ++i)
        slots.emplace_back(server, i, slotCount - i, isInRuns ? silent : setup.progress());
    // What is left to do needs the memory.
    setup.sort().setAfterRequests([&server] { server.memory().release(); });
    SortStats stats = setup.sort().run([&](SortRequest request, const host::RecordSource& records,
                                           const host::RecordSink& sink) {
        if (setup.sortsTypedRuns() && typedRuns.holdsRuns(request))
            return typedRuns.sort(request, records, sink);
        if (ranges.has_value()) {
            // Headers stand before what the user's keys are in.
            request.partOf = [&ranges, keysOffset = request.recordLength -
                                                    setup.userRecordLength()](const Byte* record) {
                return ranges->partOf(record + keysOffset);
            };
        }
        const auto source =
            isInRuns ? records : withSpillWarning(setup, request.recordLength, records);
        return slots[request.slotIndex].sort(request, source, sink);
    });
    StageClock finishing;
    setup.output().finish();
    stats.write += finishing.lap();
    stats.read = setup.readCost();
    stats.hugePages = server.memory().hasHugePages();
    stats.skippedCount = setup.errors().skippedCount();
    stats.ownPeakBytes = ownPeakBytes();
    setup.progress().clear();
    speak(setup.errors().report() + report(options, stats));
    return stats.skippedCount > 0 ? kStatusSkipped : kStatusSuccess;
}

// The words for the first row out of order; empty where there is none.
std::string disorderIn(SortSetup& setup) {
    const std::vector<std::string>& inputs = setup.options().inputs;
    const KeyedInput* const input = setup.orderedInput();
    if (input == nullptr) {
        if (inputs.size() > 1)
            throw host::badUse("--check takes one input where the process compares the keys");
        const VerifyReport report = verifyFile({setup.options().records, inputs[0]});
        if (report.firstMisplaced == 0) return "";
        return fmt::format("record {} of {} must not stand behind the one before it",
                           report.firstMisplaced, inputs[0]);
    }
    RowStream rows(*input, setup.errors());
    OrderCheck check(rows);
    setup.progress().begin("checking");
    for (KeyedRow row; rows.next(row); setup.progress().advance(1)) {
        throwIfInterrupted();
        if (!check.mayFollow(row)) return check.fault();
    }
    return "";
}

int checkFiles(const SortOptions& options) {
    if (options.mode.hierarchy) {
        throw host::badUse(
            "--check compares each row with the one before it; leave --hierarchy out");
    }
    SortSetup setup(options);
    const std::string disorder = disorderIn(setup);
    setup.progress().clear();
    speak(setup.errors().report());
    if (!disorder.empty()) {
        speak("tvsort-host: not in order: " + disorder + "\n");
        return kStatusNotInOrder;
    }
    return setup.errors().skippedCount() > 0 ? kStatusSkipped : kStatusSuccess;
}

int mergeFiles(const SortOptions& options) {
    SortSetup setup(options);
    setup.merge();
    setup.progress().clear();
    speak(setup.errors().report());
    return setup.errors().skippedCount() > 0 ? kStatusSkipped : kStatusSuccess;
}

void addSortCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<SortOptions>();
    CLI::App& command =
        *app.add_subcommand("sort", "Sort files of records, text lines or CSV rows");
    addSortOptions(command, *options);
    command.callback([options, &exitStatus] {
        exitStatus = options->check == kOnlyCheck ? checkFiles(*options)
                     : options->isMerged          ? mergeFiles(*options)
                                                  : sortFile(*options);
    });
}

}  // namespace tvsort::tools
