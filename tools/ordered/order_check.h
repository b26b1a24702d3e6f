// Are rows in the order of their keys already?

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/formats/keyed_input.h"

namespace tvsort::tools {

struct RowOfInput {
    RowStream& input;
    const KeyedRow& row;
};
// By whole keys: below zero where the left one stands before, zero where they are equal.
int compareKeys(const RowOfInput& left, const RowOfInput& right);

// Follows the rows of a stream, each of which is compared with the one before it by their whole
// keys.
class OrderCheck {
  public:
    explicit OrderCheck(RowStream& input) : input_(input) {}

    // Whether the row, the one that the stream gave last, may stand behind the one before it.
    bool mayFollow(const KeyedRow& row);
    // Of the last two rows: `line 5 of a.csv, "b,1", must not stand behind line 4 of a.csv,
    // "c,1",`.
    std::string fault() const;

  private:
    RowStream& input_;
    std::optional<RowPlace> before_;
    std::optional<RowPlace> last_;
    KeyedRow rowBefore_ = {};
    host::KeyBytes keyBefore_;
};

}  // namespace tvsort::tools
