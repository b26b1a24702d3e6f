// The inputs of a sort as rows with ordered keys (host/keys/ordered_key.h).
//
//     KeyedInput    what the inputs are: which columns are keys, of which types; for all threads
//     RowReader     takes rows out of bytes in memory and makes their keys; one for each thread
//     RowStream     all rows in the order of reading
//
// A row is known by its place: with it, its key and its bytes can be asked for again later, so
// nobody has to keep either.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/keys/ordered_bytes.h"
#include "tools/formats/input_places.h"
#include "tools/formats/row_field.h"
#include "tools/formats/row_place.h"
#include "tools/formats/text_window.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

struct KeyedRow {
    RowPlace place;
    // Where it is at hand: one of any length may not be.
    bool isHeld;
    std::string_view text;
    // The key's bytes, or its first ones: as many as the reader was asked for at least.
    const host::KeyBytes* key;
    bool isKeyWhole;
    bool hasNull;      // one of its keys is null
    bool isMalformed;  // it has no fields, and is kept all the same
};

struct KeyPart {
    bool endsKey;  // nothing of the key is behind the part
    bool hasNull;
};

class RowReader {
  public:
    enum class Outcome : std::uint8_t {
        kRow,
        kUnreadable,  // a row that is left out
        kNeedsMore,   // the row does not end in these bytes
        kEnd,         // there are no bytes
    };
    struct Found {
        Outcome outcome;
        std::uint64_t byteCount;  // that the row has, with its end
    };

    virtual ~RowReader() = default;
    // The row at the start of these bytes, where one begins. One that does not end in the input's
    // `rowBytesMax` of them is found by its place, or is bad use. Views are good until the next
    // call.
    virtual Found next(const TextPart& part, KeyedRow& row) = 0;
    // What is wrong with the row that was found, to follow its name; empty for a good one.
    virtual const std::string& problem() const = 0;
    // Of that row, where it has any that could be read.
    virtual std::span<const RowField> fields() const { return {}; }
    // Where a row begins behind the first byte, as far as these bytes tell; the end of them where
    // they do not.
    virtual std::size_t guessStart(const TextPart& part) = 0;
    // Bytes of the inputs that need not be read again, until others are held.
    virtual void hold(const TextPart& part) = 0;
    // The whole key of a row that is at hand.
    virtual void keyOf(std::string_view text, host::KeyBytes& key) = 0;
    // Puts up to `bytesMax` bytes of the key of a row that was read before, from byte `from` on, to
    // `part`. Cheapest in the order of places.
    virtual KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                            host::KeyBytes& part) = 0;
};

// What stands before and behind the number in the name of a line, for messages.
struct LineName {
    std::string before;
    std::string behind;

    std::string of(std::int64_t number) const { return before + std::to_string(number) + behind; }
};

class KeyedInput {
  public:
    virtual ~KeyedInput() = default;
    // Keys are made to their ends, or to so many bytes at least. Needs the input as long as it
    // reads.
    virtual std::unique_ptr<RowReader> reader(std::size_t keyBytes) const = 0;
    virtual const InputPlaces& places() const = 0;
    // Of the first row of an input.
    virtual std::uint64_t firstRowOf(std::size_t inputIndex) const = 0;
    // Whether a key's first bytes are those of the key of as many bytes of the row.
    virtual bool isKeyOfStart() const = 0;
    // A longer row is refused, or found by its place.
    virtual std::size_t rowBytesMax() const = 0;
    virtual LineName lineName(std::size_t inputIndex) const = 0;
    // "line 3 of b.txt", or as this kind of input has it. Reads the input up to there.
    std::string nameOf(std::uint64_t offset) const;
    // What the keys are, for people: "name text, born date desc".
    virtual std::string keysInWords() const = 0;
};

// One row after the other, through a window.
class RowStream {
  public:
    // Rows that cannot be read go to `errors`.
    RowStream(const KeyedInput& input, RowErrors& errors);

    // The next row, or false behind the last one. Views are good until the next call.
    bool next(KeyedRow& row);
    RowReader& reader() { return *reader_; }
    const KeyedInput& input() const { return input_; }

  private:
    const KeyedInput& input_;
    RowErrors& errors_;
    std::unique_ptr<RowReader> reader_;
    TextWindow window_;
    std::size_t inputIndex_ = 0;
};

// Bytes at a place, with what lies behind them, so that the next place is often read already.
class PlaceReader {
  public:
    explicit PlaceReader(const InputPlaces& places) : places_(places) {}

    // Good until the next call.
    std::string_view read(const RowPlace& place);
    void hold(const TextPart& part) { held_ = part; }

  private:
    const InputPlaces& places_;
    TextPart held_ = {};
    std::uint64_t begin_ = 0;
    std::vector<Byte> window_;
};

// A key's bytes from `from` on, `bytesMax` at most; whether they are its last.
bool copyPart(const host::KeyBytes& key, std::uint64_t from, std::size_t bytesMax,
              host::KeyBytes& part);

}  // namespace tvsort::tools
