// `tvsort-host sample` and `tvsort-host split`: what several machines need to sort by ranges of
// keys, each from named files to named files, so that a step can be done again anywhere.

#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/command/subcommands.h"
#include "tools/files/output_file.h"
#include "tools/files/spoken.h"
#include "tools/ranges/key_sample.h"
#include "tools/ranges/range_input.h"
#include "tools/ranges/range_split.h"
#include "tools/ranges/share_rows.h"

namespace tvsort::tools {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kSamplesMax = 100'000;

template <typename Bytes>
std::string inHexadecimal(const Bytes& bytes) {
    std::string text;
    for (const auto byte : bytes)
        text += fmt::format("{:02x}", static_cast<Byte>(byte));
    return text;
}

void writeJson(const Json& json, const std::string& name) {
    // Names of columns in words may be any bytes, too; they are for people.
    const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    OutputFile output(name);
    output.write(reinterpret_cast<const Byte*>(text.data()), text.size());
    output.finish();
}

ByteShare shareOf(const RangeOptions& options) {
    return options.share.empty() ? ByteShare() : parseShare(options.share);
}

// Names and line ends are any bytes, which JSON's texts are not.
Json sampleAsJson(const RangeOptions& options, std::size_t sampleCount) {
    const RangeInput input(options);
    const KeyedInput& rows = input.rows();
    Json json;
    json["format"] = input.options().format.empty() ? "lines" : input.options().format;
    json["bytes"] = rows.places().end() - rows.firstRowOf(0);
    json["head_bytes"] = rows.firstRowOf(0);
    json["head"] = inHexadecimal(input.form().head);
    json["packed"] = input.wasPacked();
    json["keys"] = rows.keysInWords();
    json["keys_by_number"] = input.keysByNumber();
    json["columns"] = Json::array();
    for (const std::string& column : input.columns())
        json["columns"].push_back(inHexadecimal(column));
    json["column_count"] = input.columnCount().has_value() ? Json(*input.columnCount()) : Json();
    json["line_end"] = inHexadecimal(input.form().lineEnd);
    json["samples"] = Json::array();
    for (const host::KeyBytes& key : sampleKeys(rows, shareOf(options), sampleCount))
        json["samples"].push_back(inHexadecimal(key));
    return json;
}

struct SampleOptions {
    RangeOptions range;
    std::size_t sampleCount = 0;
    std::string output;
};

struct SplitOptions {
    RangeOptions range;
    std::string splitters;
    std::string prefix;
    std::string lineEnd;
    bool beginsRow = false;
};

// What whoever splits one input by shares compares and adds up.
void addShare(const RangeInput& input, const ShareRows& rows, Json& json) {
    const LineName name = input.rows().lineName(0);
    json["begin"] = rows.begin();
    json["end"] = rows.end();
    json["lines"] = rows.lineCount();
    json["problems"] = Json::array();
    for (const ShareRows::Problem& problem : rows.problems()) {
        json["problems"].push_back(
            {harmless(name.before), problem.line, harmless(name.behind + problem.words)});
    }
}

int split(const SplitOptions& options) {
    ByteShare share = shareOf(options.range);
    share.beginsRow = options.beginsRow;
    if (share.beginsRow && options.range.share.empty())
        throw host::badUse("--begins-row says how a share begins; it goes with --share");
    const RangeInput input(options.range);
    RowErrors errors(options.range.records.onError);
    ShareRows rows(input.rows(), share, errors);
    const std::string lineEnd = options.lineEnd == "crlf" ? "\r\n"
                                : options.lineEnd == "lf" ? "\n"
                                                          : "";
    Json json;
    json["pieces"] = Json::array();
    for (const RangePiece& piece :
         splitRanges(input, rows, readSplitters(options.splitters), options.prefix, lineEnd)) {
        json["pieces"].push_back({{"rows", piece.rowCount}, {"bytes", piece.byteCount}});
    }
    json["skipped"] = errors.skippedCount();
    const bool isShare = !options.range.share.empty();
    if (isShare) addShare(input, rows, json);
    writeJson(json, "");
    if (!isShare) speak(errors.report());
    return errors.skippedCount() > 0 ? kStatusSkipped : kStatusSuccess;
}

}  // namespace

void addSampleCommand(CLI::App& app, int&) {
    const auto options = std::make_shared<SampleOptions>();
    CLI::App& command = *app.add_subcommand(
        "sample", "Write keys of rows that lie evenly in a file, as JSON, to make splitters of");
    addRangeOptions(command, options->range);
    command.add_option("--samples", options->sampleCount, "So many keys at most")
        ->required()
        ->check(CLI::Range(std::size_t{0}, kSamplesMax));
    command.add_option("-o,--output", options->output, "File to write; standard output without it");
    command.callback([options] {
        writeJson(sampleAsJson(options->range, options->sampleCount), options->output);
    });
}

void addSplitCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<SplitOptions>();
    CLI::App& command = *app.add_subcommand(
        "split", "Split a file by ranges of its keys, and print what each has, as JSON");
    addRangeOptions(command, options->range);
    command
        .add_option("--splitters", options->splitters,
                    "File with keys in hexadecimal, one on a line, in ascending order: where the "
                    "ranges behind the first one begin")
        ->required();
    command
        .add_option("-o,--output", options->prefix,
                    "Where the files go: this and five digits, the number of the range; rows "
                    "alone, without a header")
        ->required();
    command
        .add_option("--line-end", options->lineEnd,
                    "What a last row gets that lacks its end: lf or crlf; as the first row has it "
                    "without this")
        ->check(CLI::IsMember({"lf", "crlf"}));
    command.add_flag("--begins-row", options->beginsRow,
                     "A row begins at BEGIN of --share; without this the first one is searched, "
                     "which inside quotes of a CSV file may find what is none");
    command.callback([options, &exitStatus] { exitStatus = split(*options); });
}

}  // namespace tvsort::tools
