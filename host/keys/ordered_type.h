// The types of text values by the words that a person writes, and what a key has of each: bytes
// whose plain order is the order of the type's values. docs/keys.md has them byte for byte.
//
// One table holds them all, and what help, messages and documentation say of them; a new type is a
// row of it and a class.

#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_error.h"
#include "host/keys/ordered_bytes.h"

namespace tvsort::host {

// What a text means.
class OrderedType {
  public:
    virtual ~OrderedType() = default;
    // Appends the value's bytes. A text that is no value is bad use, and what has been appended of
    // it is of no use.
    virtual void append(std::string_view text, KeyBytes& key) = 0;
    // Whether the empty text is a value.
    virtual bool takesEmptyText() const { return false; }
    // Whether the bytes are those of `appendText`, whatever the text is.
    virtual bool isPlainText() const { return false; }
};

// NAME[:ARGUMENT]..., taken apart.
struct TypeText {
    std::string name;
    std::vector<std::string> arguments;
    // Where NaN stands: below all numbers, or above them.
    bool isNanLow = false;

    std::string text() const;
};

struct OrderedTypeRule {
    std::string_view name;
    std::string_view arguments;  // that may follow, as a grammar
    std::string_view explanation;
    // Throws bad use for arguments that it does not know.
    std::unique_ptr<OrderedType> (*make)(const TypeText& text);
};

std::span<const OrderedTypeRule> orderedTypes();
// Null when the word is none.
const OrderedTypeRule* findOrderedType(std::string_view name);
// Of a name of the table; what does not fit it is bad use.
std::unique_ptr<OrderedType> makeOrderedType(const TypeText& text);

// "text, int, ...", for messages.
std::string orderedTypeNames();
// The table as lines for a help text.
std::string orderedTypesHelp();

// Stands for the first of some types of the table that all values of a column have.
inline constexpr std::string_view kAutoType = "auto";

class TypeGuess {
  public:
    TypeGuess();
    // A value that is not null.
    void take(std::string_view text);
    // Fits all values that were taken; text without any.
    TypeText chosen() const;

  private:
    struct Candidate {
        TypeText text;
        std::shared_ptr<OrderedType> type;
    };
    std::vector<Candidate> candidates_;
    KeyBytes scratch_;
    bool any_ = false;
};

}  // namespace tvsort::host
