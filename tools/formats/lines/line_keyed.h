// Text lines with their ordered keys: of what they are by their bytes, or of the values that they
// are.
//
// A line that is ordered by its bytes is never wanted in one piece: of a long one, the first bytes
// are held, and what follows is read where it lies when it is asked for.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/keys/ordered_key.h"
#include "tools/files/input_window.h"
#include "tools/formats/keyed_input.h"

namespace tvsort::tools {

class LineKeyedInput : public KeyedInput {
  public:
    // Values of another type than plain text, and so their lines, can have `valueBytesMax`. Reads
    // all inputs once more where the type is auto.
    LineKeyedInput(const host::KeyForm& form, std::vector<InputFile>& inputs,
                   std::size_t valueBytesMax);

    bool next(KeyedRow& row) override;
    void restart() override;
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override;
    const InputPlaces& places() const override { return places_; }
    std::string keysInWords() const override;

  private:
    // A long line's key and line, as far as somebody has come.
    struct Cursor {
        std::uint64_t offset = ~std::uint64_t{0};
        std::uint64_t keyBytes = 0;
        std::uint64_t lineBytes = 0;
    };

    void guessType(host::KeyForm& form);
    // The next line of the input that is read; of a long one its beginning, and its length.
    bool nextLine(std::string_view& line, std::uint64_t& lineBytes);
    bool encode(std::string_view line, host::KeyBytes& key);
    KeyPart textPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                     host::KeyBytes& part);

    std::vector<InputFile>& inputs_;
    std::size_t valueBytesMax_;
    InputPlaces places_;
    std::unique_ptr<host::OrderedKey> keys_;
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
