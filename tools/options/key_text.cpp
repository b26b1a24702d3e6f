#include "tools/options/key_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

using host::ValuePlace;

struct OrderWord {
    const char* name;
    std::uint8_t replacedBits;
    std::uint8_t bits;
};

constexpr OrderWord kOrderWords[] = {
    {"asc", kKeyKindMask, static_cast<std::uint8_t>(KeyKind::kAscending)},
    {"desc", kKeyKindMask, static_cast<std::uint8_t>(KeyKind::kDescending)},
    {"nulls-first", 0, kNullsFirstBit},
    {"nulls-last", 0, kNullsLastBit},
};

// Null when it is none.
const OrderWord* orderWord(const std::string& name) {
    const auto* const found =
        std::find_if(std::begin(kOrderWords), std::end(kOrderWords),
                     [&](const OrderWord& word) { return word.name == name; });
    return found == std::end(kOrderWords) ? nullptr : found;
}

template <typename Number>
std::optional<Number> numberIn(const std::string& text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, status] = std::from_chars(text.data(), end, number);
    if (status != std::errc() || stop != end) return std::nullopt;
    return number;
}

// Takes a text apart at its colons, part by part.
class KeyReader {
  public:
    KeyReader(const std::string& text, ValuePlace place) : place_(place) {
        std::size_t next = 0;
        // A column's name may stand in quotes.
        if (place == ValuePlace::kColumn && text.starts_with('"')) {
            const std::size_t close = text.find('"', 1);
            if (close == std::string::npos) throw host::badUse("the quote is not closed");
            parts_[0] = text.substr(1, close - 1);
            next = close + 1;
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
        key.format = readFormat();
        if (place_ == ValuePlace::kRecord) {
            if (atEnd()) throw host::badUse("the offset is missing");
            key.fieldOffset = readNumber("offset");
        }
        key.length = readLength(key.format);
        key.kindFlags = readOrder();
        return key;
    }

  private:
    bool atEnd() const { return next_ == parts_.size(); }
    bool atNumber() const {
        return !atEnd() && !parts_[next_].empty() &&
               parts_[next_].find_first_not_of("0123456789") == std::string::npos;
    }
    const std::string& take() { return parts_[next_++]; }

    host::ValueFormat readFormat() {
        if (place_ == ValuePlace::kColumn) {
            if (atEnd() || orderWord(parts_[next_]) != nullptr)
                return host::valueFormat("text", place_);
            if (host::findValueFormat(parts_[next_], place_) == nullptr) {
                throw host::badUse(
                    fmt::format("there is no type and no word \"{}\"; the types are {}",
                                parts_[next_], host::valueFormatNames(place_)));
            }
        }
        std::string name = take();
        const host::ValueFormat* const known = host::findValueFormat(name, place_);
        const bool hasScale =
            place_ == ValuePlace::kLine || (known != nullptr && known->takesScale(place_));
        if (hasScale && atNumber()) name += ":" + take();
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

    std::uint8_t readOrder() {
        auto flags = static_cast<std::uint8_t>(KeyKind::kAscending);
        while (!atEnd()) {
            const std::string& text = take();
            const OrderWord* const word = orderWord(text);
            if (word == nullptr) throw host::badUse(fmt::format("\"{}\" is not known", text));
            flags = static_cast<std::uint8_t>((flags & ~word->replacedBits) | word->bits);
        }
        return flags;
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
    return place == ValuePlace::kLine ? "TYPE[:SCALE]" : "COLUMN[:TYPE[:LENGTH]]";
}

}  // namespace

KeyDescriptor KeyText::descriptor(std::uint16_t contentBytes) const {
    KeyDescriptor key = format.key(fieldOffset, contentBytes);
    key.kindFlags = static_cast<std::uint8_t>((key.kindFlags & ~kKeyKindMask) | kindFlags);
    return key;
}

KeyText parseKey(const std::string& text, ValuePlace place) {
    try {
        return KeyReader(text, place).read();
    } catch (const host::HostError& error) {
        throw host::badUse(fmt::format("{} {}: {}; write {}[:desc][:nulls-first|:nulls-last]",
                                       optionOf(place), text, error.what(), grammarOf(place)));
    }
}

std::size_t columnIndexOf(const std::string& name, const std::vector<std::string>& names,
                          std::size_t columnCount, const std::string& option) {
    if (names.empty()) {
        const auto number = numberIn<std::size_t>(name);
        if (number.has_value() && *number >= 1 && *number <= columnCount) return *number - 1;
        throw host::badUse(fmt::format(
            "{}: \"{}\" is no column; without a header, name one of the columns 1 to {}", option,
            name, columnCount));
    }
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        throw host::badUse(fmt::format("{}: there is no column \"{}\"; the columns are {}", option,
                                       name, fmt::join(names, ", ")));
    }
    if (std::find(found + 1, names.end(), name) != names.end()) {
        throw host::badUse(
            fmt::format("{}: more than one column has the name \"{}\"; give them different ones",
                        option, name));
    }
    return static_cast<std::size_t>(found - names.begin());
}

}  // namespace tvsort::tools
