#include "host/keys/ordered_key.h"

namespace tvsort::host {

namespace {

constexpr Byte kNullFirstMark = 1;
constexpr Byte kNullLastMark = 3;
constexpr Byte kUnreadableMark = 4;

// Whether what is greatest unless it is placed stands first.
bool standsFirst(Placement placement, bool isDescending) {
    return placement == Placement::kDefault ? isDescending : placement == Placement::kFirst;
}

TypeText typeOf(const KeyForm& form) {
    TypeText text = form.type;
    // The bytes of a descending key are turned around afterwards.
    text.isNanLow = standsFirst(form.nans, form.isDescending) != form.isDescending;
    return text;
}

}  // namespace

OrderedKey::OrderedKey(const KeyForm& form)
    : form_(form),
      nullMark_(standsFirst(form.nulls, form.isDescending) ? kNullFirstMark : kNullLastMark),
      type_(makeOrderedType(typeOf(form))) {}

void OrderedKey::appendNull(KeyBytes& key) const {
    key.push_back(nullMark_);
}

void OrderedKey::append(std::string_view text, KeyBytes& key) {
    const std::size_t begin = key.size();
    key.push_back(kValueMark);
    try {
        type_->append(text, key);
    } catch (...) {
        key.resize(begin);
        throw;
    }
    if (form_.isDescending) complementFrom(begin + 1, key);
}

void OrderedKey::appendUnreadable(std::string_view text, KeyBytes& key) {
    key.push_back(kUnreadableMark);
    appendText(text, key);
}

}  // namespace tvsort::host
