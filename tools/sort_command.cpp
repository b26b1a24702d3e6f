#include "tools/sort_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <vector>

#include "host/host_error.h"
#include "host/sort_server.h"
#include "tools/collation_command.h"
#include "tools/csv_flow.h"
#include "tools/input_file.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/process_path.h"
#include "tools/progress.h"
#include "tools/record_flow.h"
#include "tools/shaped_sort.h"
#include "tools/sort_stats.h"
#include "tools/spool.h"
#include "tools/stage_clock.h"
#include "tools/subcommands.h"
#include "tools/value_line.h"

namespace tvsort::tools {

namespace {

// More pages would not hold more records: each starts below byte 65536 of its block.
constexpr std::int32_t kBlockPagesMax = 16;
constexpr std::int64_t kFramesWanted = 16;
constexpr std::uint64_t kFramesMin = 5;  // the least that the process sorts with
constexpr double kTimeoutSecondsMin = 0.001;
constexpr double kTimeoutSecondsMax = 1e9;

std::filesystem::path tempDirectoryOf(const SortOptions& options) {
    return options.tempDirectory.empty() ? host::defaultTempDirectory()
                                         : std::filesystem::path(options.tempDirectory);
}

std::vector<InputFile> openInputs(const std::vector<std::string>& names) {
    if (std::count(names.begin(), names.end(), kStandardStream) > 1) {
        throw host::badUse("standard input (-) can be read once only; give the other input a name");
    }
    return {names.begin(), names.end()};
}

// What the process gets of the memory: all but what the output takes, if that makes a pool.
std::uint64_t processPages(const SortOptions& options, const ShapedSort& sort) {
    constexpr auto kPage = static_cast<std::uint64_t>(kPageBytes);
    const std::int32_t blockPages =
        options.blockPages.value_or(host::blockPagesFor(sort.recordLength()));
    const std::uint64_t left = (options.memoryBytes - sort.memoryBytesBeside()) / kPage;
    const bool suffices = left >= kFramesMin * static_cast<std::uint64_t>(blockPages);
    return suffices ? left : options.memoryBytes / kPage;
}

host::ServerOptions serverOptions(const SortOptions& options, const ShapedSort& sort,
                                  Progress& progress) {
    const std::uint64_t memoryPages = processPages(options, sort);
    host::ServerOptions server;
    server.processPath = findProcess(options.process);
    server.memoryPages = static_cast<std::int32_t>(
        std::min<std::uint64_t>(memoryPages, std::numeric_limits<std::int32_t>::max()));
    server.pagesPerBlock =
        options.blockPages.value_or(defaultBlockPages(sort.recordLength(), server.memoryPages));
    server.tempDirectory = tempDirectoryOf(options);
    if (options.timeoutSeconds.has_value()) {
        server.requestTimeout = host::Timeout{std::llround(*options.timeoutSeconds * 1000)};
        server.startTimeout = std::min(server.startTimeout, server.requestTimeout);
    }
    server.whileWaiting = [&progress] {
        throwIfInterrupted();
        progress.tick();
    };
    return server;
}

// Blocks that the process moved between two looks at its counters. Messages are far smaller than a
// block, so they fall under the table in the division.
std::int64_t blocksBetween(std::int64_t bytesBefore, std::int64_t bytesAfter,
                           std::size_t blockBytes) {
    return (bytesAfter - bytesBefore) / static_cast<std::int64_t>(blockBytes);
}

// One request: the source's records through the process to the sink.
SortStats sortThrough(host::SortServer& server, const host::Geometry& geometry,
                      const host::RequestBuilder& request, const host::RecordSource& source,
                      const host::RecordSink& sink, Progress& progress) {
    StageClock clock;
    host::SortSlot& slot = server.slot(1);

    progress.begin("loading");
    const host::LoadedData loaded = slot.load(geometry, [&](Byte* target, std::size_t recordsMax) {
        throwIfInterrupted();
        const std::size_t records = source(target, recordsMax);
        progress.advance(static_cast<std::int64_t>(records));
        return records;
    });
    SortStats stats;
    stats.load = clock.lap();

    progress.begin("sorting");
    const host::ProcessUsage before = slot.process().usage();
    const SortReply reply = slot.ask(request, geometry, loaded.extent);
    host::checkAnswer(reply);
    const host::ProcessUsage after = slot.process().usage();
    stats.sort = clock.lap();
    stats.sort.cpuSeconds += after.cpuSeconds - before.cpuSeconds;

    progress.begin("writing");
    slot.read(geometry, reply.recordCount, [&](const Byte* records, std::size_t recordCount) {
        throwIfInterrupted();
        sink(records, recordCount);
        progress.advance(static_cast<std::int64_t>(recordCount));
    });
    stats.write = clock.lap();

    stats.recordCount = loaded.extent.recordCount;
    stats.recordLength = geometry.recordLength;
    stats.resultCount = reply.recordCount;
    stats.groupCount = reply.groupCount;
    stats.recordsPerBlock = geometry.recordsPerBlock;
    stats.blockBytes = static_cast<std::int64_t>(geometry.blockBytes());
    stats.blockCount = loaded.extent.fileBlocks;
    stats.frameCount = server.memory().frameCount(geometry.blockPages);
    stats.fitted = loaded.fitted;
    stats.spilledBytes = loaded.workFileBytes;
    stats.blocksRead = blocksBetween(before.readBytes, after.readBytes, geometry.blockBytes());
    stats.blocksWritten =
        blocksBetween(before.writtenBytes, after.writtenBytes, geometry.blockBytes());
    stats.processPeakBytes = after.peakBytes;
    return stats;
}

// Lines must be measured before they are sorted; what is not unique is read again to be named.
bool isReadTwice(const SortOptions& options) {
    return inputKindOf(options.records) != InputKind::kRecords || !options.mode.unique.empty();
}

void report(const SortOptions& options, const SortStats& stats) {
    if (options.stats == "json") {
        fmt::print(stderr, "{}", statsAsJson(stats));
        return;
    }
    if (!options.mode.groups.empty()) {
        fmt::print(stderr, "{} {}\n", stats.groupCount, stats.groupCount == 1 ? "group" : "groups");
    }
    if (options.stats == "text") fmt::print(stderr, "{}", statsAsText(stats));
}

// The conversion of sizes would take a negative number for a very large one.
std::string refuseNegative(const std::string& text) {
    return text.starts_with('-') ? "must not be negative: " + text : std::string();
}

}  // namespace

std::int32_t defaultBlockPages(std::uint16_t recordLength, std::int64_t memoryPages) {
    std::int32_t blockPages = kBlockPagesMax;
    while (blockPages / 2 >= std::max(host::blockPagesFor(recordLength), 1) &&
           memoryPages / blockPages < kFramesWanted) {
        blockPages /= 2;
    }
    return blockPages;
}

void sortFile(const SortOptions& asked) {
    SortOptions options = asked;
    recogniseFormat(options.inputs, options.records);
    checkRecordOptions(options.records);
    const InputKind kind = inputKindOf(options.records);
    checkModeOptions(options.mode, {options.inputs.size(), kind});
    std::vector<InputFile> inputs = openInputs(options.inputs);
    OutputFile output(options.output);
    Progress progress;
    StageClock clock;
    if (isReadTwice(options)) {
        for (InputFile& input : inputs) {
            progress.begin("reading " + input.displayName());
            input = makeRereadable(std::move(input), tempDirectoryOf(options));
        }
    }
    RowErrors errors(options.records.onError);
    const auto flow = [&] {
        if (kind == InputKind::kRows) {
            return csvRecords(options.records, options.mode, inputs, options.memoryBytes, errors,
                              output);
        }
        if (!options.records.as.empty()) {
            return valueLineRecords(options.records.as, options.mode, inputs, output);
        }
        return options.records.lines ? lineRecords(options.mode, inputs, output)
                                     : fixedRecords(options.records, options.mode, inputs, output);
    };
    const auto flowAgain = [&] {
        for (InputFile& input : inputs)
            input.rewind();
        return flow();
    };
    progress.begin("measuring");
    RecordFlow records = flow();
    const host::RequestBuilder userRequest = records.request;
    const StageCost read = clock.lap();
    ShapedSort sort({options.mode, flowAgain, tempDirectoryOf(options)}, std::move(records));
    host::ServerOptions processOptions = serverOptions(options, sort, progress);
    const auto collation = putCollationInForce(options.collation, userRequest, processOptions);
    host::SortServer server(processOptions);
    const host::Geometry geometry =
        host::chooseGeometry(sort.recordLength(), server.options().pagesPerBlock);
    SortStats stats = sort.run([&](const host::RequestBuilder& request,
                                   const host::RecordSource& source, const host::RecordSink& sink) {
        return sortThrough(server, geometry, request, source, sink, progress);
    });
    StageClock finishing;
    output.finish();
    stats.write += finishing.lap();
    stats.read = read;
    stats.skippedCount = errors.skippedCount();
    stats.ownPeakBytes = ownPeakBytes();
    fmt::print(stderr, "{}", errors.report());
    report(options, stats);
}

void addSortCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<SortOptions>();
    CLI::App& command = *app.add_subcommand("sort", "Sort files of records or text lines");
    command
        .add_option("INPUT", options->inputs,
                    "Files to sort, read one behind the other; - for standard input")
        ->required();
    command.add_option("-o,--output", options->output, "File to write; standard output without it");
    addRecordOptions(command, options->records);
    addCsvOptions(command, options->records);
    addModeOptions(command, options->mode);
    command.add_option(
        "--collation", options->collation,
        "Order of UCS-2 text: a file that tvsort-host collation wrote, or a language "
        "such as fr, whose tertiary order is then used");
    command.add_option("--memory", options->memoryBytes, "Memory for the sort, such as 64M")
        ->transform(CLI::AsSizeValue(false))
        ->transform(CLI::Validator(refuseNegative, "", "NOT_NEGATIVE"))  // is asked first
        ->default_str("64M");
    command.add_option("--block-pages", options->blockPages, "Pages of 4096 bytes per block")
        ->check(CLI::Range(1, 1 << 20));
    command.add_option("--temp-dir", options->tempDirectory,
                       "Directory for work file and socket; TMPDIR or /tmp without it");
    command
        .add_option("--timeout", options->timeoutSeconds,
                    "Give the sort up after so many seconds; never without it")
        ->check(CLI::Range(kTimeoutSecondsMin, kTimeoutSecondsMax));
    command.add_option("--process", options->process, "The tvsort program to use");
    command
        .add_flag("--stats{text}", options->stats,
                  "Say on standard error what happened; --stats=json for machines")
        ->check(CLI::IsMember({"text", "json"}));
    command.callback([options, &exitStatus] {
        sortFile(*options);
        exitStatus = kStatusSuccess;
    });
}

}  // namespace tvsort::tools
