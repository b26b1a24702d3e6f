// The first reading of CSV files: what columns there are, and how much room rows and keys need.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/input_file.h"
#include "tools/formats/csv/csv_record.h"
#include "tools/formats/csv/csv_rows.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

// Without any row, a key may name whatever column it likes.
inline constexpr std::size_t kColumnsOfNothing = 65535;

// How CSV files are written, and what they have in common.
struct CsvTable {
    char delimiter = ',';
    bool hasHeader = true;
    std::size_t rowBytesMax = 0;     // of a row that can be read
    std::vector<std::string> names;  // none without a header
    std::size_t columnCount = 0;
    bool isRagged = false;       // rows may have other numbers of fields
    std::string mark;            // the first input's byte order mark, if it has one
    std::string header;          // the first input's header row, with a line end
    std::string lineEnd = "\n";  // of the first row that has one
    // Of each input, the byte at which its first row begins behind mark and header.
    std::vector<std::uint64_t> firstRows;
};

// Gives the rows of one input, the header and malformed rows left out.
class CsvTableRows {
  public:
    // `errors` takes malformed rows, which are given, with their problem, where they are kept;
    // null: they are passed over in silence.
    CsvTableRows(InputFile& input, const CsvTable& table, RowErrors* errors);

    bool next(CsvRow& row);
    const std::vector<CsvField>& fields() const { return rows_.fields(); }
    // "FILE, line N", for messages.
    std::string nameOf(const CsvRow& row) const;

  private:
    InputFile& input_;
    const CsvTable& table_;
    RowErrors* errors_;
    CsvRows rows_;
    bool headerRead_ = false;
};

// Reads the first row of each input, and rewinds. Throws when the inputs do not have the same
// columns. Without a header, `columnCount` says how many there are, whatever the first row has.
CsvTable readTable(char delimiter, bool hasHeader, std::size_t rowBytesMax,
                   std::vector<InputFile>& inputs,
                   std::optional<std::size_t> columnCount = std::nullopt);

struct CsvExtent {
    std::int64_t rowCount = 0;
    std::size_t rowBytesMax = 0;
    std::uint64_t rowBytesTotal = 0;
};

// Reads all inputs and rewinds them. Makes room in the fields of the keys whose `isMeasured` is
// set. A row that cannot be read is thrown unless `errors` skips such rows.
CsvExtent measureRows(const CsvTable& table, std::vector<KeyColumn>& keys,
                      const std::vector<bool>& isMeasured, const RowErrors& errors,
                      std::vector<InputFile>& inputs);

}  // namespace tvsort::tools
