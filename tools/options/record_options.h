// The options that say what a file's records are and how they are to be ordered, which all commands
// share that deal with ordered files:
//
//     --record-length N --key TYPE:OFFSET... [--nulls OFFSET] [--weights FILE]
//     --lines [--as TYPE]
//     [--format csv|tsv] --key COLUMN[:TYPE]... [--delimiter C] [--no-header] [--weights FILE]
//     --format fields --key NUMBER[-NUMBER][:TYPE]...

#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/request_builder.h"
#include "tools/options/key_text.h"

namespace tvsort::tools {

// What an input is made of.
enum class InputKind : std::uint8_t { kRecords, kLines, kRows };

struct RecordOptions {
    bool lines = false;
    std::string format;                    // empty, kCsvFormat, kTsvFormat or kFieldsFormat
    std::optional<std::string> delimiter;  // none: what the format has
    bool noHeader = false;
    bool isRagged = false;
    bool zeroTerminated = false;
    bool isPlain = false;                    // marks at an input's start are text
    std::optional<std::size_t> columnCount;  // without a header; none: as the first row has
    bool isReversed = false;
    std::optional<std::string> nullWord;
    std::string onError;
    std::string as;  // type of the values that the lines are; empty: they are ordered as bytes
    std::optional<std::uint16_t> recordLength;
    std::vector<std::string> keys;
    std::optional<std::uint16_t> nullsOffset;
    std::string weightsFile;
};

inline constexpr char kCsvFormat[] = "csv";
inline constexpr char kTsvFormat[] = "tsv";
inline constexpr char kFieldsFormat[] = "fields";

// Adds the options of records and lines to a subcommand, and those of CSV files; they fill
// `options` when it is parsed.
void addRecordOptions(CLI::App& command, RecordOptions& options);
void addCsvOptions(CLI::App& command, RecordOptions& options);

// Options that change what lines and rows are read as, however they are ordered.
void addTextOptions(CLI::App& command, RecordOptions& options);

// Fills in the format that the endings of the inputs' names say, where the options leave it open.
void recogniseFormat(const std::vector<std::string>& inputs, RecordOptions& options);
InputKind inputKindOf(const RecordOptions& options);
// What stands between the fields of CSV rows.
char delimiterOf(const RecordOptions& options);

// The identifier that ties weighted keys to the one table of the command line.
inline constexpr std::uint16_t kWeightTableId = 1;
// Adds the table of `--weights`, if there is one.
void addWeights(const RecordOptions& options, host::RequestBuilder& request);

// The key of whole lines: of `--as`, or of text.
KeyText lineKey(const RecordOptions& options);

// The request that the options of fixed-length records describe. Throws when one is missing, not
// understood, or reaches beyond the record.
host::RequestBuilder requestFor(const RecordOptions& options);

// Throws when options of different kinds of input are mixed, or one that the kind needs is missing.
void checkRecordOptions(const RecordOptions& options);

}  // namespace tvsort::tools
