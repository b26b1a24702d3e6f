// The inputs of a sort as rows with ordered keys (host/keys/ordered_key.h), in the order of
// reading.
//
// Rows and lines derive from this. A row is known by its place: with it, its key and its bytes can
// be asked for again later, so nobody has to keep either.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/keys/ordered_bytes.h"
#include "tools/formats/input_places.h"
#include "tools/formats/row_place.h"

namespace tvsort::tools {

struct KeyedRow {
    RowPlace place;
    // Where it is at hand: one of any length may not be.
    bool isHeld;
    std::string_view text;
    // The key's bytes, or its first ones, kKeyBytesHeld at least.
    const host::KeyBytes* key;
    bool isKeyWhole;
    bool hasNull;  // one of its keys is null
};

inline constexpr std::size_t kKeyBytesHeld = 4096;

struct KeyPart {
    bool endsKey;  // nothing of the key is behind the part
    bool hasNull;
};

class KeyedInput {
  public:
    virtual ~KeyedInput() = default;
    // The next row, or false behind the last one. Views are good until the next call. A row that
    // cannot be read goes where the errors of rows go.
    virtual bool next(KeyedRow& row) = 0;
    // Back to the first row.
    virtual void restart() = 0;
    // Puts up to `bytesMax` bytes of the key of a row that was read before, from byte `from` on, to
    // `part`. Cheapest in the order of places.
    virtual KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                            host::KeyBytes& part) = 0;
    virtual const InputPlaces& places() const = 0;
    // What the keys are, for people: "name text, born date desc".
    virtual std::string keysInWords() const = 0;
};

// Bytes at a place, with what lies behind them, so that the next place is often read already.
class PlaceReader {
  public:
    explicit PlaceReader(const InputPlaces& places) : places_(places) {}

    // Good until the next call.
    std::string_view read(const RowPlace& place);

  private:
    const InputPlaces& places_;
    std::uint64_t begin_ = 0;
    std::vector<Byte> window_;
};

}  // namespace tvsort::tools
