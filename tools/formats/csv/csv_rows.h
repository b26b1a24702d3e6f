// Rows out of a CSV file (RFC 4180), whatever their length.
//
//     id,name,note\r\n              three fields
//     1,"Ann, the first",\r\n       the second holds the delimiter, the third is null
//     2,"Bob ""B""","two\r\n        a quote stands twice in a quoted field, and a line end may
//     lines"\r\n                    stand there: this row has two lines
//
// A row without a quote is taken apart here; what quotes mean is libcsv's business, in its strict
// mode: a quote opens a field or stands in a quoted one, and nothing but a delimiter or the row's
// end follows the closing one. Blanks belong to their field. A row ends with LF or CR LF; a CR
// elsewhere outside of quotes is malformed.
//
// A malformed row ends with its first line, so that a stray quote does not hide what follows it.

#pragma once

#include <csv.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/bytes.h"
#include "tools/files/input_file.h"
#include "tools/files/input_window.h"
#include "tools/formats/row_field.h"

namespace tvsort::tools {

// Its text is without its quotes; it is null when it is empty and without quotes.
using CsvField = RowField;

struct CsvRow {
    std::string_view bytes;   // as they stand in the file, with the line end if there is one
    std::int64_t offset;      // of its first byte in the file
    std::int64_t lineNumber;  // of its first line, from 1
    // What is wrong with the row, to follow "the row"; empty for a good one.
    std::string problem;
};

// Takes one row apart, line by line.
class CsvRowParser {
  public:
    explicit CsvRowParser(char delimiter);
    ~CsvRowParser();
    CsvRowParser(const CsvRowParser&) = delete;
    CsvRowParser& operator=(const CsvRowParser&) = delete;

    enum class Outcome : std::uint8_t { kWhole, kGoesOn, kMalformed };
    // Takes the row's next line with its line end, which only the file's last may lack. The views
    // of the fields are good until the next row and need the line as long.
    Outcome take(std::string_view line);
    // No line follows a row that goes on.
    Outcome end();
    // Drops a row that goes on.
    Outcome fail(const std::string& problem);
    // Of a whole row.
    const std::vector<CsvField>& fields() const { return fields_; }
    // Of a malformed row.
    const std::string& problem() const { return problem_; }

  private:
    Outcome takePlain(std::string_view content);
    // False where it breaks the rules.
    bool feed(std::string_view text);
    static void onField(void* text, std::size_t byteCount, void* self);
    static void onEnd(int endCharacter, void* self);

    char delimiter_;
    csv_parser parser_;
    bool goesOn_ = false;
    bool ended_ = false;   // libcsv has come to a row's end
    std::string content_;  // of the quoted row's fields, one behind the other
    struct Piece {
        std::size_t begin;
        std::size_t end;
        bool isNull;
    };
    std::vector<Piece> pieces_;
    std::vector<CsvField> fields_;
    std::string problem_;
};

// What is read at once; the buffer grows with longer rows.
inline constexpr std::size_t kCsvBufferBytes = std::size_t{256} * 1024;

class CsvRows {
  public:
    // A row of more than `rowBytesMax` bytes is malformed, or, if its first line alone has more,
    // thrown as bad use. A byte order mark at the start is passed over; it
    // belongs to no row. Needs the input, at its start, as long as it reads.
    CsvRows(InputFile& input, char delimiter, std::size_t rowBytesMax,
            std::size_t bufferBytes = kCsvBufferBytes);

    // The next row, whole or malformed, or false at the end. Its views are good until the next
    // call.
    bool next(CsvRow& row);
    // Of the row that `next` gave last, if it is a good one.
    const std::vector<CsvField>& fields() const { return parser_.fields(); }
    // Whether the file starts with a byte order mark; known after the first row.
    bool hasMark() const { return hasMark_; }

  private:
    // The line at `from` bytes behind the row's start, with its line end; empty at the end.
    std::string_view lineAt(std::size_t from);
    void passMark();
    CsvRowParser::Outcome refuseLongRow(std::int64_t lineCount);
    void finishRow(std::size_t byteCount, std::int64_t lineCount, CsvRow& row);

    InputFile& input_;
    CsvRowParser parser_;
    std::size_t rowBytesMax_;
    InputWindow window_;  // from the row that is read on
    bool started_ = false;
    bool hasMark_ = false;
    std::int64_t offset_ = 0;  // of the row that is read
    std::int64_t lineNumber_ = 1;
};

inline constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

}  // namespace tvsort::tools
