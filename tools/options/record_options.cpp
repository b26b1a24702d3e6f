#include "tools/options/record_options.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/host_error.h"
#include "tools/files/input_file.h"
#include "tools/options/help_topic.h"
#include "tools/options/key_text.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

namespace {

ByteWeightTable readWeights(const std::string& name) {
    ByteWeightTable table = {};
    table.identifier = kWeightTableId;
    table.applies = 1;
    InputFile file(name);
    const std::size_t read = file.read(table.weights, sizeof table.weights);
    if (Byte more = 0; read < sizeof table.weights || file.read(&more, 1) > 0) {
        throw host::badUse(
            fmt::format("--weights {}: a weight table has exactly {} bytes, the "
                        "weight of each byte value",
                        name, sizeof table.weights));
    }
    return table;
}

void checkInsideRecord(const std::string& option, std::uint32_t end, std::uint16_t recordLength) {
    if (end > recordLength) {
        throw host::badUse(
            fmt::format("{} reaches byte {} of a record of {} bytes; check the "
                        "offset and --record-length",
                        option, end, recordLength));
    }
}

bool allEndWith(const std::vector<std::string>& names, const std::string& ending) {
    return !names.empty() && std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        return name.ends_with(ending);
    });
}

char parseDelimiter(const std::string& text) {
    if (text == "tab" || text == "\\t") return '\t';
    if (text.size() == 1 && text[0] != '"' && text[0] != '\n' && text[0] != '\r') return text[0];
    throw host::badUse(fmt::format(
        "--delimiter {}: name one character that is no quote and no line end, or tab", text));
}

void checkRowOptions(const RecordOptions& options) {
    if (options.lines || !options.as.empty() || options.recordLength.has_value() ||
        options.nullsOffset.has_value()) {
        throw host::badUse(
            "CSV files are ordered by columns: leave --lines, --as, --record-length and --nulls "
            "out");
    }
    if (options.zeroTerminated) {
        throw host::badUse(
            "--zero-terminated is for lines; the rows of a CSV file end with a line");
    }
}

void checkFieldOptions(const RecordOptions& options) {
    if (options.lines || !options.as.empty() || options.recordLength.has_value() ||
        options.nullsOffset.has_value() || !options.weightsFile.empty()) {
        throw host::badUse(
            "--format fields orders lines by --key NUMBER[:TYPE]: leave --lines, --as, "
            "--record-length, --nulls and --weights out");
    }
}

}  // namespace

void addRecordOptions(CLI::App& command, RecordOptions& options) {
    command.add_flag("--lines", options.lines,
                     "Records are text lines, ordered by their bytes as LC_ALL=C sort does");
    command.add_option(
        "--as", options.as,
        "Lines are values, ordered by what they mean: TYPE[:desc][:nulls-first|:nulls-last] with "
        "a type of the list below; an empty line is null where it can be no value");
    command.add_option("--record-length", options.recordLength, "Bytes per record, 1 to 65535")
        ->check(CLI::Range(1, 65535));
    command
        .add_option("--key", options.keys,
                    "A sort key, most significant first: "
                    "TYPE:OFFSET[:LENGTH][:desc][:nulls-first|:nulls-last]")
        ->allow_extra_args(false);
    command.add_option("--nulls", options.nullsOffset,
                       "Offset of the null indicators: one byte per --key, 1 for null");
    command.add_option("--weights", options.weightsFile,
                       "File of 256 bytes: the weight of each byte value, for weighted keys");
    command.set_help_flag("-h,--help",
                          "Print this help message and exit; of the options and types of one kind "
                          "of input alone where it is said: --help " +
                              helpTopics() + ", or the other words of a command");
    command.footer(typesHelp());
}

void addCsvOptions(CLI::App& command, RecordOptions& options) {
    const std::string group = "CSV files (by their ending .csv or .tsv, or by --format)";
    command
        .add_option("--format", options.format,
                    "csv or tsv: inputs are rows of columns, with the names of the columns first. "
                    "A key is then COLUMN[:TYPE][:desc][:nulls-first|:nulls-last], COLUMN a name "
                    "or #NUMBER; an empty field without quotes is null. fields: lines of fields "
                    "with blanks between them, COLUMN a number or a range such as 2-4")
        ->check(CLI::IsMember({kCsvFormat, kTsvFormat, kFieldsFormat}))
        ->group(group);
    command
        .add_option("--delimiter", options.delimiter,
                    "What stands between fields: one character, or tab; a comma in csv")
        ->group(group);
    command
        .add_flag("--no-header", options.noHeader,
                  "The first row is like the others; keys name columns by number, from 1")
        ->group(group);
    command
        .add_option("--on-error", options.onError,
                    "What happens at a row or a value that cannot be read: stop, skip the row or "
                    "put it last, and say so; the exit status is then 3")
        ->check(CLI::IsMember({kStopOnError, kSkipOnError, kLastOnError}));
    command
        .add_flag("--ragged", options.isRagged,
                  "Rows may have more fields than the first one, or fewer, which are then null")
        ->group(group);
}

void addTextOptions(CLI::App& command, RecordOptions& options) {
    command.add_flag("-r,--reverse", options.isReversed,
                     "Every key the other way round; equal records stay as they were read");
    command.add_flag("-z,--zero-terminated", options.zeroTerminated,
                     "Lines end with a zero byte instead of a newline");
    command.add_flag("--plain", options.isPlain,
                     "Inputs are text from their first byte on: none is unpacked, and what looks "
                     "like the mark of an encoding belongs to the first line");
    command.add_option("--null", options.nullWord,
                       "A value that stands for null, such as \\N, besides the empty one");
}

void recogniseFormat(const std::vector<std::string>& inputs, RecordOptions& options) {
    if (!options.format.empty() || options.lines || options.recordLength.has_value()) return;
    for (const std::string packed : {"", ".gz", ".zst"}) {
        if (allEndWith(inputs, ".csv" + packed)) options.format = kCsvFormat;
        if (allEndWith(inputs, ".tsv" + packed)) options.format = kTsvFormat;
    }
}

InputKind inputKindOf(const RecordOptions& options) {
    if (options.format == kFieldsFormat) return InputKind::kLines;
    if (!options.format.empty()) return InputKind::kRows;
    return options.lines ? InputKind::kLines : InputKind::kRecords;
}

char delimiterOf(const RecordOptions& options) {
    if (options.delimiter.has_value()) return parseDelimiter(*options.delimiter);
    return options.format == kTsvFormat ? '\t' : ',';
}

void addWeights(const RecordOptions& options, host::RequestBuilder& request) {
    if (!options.weightsFile.empty()) request.addWeightTable(readWeights(options.weightsFile));
}

KeyText lineKey(const RecordOptions& options) {
    return parseKey(options.as.empty() ? "text" : options.as, host::ValuePlace::kLine,
                    options.isReversed);
}

void checkRecordOptions(const RecordOptions& options) {
    if (inputKindOf(options) == InputKind::kRows) return checkRowOptions(options);
    if (options.delimiter.has_value() || options.noHeader || options.isRagged) {
        throw host::badUse(
            "--delimiter, --no-header and --ragged are for CSV files: name one that ends in "
            ".csv, or add --format csv");
    }
    if (options.format == kFieldsFormat) return checkFieldOptions(options);
    const bool fixedOptions = options.recordLength.has_value() || !options.keys.empty() ||
                              options.nullsOffset.has_value() || !options.weightsFile.empty();
    if (options.lines && fixedOptions) {
        throw host::badUse(
            "--lines orders whole lines: leave --record-length, --key, --nulls and "
            "--weights out");
    }
    if (!options.lines && !options.as.empty()) {
        throw host::badUse("--as says what text lines are; add --lines, or say --key instead");
    }
    if (options.lines) return;
    if (options.zeroTerminated || options.isPlain || options.nullWord.has_value() ||
        !options.onError.empty()) {
        throw host::badUse(
            "--zero-terminated, --plain, --null and --on-error are for lines and rows: add "
            "--lines, or --format");
    }
    if (!options.recordLength.has_value()) {
        throw host::badUse(
            "say what the records are: --record-length N with --key, --lines, or --format csv");
    }
    if (options.keys.empty()) {
        throw host::badUse("say what to order by: --key TYPE:OFFSET[:LENGTH], once or more");
    }
}

host::RequestBuilder requestFor(const RecordOptions& options) {
    host::RequestBuilder request;
    const std::uint16_t recordLength = options.recordLength.value();
    for (const std::string& text : options.keys) {
        const KeyText parsed = parseKey(text, host::ValuePlace::kRecord, options.isReversed);
        const std::uint16_t contentBytes = parsed.length.value_or(0);
        const auto fieldBytes = static_cast<std::uint32_t>(parsed.format.fieldBytes(contentBytes));
        checkInsideRecord("--key " + text, parsed.fieldOffset + fieldBytes, recordLength);
        KeyDescriptor key = parsed.descriptor(contentBytes);
        key.weightTableId = kWeightTableId;
        request.addKey(key);
    }
    if (options.nullsOffset.has_value()) {
        const auto indicators = static_cast<std::uint32_t>(options.keys.size());
        checkInsideRecord("--nulls", *options.nullsOffset + indicators, recordLength);
        request.setNullIndicators(*options.nullsOffset);
    }
    addWeights(options, request);
    return request;
}

}  // namespace tvsort::tools
