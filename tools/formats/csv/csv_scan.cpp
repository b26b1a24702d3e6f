#include "tools/formats/csv/csv_scan.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr char kLf[] = "\n";
constexpr char kCrLf[] = "\r\n";

std::vector<std::string> namesOf(const std::vector<CsvField>& fields) {
    std::vector<std::string> names;
    names.reserve(fields.size());
    for (const CsvField& field : fields)
        names.emplace_back(field.text);
    return names;
}

void takeFirstRow(const CsvRow& row, const std::vector<CsvField>& fields, bool hasMark,
                  CsvTable& table) {
    table.columnCount = fields.size();
    table.lineEnd = row.bytes.ends_with(kCrLf) ? kCrLf : kLf;
    if (hasMark) table.mark = kByteOrderMark;
    if (!table.hasHeader) return;
    table.names = namesOf(fields);
    table.header = row.bytes;
    if (!row.bytes.ends_with(kLf)) table.header += table.lineEnd;
}

void checkSameColumns(const InputFile& first, const InputFile& other,
                      const std::vector<CsvField>& fields, const CsvTable& table) {
    if (fields.size() != table.columnCount) {
        throw host::badUse(fmt::format("{} has {} columns and {} has {}; sort files of one kind",
                                       first.displayName(), table.columnCount, other.displayName(),
                                       fields.size()));
    }
    if (!table.hasHeader) return;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].text == table.names[i]) continue;
        throw host::badUse(
            fmt::format("column {} is \"{}\" in {} and \"{}\" in {}; the headers must agree", i + 1,
                        table.names[i], first.displayName(), fields[i].text, other.displayName()));
    }
}

void measureKeys(const std::vector<CsvField>& fields, const std::vector<bool>& isMeasured,
                 std::vector<KeyColumn>& keys, std::vector<std::size_t>& longest) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const CsvField& field = fields[keys[i].columnIndex];
        if (!isMeasured[i] || field.isNull) continue;
        longest[i] = std::max(longest[i], keys[i].field.measure(field.text));
    }
}

}  // namespace

CsvTableRows::CsvTableRows(InputFile& input, const CsvTable& table, RowErrors* errors)
    : input_(input),
      table_(table),
      errors_(errors),
      rows_(input, table.delimiter, table.rowBytesMax) {}

bool CsvTableRows::next(CsvRow& row) {
    while (rows_.next(row)) {
        const bool isHeader = table_.hasHeader && !headerRead_;
        headerRead_ = true;
        if (isHeader) continue;
        const bool isRight = table_.isRagged || rows_.fields().size() == table_.columnCount;
        if (row.problem.empty() && isRight) return true;
        if (errors_ == nullptr) continue;
        if (row.problem.empty()) {
            row.problem = fmt::format("has {} fields where the first row has {}",
                                      rows_.fields().size(), table_.columnCount);
        }
        errors_->take(fmt::format("{}: the row {}", nameOf(row), row.problem));
        if (errors_->keepsRows()) return true;
    }
    return false;
}

std::string CsvTableRows::nameOf(const CsvRow& row) const {
    return fmt::format("{}, line {}", input_.displayName(), row.lineNumber);
}

CsvTable readTable(char delimiter, bool hasHeader, std::size_t rowBytesMax,
                   std::vector<InputFile>& inputs, std::optional<std::size_t> columnCount) {
    CsvTable table;
    table.delimiter = delimiter;
    table.hasHeader = hasHeader;
    table.rowBytesMax = rowBytesMax;
    table.columnCount = kColumnsOfNothing;
    const InputFile* first = nullptr;
    for (InputFile& input : inputs) {
        CsvRows rows(input, delimiter, rowBytesMax);
        CsvRow row;
        const bool any = rows.next(row);
        if (!any && hasHeader) {
            throw host::badUse(input.displayName() +
                               " is empty, and its first row was to name the columns; leave it "
                               "out, or say --no-header");
        }
        const bool namesColumns = hasHeader || (first == nullptr && !columnCount.has_value());
        if (any && !row.problem.empty() && namesColumns) {
            throw host::badUse(
                fmt::format("{}, line 1: the row {}", input.displayName(), row.problem));
        }
        if (any && first == nullptr) {
            first = &input;
            takeFirstRow(row, rows.fields(), rows.hasMark(), table);
        } else if (any && hasHeader) {
            checkSameColumns(*first, input, rows.fields(), table);
        }
        table.firstRows.push_back(any ? static_cast<std::uint64_t>(row.offset) +
                                            (hasHeader ? row.bytes.size() : 0)
                                      : static_cast<std::uint64_t>(input.fileBytes().value_or(0)));
        input.rewind();
    }
    if (!hasHeader && columnCount.has_value()) table.columnCount = *columnCount;
    return table;
}

CsvExtent measureRows(const CsvTable& table, std::vector<KeyColumn>& keys,
                      const std::vector<bool>& isMeasured, const RowErrors& errors,
                      std::vector<InputFile>& inputs) {
    CsvExtent extent;
    std::vector<std::size_t> longest(keys.size(), 0);
    RowErrors stop(kStopOnError);
    for (InputFile& input : inputs) {
        CsvTableRows rows(input, table, errors.skips() ? nullptr : &stop);
        CsvRow row;
        while (rows.next(row)) {
            extent.rowCount += 1;
            extent.rowBytesMax = std::max(extent.rowBytesMax, row.bytes.size());
            extent.rowBytesTotal += row.bytes.size();
            try {
                measureKeys(rows.fields(), isMeasured, keys, longest);
            } catch (const host::HostError&) {
                // Text that is no value is met again, and named, when the row is laid out.
            }
        }
        input.rewind();
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (!isMeasured[i]) continue;
        ColumnField& field = keys[i].field;
        field.setContentBytes(std::min(longest[i], field.contentBytesLimit()));
    }
    return extent;
}

}  // namespace tvsort::tools
