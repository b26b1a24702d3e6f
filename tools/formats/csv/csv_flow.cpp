#include "tools/formats/csv/csv_flow.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/host_error.h"
#include "host/values/number_text.h"
#include "tools/formats/csv/csv_keyed.h"
#include "tools/formats/csv/csv_output.h"
#include "tools/formats/csv/csv_record.h"
#include "tools/formats/csv/csv_scan.h"
#include "tools/options/key_text.h"

namespace tvsort::tools {

namespace {

// A row above this size needs so much memory that it is rather an open quote.
constexpr std::uint64_t kRowBytesMin = std::uint64_t{1} << 20;
// Rows up to this size cost less when they travel with their records than when they are fetched.
constexpr std::size_t kShortRowBytesMax = 128;
// The same for longer ones up to this size, unless a few long rows would make all records long.
constexpr std::size_t kCarriedBytesMax = 512;
constexpr std::uint64_t kLongestToAverageMax = 2;
// Of the memory, for rows on their way out that were not carried.
constexpr std::uint64_t kFetchShare = 4;

// Lays the rows of one input into records, in the second reading.
class CsvSource : public Operand {
  public:
    // `inputStart` bytes lie in the inputs before this one.
    CsvSource(InputFile& input, std::shared_ptr<const CsvTable> table, CsvRecord layout,
              std::uint64_t inputStart, RowErrors& errors, std::shared_ptr<TextBalance> balance)
        : Operand(input.displayName(), "line"),
          input_(input),
          table_(std::move(table)),
          rows_(input, *table_, &errors),
          layout_(std::move(layout)),
          inputStart_(inputStart),
          inputBytes_(input.fileBytes().value_or(0)),
          errors_(errors),
          balance_(std::move(balance)) {}

  private:
    std::size_t readRecords(Byte* target, std::size_t recordsMax) override {
        std::size_t records = 0;
        while (records < recordsMax && rows_.next(row_)) {
            if (encode(target + records * layout_.recordLength())) records += 1;
        }
        return records;
    }

    bool encode(Byte* target) {
        // The place of a row that was appended since is one of the next input, or of none.
        const auto rowEnd = row_.offset + static_cast<std::int64_t>(row_.bytes.size());
        if (rowEnd > inputBytes_ && !layout_.carriesRows()) {
            throw changedWhileRead(input_.displayName());
        }
        try {
            layout_.encode(rows_.fields(), row_.bytes,
                           inputStart_ + static_cast<std::uint64_t>(row_.offset), target);
            balance_->goes(row_.bytes.size());
            return true;
        } catch (const host::HostError& error) {
            errors_.take(fmt::format("{}, {}", rows_.nameOf(row_), error.what()));
            return false;
        }
    }

    // Rows have several lines, and some rows are left out: they are read once more.
    std::int64_t unitNumberOf(std::int64_t recordNumber) override {
        input_.rewind();
        RowErrors skipped(kSkipOnError);
        CsvSource again(input_, table_, layout_, inputStart_, skipped,
                        std::make_shared<TextBalance>());
        std::vector<Byte> record(layout_.recordLength());
        for (std::int64_t i = 0; i < recordNumber; ++i)
            again.read(record.data(), 1);
        return again.row_.lineNumber;
    }

    InputFile& input_;
    std::shared_ptr<const CsvTable> table_;
    CsvTableRows rows_;
    CsvRecord layout_;
    std::uint64_t inputStart_;
    std::int64_t inputBytes_;  // when the rows were measured
    RowErrors& errors_;
    std::shared_ptr<TextBalance> balance_;
    CsvRow row_ = {};
};

std::vector<KeyText> parseKeys(const RecordOptions& options) {
    std::vector<KeyText> keys;
    for (const std::string& text : options.keys)
        keys.push_back(parseKey(text, host::ValuePlace::kColumn, options.isReversed));
    return keys;
}

std::vector<KeyColumn> keyColumns(const std::vector<KeyText>& keys, const CsvTable& table) {
    std::vector<KeyColumn> columns;
    for (const KeyText& key : keys) {
        const std::size_t index =
            columnIndexOf(key.column, table.names, table.columnCount, "--key");
        columns.push_back(
            {index, key.column,
             key.ordered.has_value() ? ColumnField(*key.ordered) : ColumnField(key.format),
             key.kindFlags});
        ColumnField& field = columns.back().field;
        if (!key.length.has_value()) continue;
        if (field.bytesOfLength(*key.length) > field.contentBytesLimit()) {
            throw host::badUse(fmt::format(
                "--key {}: a length of {} makes values of more than {} bytes; name a smaller one",
                key.column, *key.length, field.contentBytesLimit()));
        }
        field.setContentBytes(field.bytesOfLength(*key.length));
    }
    return columns;
}

std::optional<LevelColumn> levelColumn(const ModeOptions& mode, const CsvTable& table) {
    if (!mode.hierarchy) return std::nullopt;
    return LevelColumn{columnIndexOf(mode.level, table.names, table.columnCount, "--level"),
                       mode.level, ColumnField(host::valueFormat("int32"))};
}

bool areCarried(const CsvExtent& extent) {
    if (extent.rowBytesMax <= kShortRowBytesMax) return true;
    const std::uint64_t carriedBytes =
        extent.rowBytesMax * static_cast<std::uint64_t>(extent.rowCount);
    return extent.rowBytesMax <= kCarriedBytesMax &&
           carriedBytes <= kLongestToAverageMax * extent.rowBytesTotal;
}

// What stands before the rows: groups put a column in front of the others.
std::string headOf(const CsvTable& table, const ModeOptions& mode) {
    std::string header = table.mark;
    if (table.hasHeader && !mode.groups.empty()) {
        header += mode.groups == kCountGroups ? "count" : "group";
        header += table.delimiter;
    }
    return header + table.header;
}

std::shared_ptr<const CsvTable> openTable(const RecordOptions& options,
                                          std::vector<InputFile>& inputs,
                                          std::uint64_t memoryBytes) {
    CsvTable table =
        readTable(delimiterOf(options), !options.noHeader,
                  std::max(memoryBytes / kFetchShare, kRowBytesMin), inputs, options.columnCount);
    table.isRagged = options.isRagged;
    // Where nobody names the columns, any row may have the most of them.
    if (table.isRagged && !table.hasHeader) table.columnCount = kColumnsOfNothing;
    return std::make_shared<const CsvTable>(std::move(table));
}

// Without any key, of all columns, if there is one.
std::vector<RowKeyColumn> orderedColumns(const RecordOptions& options, const ModeOptions& mode,
                                         const CsvTable& table,
                                         const std::vector<InputFile>& inputs) {
    std::vector<RowKeyColumn> columns;
    for (const KeyText& key : parseKeys(options)) {
        columns.push_back({columnIndexOf(key.column, table.names, table.columnCount, "--key"),
                           key.column, key.ordered.value()});
    }
    const bool hasRows = std::any_of(inputs.begin(), inputs.end(), [](const InputFile& input) {
        return input.fileBytes().value_or(0) > 0;
    });
    if (!columns.empty() || operationOf(mode) == Operation::kOrder || !hasRows) return columns;
    host::KeyForm form;
    form.type.name = "text";
    form.isDescending = options.isReversed;
    if (table.isRagged) return {{RowKeyColumn::kAllFields, "all fields", form}};
    for (std::size_t i = 0; i < table.columnCount; ++i)
        columns.push_back({i, table.hasHeader ? table.names[i] : std::to_string(i + 1), form});
    return columns;
}

// The text of a column as a level.
RowLevel levelIn(std::span<const RowField> fields, std::size_t columnIndex,
                 const std::string& name) {
    try {
        if (columnIndex >= fields.size() || fields[columnIndex].isNull)
            throw host::badUse("it is empty, and a hierarchy needs a level in each row");
        return {host::parseNumber<std::int32_t>(fields[columnIndex].text, "level"), ""};
    } catch (const host::HostError& error) {
        return {std::nullopt, fmt::format(", column {}: {}", name, error.what())};
    }
}

}  // namespace

OrderedFlow csvOrderedFlow(const RecordOptions& options, const ModeOptions& mode,
                           std::vector<InputFile>& inputs, std::uint64_t memoryBytes,
                           OutputFile& output) {
    const auto table = openTable(options, inputs, memoryBytes);
    OrderedFlow flow;
    flow.delimiter = table->delimiter;
    flow.input = std::make_unique<CsvKeyedInput>(
        table, orderedColumns(options, mode, *table, inputs),
        RowKeyRules{options.nullWord, options.onError == kLastOnError}, inputs);
    if (mode.hierarchy) {
        const std::size_t index =
            columnIndexOf(mode.level, table->names, table->columnCount, "--level");
        flow.readLevel = [index, name = mode.level](const RowReader& reader, const KeyedRow&) {
            return levelIn(reader.fields(), index, name);
        };
    }
    flow.writer = std::make_unique<RowWriter>(RowWriter::Form{headOf(*table, mode), table->lineEnd},
                                              inputs, memoryBytes / kFetchShare, output);
    return flow;
}

RecordFlow csvRecords(const RecordOptions& options, const ModeOptions& mode,
                      std::vector<InputFile>& inputs, std::uint64_t memoryBytes, RowErrors& errors,
                      OutputFile& output) {
    errors.restart();
    const std::vector<KeyText> keys = parseKeys(options);
    const auto table = openTable(options, inputs, memoryBytes);
    std::vector<KeyColumn> columns = keyColumns(keys, *table);
    std::vector<bool> isMeasured;
    for (std::size_t i = 0; i < keys.size(); ++i)
        isMeasured.push_back(columns[i].field.hasLength() && !keys[i].length.has_value());
    const CsvExtent extent = measureRows(*table, columns, isMeasured, errors, inputs);
    const CsvRecord layout(std::move(columns), levelColumn(mode, *table),
                           areCarried(extent) ? std::max<std::size_t>(extent.rowBytesMax, 1) : 0);

    RecordFlow flow;
    flow.kind = InputKind::kRows;
    if (!layout.carriesRows()) flow.memoryShare = kFetchShare;
    flow.delimiter = table->delimiter;
    flow.recordLength = layout.recordLength();
    flow.fields = layout.fields();
    flow.request = layout.request(kWeightTableId);
    addWeights(options, flow.request);
    std::uint64_t inputStart = 0;
    const auto balance = std::make_shared<TextBalance>();
    for (InputFile& input : inputs) {
        flow.operands.push_back(
            std::make_shared<CsvSource>(input, table, layout, inputStart, errors, balance));
        inputStart += static_cast<std::uint64_t>(input.fileBytes().value_or(0));
    }
    flow.output = std::make_shared<CsvOutput>(layout, balance,
                                              RowWriter({headOf(*table, mode), table->lineEnd},
                                                        inputs, memoryBytes / kFetchShare, output));
    if (mode.hierarchy) {
        flow.readLevel = [layout](const Byte* record) -> LevelReading {
            return {layout.levelOf(record), ""};
        };
    }
    return flow;
}

}  // namespace tvsort::tools
