#include "tools/ranges/range_input.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "host/private_directory.h"
#include "tools/files/compression.h"
#include "tools/files/progress.h"
#include "tools/files/text_marks.h"
#include "tools/formats/csv/csv_flow.h"
#include "tools/formats/csv/csv_scan.h"
#include "tools/formats/lines/line_flow.h"
#include "tools/options/key_text.h"

namespace tvsort::tools {

namespace {

RecordOptions understood(const RangeOptions& options) {
    RecordOptions records = options.records;
    recogniseFormat({options.input}, records);
    checkRecordOptions(records);
    if (inputKindOf(records) == InputKind::kRecords) {
        throw host::badUse(
            "ranges are made of lines and rows, whose keys become ordered bytes: say --lines, or "
            "--format with --key");
    }
    if (!records.format.empty() && records.keys.empty())
        throw host::badUse("say what to order by: --key COLUMN[:TYPE], once or more");
    return records;
}

std::vector<KeyText> keysOf(const RecordOptions& records) {
    if (records.keys.empty()) return {lineKey(records)};
    std::vector<KeyText> keys;
    for (const std::string& text : records.keys)
        keys.push_back(parseKey(text, host::ValuePlace::kColumn, records.isReversed));
    return keys;
}

void checkColumns(const RecordOptions& records) {
    if (!records.columnCount.has_value() || records.noHeader) return;
    throw host::badUse("--columns says what a header would; it goes with --no-header");
}

void checkTypes(const RecordOptions& records) {
    for (const KeyText& key : keysOf(records)) {
        if (!key.ordered.has_value()) {
            throw host::badUse(
                "the process compares values of this type, so they have no ordered bytes to make "
                "ranges of; the types that have stand first in sort --help");
        }
        if (key.ordered->type.name == host::kAutoType) {
            throw host::badUse(
                "the type auto depends on the values of all inputs; name the type that is meant");
        }
    }
}

// What stands behind the column in a key's text.
std::string behindColumn(const std::string& text, const std::string& column) {
    if (!text.starts_with('"')) return text.substr(column.size());
    const auto quotes = std::count(column.begin(), column.end(), '"');
    return text.substr(column.size() + static_cast<std::size_t>(quotes) + 2);
}

}  // namespace

void addRangeOptions(CLI::App& command, RangeOptions& options) {
    command.add_option("INPUT", options.input, "A file of lines or rows")->required();
    addRecordOptions(command, options.records);
    addCsvOptions(command, options.records);
    addTextOptions(command, options.records);
    command
        .add_option("--memory", options.memoryBytes,
                    "Memory of the sort, such as 64M, a quarter of which a row can have")
        ->transform(CLI::AsSizeValue(false))
        ->default_str("64M");
    command.add_option("--temp-dir", options.tempDirectory,
                       "Directory for an input that is unpacked; TMPDIR or /tmp without it");
    command
        .add_option("--columns", options.records.columnCount,
                    "With --no-header: rows have so many fields; as the first has without this")
        ->check(CLI::Range(std::size_t{1}, kColumnsOfNothing));
    command.add_option("--share", options.share,
                       "BEGIN:END, bytes of the input, or BEGIN: to its end: only rows that begin "
                       "there. A split ends with the last one that does, and reports where it and "
                       "the next one begin, how many lines ended, and rows that it could not read");
}

RangeInput::RangeInput(const RangeOptions& options)
    : options_(understood(options)), nowhere_("/dev/null") {
    checkColumns(options_);
    checkTypes(options_);
    open(options);
    const bool isOfRows = inputKindOf(options_) == InputKind::kRows;
    flow_ = isOfRows ? csvOrderedFlow(options_, {}, files_, options.memoryBytes, nowhere_)
                     : lineOrderedFlow(options_, {}, files_, options.memoryBytes, nowhere_);
    if (isOfRows) readColumns();
}

void RangeInput::open(const RangeOptions& options) {
    const std::filesystem::path tempDirectory = options.tempDirectory.empty()
                                                    ? host::defaultTempDirectory()
                                                    : std::filesystem::path(options.tempDirectory);
    InputFile input(options.input);
    if (options_.isPlain) input.takeAsPlain();
    if (!input.fileBytes().has_value()) {
        throw host::badUse(fmt::format("{} is no regular file, and ranges are made of files alone",
                                       input.displayName()));
    }
    const Compression compression = compressionMarked(firstBytes(input));
    wasPacked_ = compression != Compression::kNone;
    Progress silent(true);
    input = unpacked(compression, std::move(input), tempDirectory, silent);
    refuseWideText(input);
    files_.push_back(std::move(input));
}

void RangeInput::readColumns() {
    const CsvTable table = readTable(delimiterOf(options_), !options_.noHeader,
                                     rows().rowBytesMax(), files_, options_.columnCount);
    columns_ = table.names;
    const bool isCounted = !columns_.empty() || rows().places().end() > rows().firstRowOf(0);
    if (isCounted && !options_.isRagged) columnCount_ = table.columnCount;
}

std::vector<std::string> RangeInput::keysByNumber() const {
    if (inputKindOf(options_) != InputKind::kRows || options_.noHeader) return options_.keys;
    std::vector<std::string> keys;
    for (const std::string& text : options_.keys) {
        const std::string column = parseKey(text, host::ValuePlace::kColumn).column;
        const std::size_t index = columnIndexOf(column, columns_, columns_.size(), "--key");
        keys.push_back(std::to_string(index + 1) + behindColumn(text, column));
    }
    return keys;
}

}  // namespace tvsort::tools
