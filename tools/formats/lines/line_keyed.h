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
#include "tools/files/input_window.h"
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
    };

    // Inputs and errors are needed as long as it reads. Reads all inputs once more where a type is
    // auto. A column's name is NUMBER, NUMBER-NUMBER or NUMBER-; another one is bad use.
    LineKeyedInput(Form form, std::vector<InputFile>& inputs, RowErrors& errors);

    bool next(KeyedRow& row) override;
    void restart() override;
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override;
    const InputPlaces& places() const override { return places_; }
    std::string keysInWords() const override { return inWords(form_.columns); }

  private:
    // A long line's key and line, as far as somebody has come.
    struct Cursor {
        std::uint64_t offset = ~std::uint64_t{0};
        std::uint64_t keyBytes = 0;
        std::uint64_t lineBytes = 0;
    };

    struct FieldRange {
        std::size_t first;  // from 0
        std::size_t last;
    };

    static FieldRange rangeOf(const std::string& name);
    void guessTypes();
    bool isOrderedByFields() const { return !ranges_.empty(); }
    bool isPlainText() const { return plainKey_.has_value(); }
    void cutFields(std::string_view line);
    bool nextInInputs(KeyedRow& row);
    // False for one that is left out.
    bool encodeRow(KeyedRow& row);
    // The next line of the input that is read; of a long one its beginning, and its length.
    bool nextLine(std::string_view& line, std::uint64_t& lineBytes);
    RowKeys::Outcome encode(std::string_view line, host::KeyBytes& key);
    KeyPart textPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                     host::KeyBytes& part);

    Form form_;
    std::vector<InputFile>& inputs_;
    RowErrors& errors_;
    InputPlaces places_;
    std::vector<FieldRange> ranges_;            // by column, where there are fields
    std::optional<host::OrderedKey> plainKey_;  // of whole lines by their bytes
    std::optional<RowKeys> keys_;               // else
    bool takesEmptyLines_ = false;
    std::vector<RowField> fields_;
    std::vector<std::string_view> words_;
    std::size_t inputIndex_ = 0;
    std::unique_ptr<InputWindow> window_;  // of that input
    std::uint64_t offset_ = 0;             // of the next line in it
    std::string longLine_;                 // its first bytes
    host::KeyBytes key_;
    PlaceReader reader_;
    Cursor cursors_[2];
    std::size_t oldestCursor_ = 0;
};

}  // namespace tvsort::tools
