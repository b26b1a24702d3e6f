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
    // In place of an index: all fields of a row, as many as it has. Nulls at its end do not count.
    static constexpr std::size_t kAllFields = ~std::size_t{0};

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

  private:
    struct Column {
        std::size_t index;
        std::string name;
        host::OrderedKey key;
    };
    void append(Column& column, const RowField& field, host::KeyBytes& key, Outcome& outcome);
    void appendAll(Column& column, std::span<const RowField> fields, host::KeyBytes& key,
                   Outcome& outcome);
    std::vector<Column> columns_;
    RowKeyRules rules_;
};

// "name text, born date desc".
std::string inWords(const std::vector<RowKeyColumn>& columns);

}  // namespace tvsort::tools
