// The ordered keys of a row's fields, one behind the other.

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/keys/ordered_key.h"
#include "tools/formats/row_field.h"

namespace tvsort::tools {

struct RowKeyColumn {
    std::size_t index;
    std::string name;  // for messages
    host::KeyForm form;
};

struct RowKeyRules {
    std::optional<std::string> nullWord;  // a value that stands for null
    bool keepsUnreadable = false;         // a value that cannot be read has a key behind all others
};

class RowKeys {
  public:
    // Keys of the type auto must have been given another one.
    RowKeys(const std::vector<RowKeyColumn>& columns, RowKeyRules rules);

    struct Outcome {
        bool hasNull = false;
        std::string problem;  // of a value that was kept although it cannot be read
    };
    // Replaces `key`. Fields that a row lacks are null. A value that cannot be read is bad use that
    // names the column, unless it is kept.
    Outcome encode(std::span<const RowField> fields, host::KeyBytes& key);

    std::size_t columnsNeeded() const { return columnsNeeded_; }

  private:
    struct Column {
        std::size_t index;
        std::string name;
        host::OrderedKey key;
    };
    std::vector<Column> columns_;
    RowKeyRules rules_;
    std::size_t columnsNeeded_ = 0;
};

// "name text, born date desc".
std::string inWords(const std::vector<RowKeyColumn>& columns);

}  // namespace tvsort::tools
