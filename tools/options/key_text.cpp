#include "tools/options/key_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/host_error.h"
#include "host/values/value_text.h"

namespace tvsort::tools {

namespace {

using host::ValuePlace;

// Of words with one meaning a key takes one.
struct OrderWord {
    const char* name;
    const char* meaning;
};

constexpr OrderWord kOrderWords[] = {
    {"asc", "direction"},           {"desc", "direction"},        {"nulls-first", "nulls' place"},
    {"nulls-last", "nulls' place"}, {"nan-first", "NaN's place"}, {"nan-last", "NaN's place"},
};

// Null when it is none.
const OrderWord* orderWord(const std::string& name) {
    const auto* const found =
        std::find_if(std::begin(kOrderWords), std::end(kOrderWords),
                     [&](const OrderWord& word) { return word.name == name; });
    return found == std::end(kOrderWords) ? nullptr : found;
}

// Types of which some values are no numbers.
constexpr std::string_view kTypesWithNan[] = {"double", "float", "decimal", host::kAutoType};

host::Placement placement(const std::string& word) {
    return word.ends_with("-first") ? host::Placement::kFirst : host::Placement::kLast;
}

template <typename Number>
std::optional<Number> numberIn(const std::string& text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, status] = std::from_chars(text.data(), end, number);
    if (status != std::errc() || stop != end) return std::nullopt;
    return number;
}

// Of lines and columns: those of ordered keys, then those that the process compares.
std::string typeNames(ValuePlace place) {
    std::string names = host::orderedTypeNames();
    for (const host::ValueFormat& format : host::valueFormats()) {
        if (format.isKnownIn(place) && host::findOrderedType(format.name) == nullptr)
            names += ", " + std::string(format.name);
    }
    return names;
}

// What stands in a file may be long, and more than letters.
std::string columnsInWords(const std::vector<std::string>& names) {
    constexpr std::size_t kNamedMax = 30;
    std::string words;
    for (std::size_t i = 0; i < std::min(names.size(), kNamedMax); ++i)
        words += (i == 0 ? "" : ", ") + host::shownText(names[i]);
    if (names.size() <= kNamedMax) return words;
    return words + fmt::format(" and {} more", names.size() - kNamedMax);
}

// Takes a text apart at its colons, part by part.
class KeyReader {
  public:
    KeyReader(const std::string& text, ValuePlace place) : place_(place) {
        std::size_t next = 0;
        // A column's name may stand in quotes.
        if (place == ValuePlace::kColumn && text.starts_with('"')) {
            // A quote in it stands twice.
            for (next = 1; next < text.size(); ++next) {
                if (text[next] == '"' && text.compare(next, 2, "\"\"") != 0) break;
                if (text[next] == '"') next += 1;
                parts_[0] += text[next];
            }
            if (next == text.size()) throw host::badUse("the quote is not closed");
            next += 1;
        }
        for (; next < text.size(); ++next) {
            if (text[next] == ':') {
                parts_.emplace_back();
            } else {
                parts_.back() += text[next];
            }
        }
    }

    KeyText read() {
        KeyText key = {};
        if (place_ == ValuePlace::kColumn) key.column = take();
        if (place_ != ValuePlace::kRecord && isOrdered()) {
            key.ordered = readOrderedType();
            key.format = host::valueFormat("string", place_);
        } else {
            key.format = readFormat();
            if (place_ == ValuePlace::kRecord) {
                if (atEnd()) throw host::badUse("the offset is missing");
                key.fieldOffset = readNumber("offset");
            }
            key.length = readLength(key.format);
        }
        readOrder(key);
        return key;
    }

  private:
    bool atEnd() const { return next_ == parts_.size(); }
    bool atNumber() const {
        return !atEnd() && !parts_[next_].empty() &&
               parts_[next_].find_first_not_of("0123456789") == std::string::npos;
    }
    const std::string& take() { return parts_[next_++]; }

    // A column without a type is text.
    bool isOrdered() const {
        if (atEnd() || orderWord(parts_[next_]) != nullptr) return place_ == ValuePlace::kColumn;
        return host::findOrderedType(parts_[next_]) != nullptr;
    }

    host::KeyForm readOrderedType() {
        host::KeyForm form;
        form.type.name = "text";
        if (atEnd() || orderWord(parts_[next_]) != nullptr) return form;
        form.type.name = take();
        while (!atEnd() && orderWord(parts_[next_]) == nullptr)
            form.type.arguments.push_back(take());
        if (form.type.name != host::kAutoType || !form.type.arguments.empty())
            host::makeOrderedType(form.type);
        return form;
    }

    host::ValueFormat readFormat() {
        const std::string name = take();
        if (place_ != ValuePlace::kRecord && host::findValueFormat(name, place_) == nullptr) {
            throw host::badUse(fmt::format("there is no type{} \"{}\"; the types are {}",
                                           place_ == ValuePlace::kLine ? "" : " and no word", name,
                                           typeNames(place_)));
        }
        return host::valueFormat(name, place_);
    }

    std::optional<std::uint16_t> readLength(const host::ValueFormat& format) {
        if (atNumber()) {
            if (format.takesLength()) return readNumber("length");
            throw host::badUse(
                fmt::format("the length of type {} is given by the type", format.name));
        }
        if (place_ == ValuePlace::kRecord && format.takesLength())
            throw host::badUse(fmt::format("a key of type {} needs a length", format.name));
        return std::nullopt;
    }

    std::uint16_t readNumber(const char* meaning) {
        const std::string& text = take();
        const auto number = numberIn<std::uint16_t>(text);
        if (number.has_value()) return *number;
        throw host::badUse(
            fmt::format("the {} \"{}\" is no number from 0 to 65535", meaning, text));
    }

    void readOrder(KeyText& key) {
        key.kindFlags = static_cast<std::uint8_t>(KeyKind::kAscending);
        std::vector<const char*> said;
        while (!atEnd()) {
            const std::string& text = take();
            const OrderWord* const word = orderWord(text);
            if (word == nullptr) throw host::badUse(fmt::format("\"{}\" is not known", text));
            if (std::find(said.begin(), said.end(), word->meaning) != said.end()) {
                throw host::badUse(
                    fmt::format("\"{}\" says the {} once more; say it once", text, word->meaning));
            }
            said.push_back(word->meaning);
            heed(text, key);
        }
    }

    static void heed(const std::string& word, KeyText& key) {
        host::KeyForm unused;
        host::KeyForm& form = key.ordered.has_value() ? *key.ordered : unused;
        if (word == "desc") {
            key.kindFlags = static_cast<std::uint8_t>(
                (key.kindFlags & ~kKeyKindMask) | static_cast<std::uint8_t>(KeyKind::kDescending));
            form.isDescending = true;
        } else if (word.starts_with("nulls")) {
            form.nulls = placement(word);
            const bool isFirst = form.nulls == host::Placement::kFirst;
            key.kindFlags = static_cast<std::uint8_t>(key.kindFlags |
                                                      (isFirst ? kNullsFirstBit : kNullsLastBit));
        } else if (word.starts_with("nan")) {
            const auto* const known = std::find(std::begin(kTypesWithNan), std::end(kTypesWithNan),
                                                std::string_view(form.type.name));
            if (!key.ordered.has_value() || known == std::end(kTypesWithNan)) {
                throw host::badUse(fmt::format(
                    "\"{}\" is for double, float and decimal; the other types have no NaN", word));
            }
            form.nans = placement(word);
        }
    }

    ValuePlace place_;
    std::vector<std::string> parts_ = std::vector<std::string>(1);
    std::size_t next_ = 0;
};

const char* optionOf(ValuePlace place) {
    return place == ValuePlace::kLine ? "--as" : "--key";
}

const char* grammarOf(ValuePlace place) {
    if (place == ValuePlace::kRecord) return "TYPE:OFFSET[:LENGTH]";
    return place == ValuePlace::kLine ? "TYPE" : "COLUMN[:TYPE]";
}

}  // namespace

KeyDescriptor KeyText::descriptor(std::uint16_t contentBytes) const {
    KeyDescriptor key = format.key(fieldOffset, contentBytes);
    key.kindFlags = static_cast<std::uint8_t>((key.kindFlags & ~kKeyKindMask) | kindFlags);
    return key;
}

std::string typesHelp() {
    constexpr std::size_t kNameWidth = 17;
    std::string help = "Types of lines and columns:\n" + host::orderedTypesHelp() +
                       "\nTypes that the process compares, of records (R), lines (L) and columns "
                       "(C):\n";
    for (const host::ValueFormat& format : host::valueFormats()) {
        const bool isOrdered = host::findOrderedType(format.name) != nullptr;
        const auto mark = [&](ValuePlace place, char letter) {
            const bool isHidden = place != ValuePlace::kRecord && isOrdered;
            return format.isKnownIn(place) && !isHidden ? letter : ' ';
        };
        const char marks[] = {mark(ValuePlace::kRecord, 'R'), mark(ValuePlace::kLine, 'L'),
                              mark(ValuePlace::kColumn, 'C')};
        if (std::string_view(marks, sizeof marks) == "   ") continue;
        help += fmt::format("  {:<{}}{}  {}\n", format.name, kNameWidth,
                            std::string_view(marks, sizeof marks), format.explanation);
    }
    return help;
}

std::string typesHelp(ValuePlace place) {
    constexpr std::size_t kNameWidth = 17;
    const bool isOfText = place != ValuePlace::kRecord;
    std::string help = "Types:\n";
    if (isOfText) help += host::orderedTypesHelp() + "\nTypes that the process compares:\n";
    for (const host::ValueFormat& format : host::valueFormats()) {
        const bool isOrdered = isOfText && host::findOrderedType(format.name) != nullptr;
        if (!format.isKnownIn(place) || isOrdered) continue;
        std::string explanation(format.explanation);
        if (const std::size_t mark = explanation.find(" of R"); mark != std::string::npos)
            explanation.replace(mark, 5, isOfText ? " of records" : "");
        help += fmt::format("  {:<{}}{}\n", format.name, kNameWidth, explanation);
    }
    return help;
}

KeyText parseKey(const std::string& text, ValuePlace place, bool isReversed) {
    try {
        KeyText key = KeyReader(text, place).read();
        if (!isReversed) return key;
        key.kindFlags = static_cast<std::uint8_t>(key.kindFlags ^
                                                  static_cast<std::uint8_t>(KeyKind::kAscending) ^
                                                  static_cast<std::uint8_t>(KeyKind::kDescending));
        if (key.ordered.has_value()) key.ordered->isDescending = !key.ordered->isDescending;
        return key;
    } catch (const host::HostError& error) {
        throw host::badUse(fmt::format("{} {}: {}; write {}[:desc][:nulls-first|:nulls-last]",
                                       optionOf(place), text, error.what(), grammarOf(place)));
    }
}

std::size_t columnIndexOf(const std::string& name, const std::vector<std::string>& names,
                          std::size_t columnCount, const std::string& option) {
    const bool isNamed = std::find(names.begin(), names.end(), name) != names.end();
    const bool isNumbered = name.starts_with('#') && !isNamed;
    if (names.empty() || isNumbered) {
        const auto number = numberIn<std::size_t>(isNumbered ? name.substr(1) : name);
        if (number.has_value() && *number >= 1 && *number <= columnCount) return *number - 1;
        throw host::badUse(fmt::format(
            "{}: \"{}\" is no column; {}, name one of the columns {}1 to {}", option, name,
            isNumbered ? "by number" : "without a header", isNumbered ? "#" : "", columnCount));
    }
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        throw host::badUse(fmt::format("{}: there is no column \"{}\"; the columns are {}", option,
                                       name, columnsInWords(names)));
    }
    if (std::find(found + 1, names.end(), name) != names.end()) {
        throw host::badUse(fmt::format(
            "{}: more than one column has the name \"{}\"; name it by its number, as #{}", option,
            name, found - names.begin() + 1));
    }
    return static_cast<std::size_t>(found - names.begin());
}

}  // namespace tvsort::tools
