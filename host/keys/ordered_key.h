// A key of a row: a type's bytes behind a mark, in a direction.
//
//     mark   1 byte   01 null, where nulls stand first
//                     02 a value, whose bytes follow, complemented in a descending key
//                     03 null, where nulls stand last
//                     04 a text that is no value, behind which stands the text
//
// The keys of a row stand one behind the other. Neither is one key the beginning of another of its
// kind, so bytes that are the same in two rows end at the same key.

#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "host/keys/ordered_type.h"

namespace tvsort::host {

enum class Placement : std::uint8_t { kDefault, kFirst, kLast };

struct KeyForm {
    TypeText type;
    bool isDescending = false;
    // Null counts as greater than every value, and NaN as greater than every number, unless they
    // are to stand first or last whatever the direction is.
    Placement nulls = Placement::kDefault;
    Placement nans = Placement::kDefault;
};

class OrderedKey {
  public:
    explicit OrderedKey(const KeyForm& form);

    const KeyForm& form() const { return form_; }
    // The empty text may be a value or stand for null.
    bool takesEmptyText() const { return type_->takesEmptyText(); }
    // Whether a text's key is its mark and `appendText` of it, complemented in a descending key.
    bool isPlainText() const { return type_->isPlainText(); }

    void appendNull(KeyBytes& key) const;
    // A text that is no value is bad use, and nothing is appended then.
    void append(std::string_view text, KeyBytes& key);
    // In place of a value that `append` refused.
    static void appendUnreadable(std::string_view text, KeyBytes& key);

  private:
    KeyForm form_;
    Byte nullMark_;
    std::unique_ptr<OrderedType> type_;
};

inline constexpr Byte kValueMark = 2;

}  // namespace tvsort::host
