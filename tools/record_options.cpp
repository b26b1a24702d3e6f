#include "tools/record_options.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/host_error.h"
#include "host/value_text.h"
#include "tools/input_file.h"
#include "tools/key_option.h"
#include "tools/key_types.h"

namespace tvsort::tools {

namespace {

// The identifier that ties weighted keys to the one table of the command line.
constexpr std::uint16_t kWeightTableId = 1;

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

}  // namespace

void addRecordOptions(CLI::App& command, RecordOptions& options) {
    command.add_flag("--lines", options.lines,
                     "Records are text lines, ordered by their bytes as LC_ALL=C sort does");
    command.add_option(
        "--as", options.as,
        "Lines are values, ordered by what they mean: TYPE[:desc][:nulls-first|:nulls-last] with "
        "one of the types " +
            host::valueFormatNames() + "; an empty line is null where it can be no value");
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
    command.footer("Key types:\n" + keyTypesHelp());
}

void checkRecordOptions(const RecordOptions& options) {
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
    if (!options.recordLength.has_value()) {
        throw host::badUse("say what the records are: --record-length N with --key, or --lines");
    }
    if (options.keys.empty()) {
        throw host::badUse("say what to order by: --key TYPE:OFFSET[:LENGTH], once or more");
    }
}

host::RequestBuilder requestFor(const RecordOptions& options) {
    host::RequestBuilder request;
    const std::uint16_t recordLength = options.recordLength.value();
    for (const std::string& text : options.keys) {
        KeyDescriptor key = parseKey(text);
        key.weightTableId = kWeightTableId;
        checkInsideRecord("--key " + text, key.fieldOffset + keyBytes(key), recordLength);
        request.addKey(key);
    }
    if (options.nullsOffset.has_value()) {
        const auto indicators = static_cast<std::uint32_t>(options.keys.size());
        checkInsideRecord("--nulls", *options.nullsOffset + indicators, recordLength);
        request.setNullIndicators(*options.nullsOffset);
    }
    if (!options.weightsFile.empty()) request.addWeightTable(readWeights(options.weightsFile));
    return request;
}

}  // namespace tvsort::tools
