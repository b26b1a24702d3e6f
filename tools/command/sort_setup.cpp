#include "tools/command/sort_setup.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "host/host_error.h"
#include "host/private_directory.h"
#include "tools/files/compression.h"
#include "tools/files/spool_file.h"
#include "tools/files/text_marks.h"
#include "tools/formats/csv/csv_flow.h"
#include "tools/formats/lines/line_flow.h"
#include "tools/formats/lines/value_line.h"
#include "tools/formats/records/fixed_records.h"
#include "tools/options/key_text.h"
#include "tools/ordered/ordered_merge.h"
#include "tools/ordered/ordered_sort.h"
#include "tools/ordered/ranked_hierarchy.h"
#include "tools/ordered/shuffled_input.h"
#include "tools/run/sampling.h"
#include "tools/run/workers_for.h"

namespace tvsort::tools {

namespace {

constexpr int kProcessesMax = 64;
constexpr double kTimeoutSecondsMin = 0.001;
constexpr double kTimeoutSecondsMax = 1e9;

std::vector<InputFile> openInputs(const SortOptions& options) {
    const std::vector<std::string>& names = options.inputs;
    if (std::count(names.begin(), names.end(), kStandardStream) > 1) {
        throw host::badUse("standard input (-) can be read once only; give the other input a name");
    }
    std::vector<InputFile> inputs(names.begin(), names.end());
    for (InputFile& input : inputs)
        if (options.records.isPlain) input.takeAsPlain();
    return inputs;
}

// Lines must be measured before they are sorted; what is not unique is read again to be named.
bool isReadTwice(const SortOptions& options) {
    return inputKindOf(options.records) != InputKind::kRecords || !options.mode.unique.empty() ||
           options.processCount.value_or(1) > 1;
}

// The conversion of sizes would take a negative number for a very large one.
std::string refuseNegative(const std::string& text) {
    return text.starts_with('-') ? "must not be negative: " + text : std::string();
}

bool writesToTerminal(const std::string& output) {
    return (output.empty() || output == kStandardStream) && isatty(STDOUT_FILENO) == 1;
}

// Operations on whole rows need no key.
void checkKeysAreNamed(const SortOptions& options) {
    const bool isOfColumns = !options.records.format.empty();
    const bool isPlain = options.mode.hierarchy || operationOf(options.mode) == Operation::kOrder;
    const bool areNamed = !options.records.keys.empty();
    if (areNamed && options.randomSeed.has_value())
        throw host::badUse("--random leaves the order to chance; leave --key out");
    if (isOfColumns && isPlain && !areNamed && !options.randomSeed.has_value())
        throw host::badUse("say what to order by: --key COLUMN[:TYPE], once or more");
}

SortOptions understood(SortOptions options) {
    recogniseFormat(options.inputs, options.records);
    checkRecordOptions(options.records);
    checkModeOptions(options.mode, {options.inputs.size(), inputKindOf(options.records)});
    checkKeysAreNamed(options);
    if (options.check == kNoCheck && !options.isMerged)
        throw host::badUse("--check=off belongs to --merge, which alone checks its inputs");
    return options;
}

}  // namespace

std::filesystem::path tempDirectoryOf(const SortOptions& options) {
    return options.tempDirectory.empty() ? host::defaultTempDirectory()
                                         : std::filesystem::path(options.tempDirectory);
}

SortSetup::SortSetup(const SortOptions& options)
    : options_(understood(options)),
      inputs_(openInputs(options)),
      output_(options.output),
      progress_(writesToTerminal(options.output)),
      errors_(options.records.onError) {
    StageClock clock;
    makeInputsRereadable();
    progress_.watch([this] { return inputPosition(); });
    progress_.begin("measuring");
    checkWordsOfOrderedKeys();
    if (options_.processCount > 1 && !isOrdered()) checkModeWithProcesses(options_.mode);
    sort_ = isOrdered() ? makeOrderedSort() : makeShapedSort();
    readCost_ = clock.lap();
    const std::optional<SlotPlan> own = sort_->slotPlan();
    processCount_ = own.has_value() ? own->slotCount : chooseProcesses();
    memoryPlan_ =
        own.has_value() ? own->memory : withinSlots(planMemory(memoryRequest()), processCount_);
}

// Of typed records. More than one only where nothing changes by it but the time.
int SortSetup::chooseProcesses() const {
    if (options_.processCount.has_value()) return *options_.processCount;
    if (!isPlainOrder() || !canBeMerged()) return 1;
    return static_cast<int>(workersFor(static_cast<std::uint64_t>(inputBytes())));
}

bool SortSetup::isPlainOrder() const {
    return operationOf(options_.mode) == Operation::kOrder && !options_.mode.limitCount.has_value();
}

bool SortSetup::canBeMerged() const {
    return host::splitHindrance(userRequest_, !options_.collation.empty()).empty();
}

// One process sorts in one request what a request can count.
bool SortSetup::sortsTypedRuns() const {
    constexpr std::int64_t kRecordsMax = std::numeric_limits<std::int32_t>::max();
    if (orderedSort_ != nullptr || !isPlainOrder()) return false;
    const std::int64_t recordBytes = std::max<std::int64_t>(userRecordLength(), 1);
    return processCount_ > 1 || (inputBytes() / recordBytes > kRecordsMax && canBeMerged());
}

bool SortSetup::isOrdered() const {
    const RecordOptions& records = options_.records;
    if (inputKindOf(records) == InputKind::kRecords) return false;
    const bool isOfWholeLines = inputKindOf(records) == InputKind::kLines && records.keys.empty();
    if (isOfWholeLines) return lineKey(records).ordered.has_value();
    return std::all_of(records.keys.begin(), records.keys.end(), [](const std::string& text) {
        return parseKey(text, host::ValuePlace::kColumn).ordered.has_value();
    });
}

// What the ways of single keys do not know.
void SortSetup::checkWordsOfOrderedKeys() const {
    const RecordOptions& records = options_.records;
    const char* const word = records.zeroTerminated            ? "--zero-terminated"
                             : records.isRagged                ? "--ragged"
                             : records.nullWord.has_value()    ? "--null"
                             : options_.randomSeed             ? "--random"
                             : records.onError == kLastOnError ? "--on-error=last"
                             : records.format == kFieldsFormat ? "--format fields"
                                                               : nullptr;
    if (word == nullptr || isOrdered()) return;
    throw host::badUse(
        fmt::format("{} does not go with fixed-length records, or types that the process compares; "
                    "the others stand first in sort --help",
                    word));
}

OrderedFlow SortSetup::makeOrderedFlow(std::vector<InputFile>& inputs) {
    const RecordOptions& records = options_.records;
    if (inputKindOf(records) == InputKind::kRows)
        return csvOrderedFlow(records, options_.mode, inputs, options_.memoryBytes, output_);
    return lineOrderedFlow(records, options_.mode, inputs, options_.memoryBytes, output_);
}

std::int64_t SortSetup::merge() {
    const Operation operation = operationOf(options_.mode);
    if (!isOrdered() || options_.randomSeed.has_value() || errors_.keepsRows() ||
        operation == Operation::kUnique || operation == Operation::kHierarchy) {
        throw host::badUse(
            "--merge takes lines and rows by keys of the types that stand first in sort --help; "
            "leave it out, or leave --hierarchy, --unique, --random and --on-error=last out");
    }
    // All inputs together say whether they fit one another.
    const OrderedFlow flow = makeOrderedFlow(inputs_);
    std::vector<std::unique_ptr<std::vector<InputFile>>> files;
    std::vector<std::unique_ptr<KeyedInput>> inputs;
    for (const InputFile& input : inputs_) {
        files.push_back(std::make_unique<std::vector<InputFile>>());
        files.back()->push_back(input.duplicate());
        files.back()->back().rewind();
        inputs.push_back(makeOrderedFlow(*files.back()).input);
    }
    errors_.restart();
    RowShaper shaper({options_.mode, inputKindOf(options_.records), flow.delimiter, flow.lineEnd,
                      tempDirectoryOf(options_)},
                     *flow.writer);
    OrderedMerge(std::move(inputs), *flow.writer, errors_, options_.check != kNoCheck).run(shaper);
    output_.finish();
    return shaper.writtenCount();
}

std::unique_ptr<Sorting> SortSetup::makeOrderedSort() {
    const InputKind kind = inputKindOf(options_.records);
    OrderedFlow flow = makeOrderedFlow(inputs_);
    if (options_.randomSeed.has_value())
        flow.input = std::make_unique<ShuffledInput>(std::move(flow.input), *options_.randomSeed);
    const RowShaper::Form shape = {options_.mode, kind, flow.delimiter, flow.lineEnd,
                                   tempDirectoryOf(options_)};
    std::unique_ptr<OrderedSort> sort;
    if (options_.mode.hierarchy) {
        sort = std::make_unique<RankedHierarchy>(
            std::make_unique<LevelledInput>(std::move(flow.input), flow.readLevel,
                                            errors_.keepsRows()),
            shape, planSetting(), std::move(flow.writer), errors_, progress_);
    } else {
        sort = std::make_unique<OrderedSort>(std::move(flow.input), shape, planSetting(),
                                             std::move(flow.writer), errors_, progress_);
    }
    orderedInput_ = &sort->input();
    orderedSort_ = sort.get();
    return sort;
}

PlanSetting SortSetup::planSetting() const {
    PlanSetting setting = {options_.memoryBytes, std::nullopt, options_.blockPages};
    if (options_.processCount.has_value())
        setting.workerCount = static_cast<std::size_t>(*options_.processCount);
    return setting;
}

std::unique_ptr<Sorting> SortSetup::makeShapedSort() {
    RecordFlow flow = makeFlow();
    userRequest_ = flow.request;
    userRecordLength_ = flow.recordLength;
    return std::make_unique<ShapedSort>(
        ShapedSort::Setting{options_.mode, [this] { return makeFlowAgain(); },
                            tempDirectoryOf(options_)},
        std::move(flow));
}

MemoryRequest SortSetup::memoryRequest() const {
    return {options_.memoryBytes, options_.blockPages, sort_->recordLength(), sort_->memoryShare(),
            processCount_};
}

std::optional<host::KeyRanges> SortSetup::keyRanges() {
    if (processCount_ == 1 || isOrdered()) return std::nullopt;
    const std::string hindrance = host::splitHindrance(userRequest_, !options_.collation.empty());
    if (!hindrance.empty()) {
        throw host::badUse(fmt::format(
            "--processes splits records by their keys, and the keys {}; leave it out", hindrance));
    }
    if (sortsTypedRuns()) return std::nullopt;
    StageClock clock;
    progress_.begin("sampling");
    const RecordFlow flow = makeFlowAgain();
    const host::KeyRanges ranges = sampleKeyRanges(flow, static_cast<std::size_t>(processCount_));
    for (InputFile& input : inputs_)
        input.rewind();
    errors_.restart();
    readCost_ += clock.lap();
    return ranges;
}

RecordFlow SortSetup::makeFlowAgain() {
    for (InputFile& input : inputs_)
        input.rewind();
    return makeFlow();
}

Progress::Position SortSetup::inputPosition() const {
    std::int64_t bytes = 0;
    for (const InputFile& input : inputs_)
        bytes += input.position();
    return {static_cast<std::uint64_t>(bytes), static_cast<std::uint64_t>(inputBytes())};
}

std::int64_t SortSetup::inputBytes() const {
    std::int64_t bytes = 0;
    for (const InputFile& input : inputs_)
        bytes += input.fileBytes().value_or(0);
    return bytes;
}

void SortSetup::makeInputsRereadable() {
    const bool isText = inputKindOf(options_.records) != InputKind::kRecords;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        InputFile& input = inputs_[i];
        progress_.begin("reading " + input.displayName());
        const bool isCopied = isReadTwice(options_) && !input.fileBytes().has_value();
        if (isCopied)
            input = makeRereadable(std::move(input), tempDirectoryOf(options_), progress_);
        const std::string begin = isText ? firstBytes(input) : "";
        // Fixed-length records may begin with any bytes.
        const Compression compression =
            isText ? compressionMarked(begin) : compressionNamed(options_.inputs[i]);
        input = unpacked(compression, std::move(input), tempDirectoryOf(options_), progress_);
        if (isCopied || compression != Compression::kNone)
            copiedBytes_ += input.fileBytes().value_or(0);
        if (isText) refuseWideText(input);
    }
}

RecordFlow SortSetup::makeFlow() {
    const RecordOptions& records = options_.records;
    switch (inputKindOf(records)) {
        case InputKind::kRows:
            return csvRecords(records, options_.mode, inputs_, options_.memoryBytes, errors_,
                              output_);
        case InputKind::kLines:
            return valueLineRecords(records, options_.mode, inputs_, output_);
        case InputKind::kRecords:
            break;
    }
    return fixedRecords(records, options_.mode, inputs_, output_);
}

void addSortOptions(CLI::App& command, SortOptions& options) {
    command
        .add_option("INPUT", options.inputs,
                    "Files to sort, read one behind the other; - for standard input")
        ->required();
    addRecordOptions(command, options.records);
    addCsvOptions(command, options.records);
    addTextOptions(command, options.records);
    command.add_option("--random", options.randomSeed,
                       "No order but that of chance: the same for the same inputs and number");
    addModeOptions(command, options.mode);
    command.add_option(
        "--collation", options.collation,
        "Order of UCS-2 text: a file that tvsort-host collation wrote, or a language "
        "such as fr, whose tertiary order is then used");
    command.add_option("--memory", options.memoryBytes, "Memory for the sort, such as 64M")
        ->transform(CLI::AsSizeValue(false))
        ->transform(CLI::Validator(refuseNegative, "", "NOT_NEGATIVE"))  // is asked first
        ->default_str("64M");
    command.add_option("--block-pages", options.blockPages, "Pages of 4096 bytes per block")
        ->check(CLI::Range(1, 1 << 20));
    command.add_option("--temp-dir", options.tempDirectory,
                       "Directory for work file and socket; TMPDIR or /tmp without it");
    command.add_option("-o,--output", options.output,
                       "File to write, packed where it ends in .gz or .zst; standard output "
                       "without it");
    command
        .add_option("--timeout", options.timeoutSeconds,
                    "Give the sort up after so many seconds; never without it")
        ->check(CLI::Range(kTimeoutSecondsMin, kTimeoutSecondsMax));
    command
        .add_option("--processes", options.processCount,
                    "So many sort processes, which share the memory, and threads that feed them; "
                    "without it as many as there are processors, or 1 for small inputs")
        ->check(CLI::Range(1, kProcessesMax));
    command
        .add_option("--huge-pages", options.hugePages,
                    "Memory in pages of 2 MiB: try, off, or on, which fails where they cannot be "
                    "had")
        ->check(CLI::IsMember({"off", "try", "on"}))
        ->default_str("off");
    command.add_option("--process", options.process, "The tvsort program to use");
    command
        .add_flag("--stats{text}", options.stats,
                  "Say on standard error what happened; --stats=json for machines")
        ->check(CLI::IsMember({"text", "json"}));
    command.add_flag("-m,--merge", options.isMerged,
                     "The inputs are in order already: merge them; the first two rows that are not "
                     "in order are named, and nothing is written");
    command
        .add_flag("-c{only},--check{only}", options.check,
                  "Sort nothing: say whether the rows are in order, with status 0 or 1, and "
                  "name the first two that are not. =off, with --merge: the order of the inputs is "
                  "taken for granted")
        ->check(CLI::IsMember({kOnlyCheck, kNoCheck}));
}

}  // namespace tvsort::tools
