// Text lines with their ordered keys: of what they are by their bytes, of the values that they are,
// or of their fields, which have blanks between them:
//
//     "  ab  c d"     field 1 is "ab", 2-3 is "c d", from one's start to the other one's end,
//                     2- is "c d" too, and 4 is null
//
// A line that is ordered by its bytes is never wanted in one piece: of a long one, the first bytes
// are held, and what follows is read where it lies when it is asked for.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/keys/ordered_key.h"
#include "tools/formats/keyed_input.h"
#include "tools/formats/row_keys.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

class LineKeyedInput : public KeyedInput {
  public:
    struct Form {
        // Of fields, by numbers; without a name: of the line.
        std::vector<RowKeyColumn> columns;
        char lineEnd = '\n';
        std::optional<std::string> nullWord;
        // In an outline, what lines are indented with, which belongs to no value.
        std::optional<char> indentation;
        // Of values of other types than plain text, and so of their lines.
        std::size_t valueBytesMax = 0;
        // A value that cannot be read has a key behind all others.
        bool keepsUnreadable = false;
    };

    // Inputs are needed as long as it is. Reads all of them once where a type is auto. A column's
    // name is NUMBER, NUMBER-NUMBER or NUMBER-; another one is bad use.
    LineKeyedInput(Form form, const std::vector<InputFile>& inputs);

    std::unique_ptr<RowReader> reader(std::size_t keyBytes) const override;
    const InputPlaces& places() const override { return places_; }
    std::uint64_t firstRowOf(std::size_t inputIndex) const override {
        return places_.startOf(inputIndex);
    }
    bool isKeyOfStart() const override { return isPlainText_; }
    std::size_t rowBytesMax() const override;
    LineName lineName(std::size_t inputIndex) const override {
        return {"line ", " of " + places_.input(inputIndex).displayName()};
    }
    std::string keysInWords() const override { return inWords(form_.columns); }

  private:
    friend class LineReader;
    struct FieldRange {
        std::size_t first;  // from 0
        std::size_t last;
    };

    static FieldRange rangeOf(const std::string& name);
    void guessTypes();

    Form form_;
    InputPlaces places_;
    std::vector<FieldRange> ranges_;  // by column, where there are fields
    bool isPlainText_ = false;        // whole lines, by their bytes
    bool takesEmptyLines_ = false;
};

}  // namespace tvsort::tools
