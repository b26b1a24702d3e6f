#include "tools/options/key_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "host/host_error.h"
#include "tools/options/key_option.h"

namespace tvsort::tools {

namespace {

[[noreturn]] void badKey(const std::string& text, const std::string& reason) {
    throw host::badUse(
        fmt::format("--key {}: {}; write COLUMN[:TYPE[:LENGTH]][:desc][:nulls-first|:nulls-last]",
                    text, reason));
}

// The parts between colons; the first may stand in quotes.
std::vector<std::string> partsOf(const std::string& text) {
    std::vector<std::string> parts(1);
    std::size_t next = 0;
    if (text.starts_with('"')) {
        const std::size_t close = text.find('"', 1);
        if (close == std::string::npos) badKey(text, "the quote is not closed");
        parts[0] = text.substr(1, close - 1);
        next = close + 1;
    }
    for (; next < text.size(); ++next) {
        if (text[next] == ':') {
            parts.emplace_back();
        } else {
            parts.back() += text[next];
        }
    }
    return parts;
}

template <typename Number>
std::optional<Number> numberIn(const std::string& text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, status] = std::from_chars(text.data(), end, number);
    if (status != std::errc() || stop != end) return std::nullopt;
    return number;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += fmt::format("{}{}", text.empty() ? "" : ", ", name);
    return text;
}

}  // namespace

CsvKey parseCsvKey(const std::string& text) {
    const std::vector<std::string> parts = partsOf(text);
    KeyDescriptor flags = host::ascendingKey(DataType::kNone, 0, 0);
    CsvKey key = {parts[0], findColumnType("text"), "", std::nullopt, 0};
    std::size_t next = 1;
    if (next < parts.size()) {
        if (const ColumnType* const named = findColumnType(parts[next]); named != nullptr) {
            key.type = named;
            next += 1;
            if (next < parts.size() && !applyKeyWord(parts[next], flags)) {
                const std::string& length = parts[next];
                next += 1;
                if (key.type->dataType == DataType::kDecimal) {
                    key.scale = length;
                } else if (key.length = numberIn<std::uint16_t>(length); !key.length.has_value()) {
                    badKey(text, fmt::format("\"{}\" is not known", length));
                }
            }
        }
    }
    for (; next < parts.size(); ++next) {
        if (applyKeyWord(parts[next], flags)) continue;
        badKey(text, fmt::format("there is no type and no word \"{}\"; the types are {}",
                                 parts[next], columnTypeNames()));
    }
    if (key.length.has_value() && !ColumnField(*key.type, key.scale).hasLength()) {
        badKey(text, fmt::format("the length of type {} is given by the type", key.type->name));
    }
    key.kindFlags = flags.kindFlags;
    return key;
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
                                       name, joined(names)));
    }
    if (std::find(found + 1, names.end(), name) != names.end()) {
        throw host::badUse(
            fmt::format("{}: more than one column has the name \"{}\"; give them different ones",
                        option, name));
    }
    return static_cast<std::size_t>(found - names.begin());
}

}  // namespace tvsort::tools
