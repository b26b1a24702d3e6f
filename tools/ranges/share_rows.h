// The rows of one input that begin in a share of its bytes, so that several may read one input.
//
//     input     [ a,b | c,"d ⏎ e" | f,g ... ]
//     shares    [ 0:7    ][ 7:14    ][ 14:  ]      up to the last row that begins in one
//
// Where the first row of a share begins is searched from its first byte on. Of lines that is
// certain. In a file of rows a line end may stand in quotes, so it is a guess, which holds if the
// share before ends where this one begins; else this one is read again, with its begin given as
// that of a row.

#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tools/formats/keyed_input.h"
#include "tools/formats/text_window.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

struct ByteShare {
    std::uint64_t begin = 0;
    std::uint64_t end = std::numeric_limits<std::uint64_t>::max();
    bool beginsRow = false;  // or behind the last one

    bool startsInput() const { return begin == 0; }
};

// BEGIN:END, or BEGIN: for all that follows. Something else is bad use.
ByteShare parseShare(const std::string& text);

class ShareRows {
  public:
    struct Problem {
        std::int64_t line;  // from 1, in the share
        std::string words;  // to follow the line's name
    };

    // Rows that cannot be read go to `errors`, by their names where the share starts the input.
    // Elsewhere nobody knows how many lines stand before, and only the row that ends the command is
    // worth counting them.
    ShareRows(const KeyedInput& input, const ByteShare& share, RowErrors& errors);

    // The next row, or false behind the last one. Views are good until the next call.
    bool next(KeyedRow& row);

    // Where the first row begins; the header belongs to the first share.
    std::uint64_t begin() const { return begin_; }
    // Behind the last row, when it has been read: where the next one begins.
    std::uint64_t end() const { return window_.rest().offset; }
    // Of lines that ended from the one to the other.
    std::int64_t lineCount() const { return line_ - 1; }
    // The first ones.
    const std::vector<Problem>& problems() const { return problems_; }

  private:
    std::uint64_t findFirstRow();
    void takeProblem(std::uint64_t offset);

    const KeyedInput& input_;
    ByteShare share_;
    RowErrors& errors_;
    std::unique_ptr<RowReader> reader_;
    TextWindow window_;
    std::uint64_t begin_ = 0;
    std::int64_t line_ = 1;
    std::vector<Problem> problems_;
};

}  // namespace tvsort::tools
