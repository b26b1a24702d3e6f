#include "tools/formats/outline_level.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "host/host_error.h"
#include "tools/options/mode_options.h"

namespace tvsort::tools {

namespace {

constexpr std::int32_t kTopLevel = 1;
// The process keeps one open run of siblings for each level.
constexpr std::int32_t kDeepestLevel = 4095;
constexpr std::size_t kSpacesMax = 8;

std::size_t leading(std::string_view line, char character) {
    return std::min(line.find_first_not_of(character), line.size());
}

}  // namespace

Indentation::Indentation(const std::string& unit) : unitWasNamed_(!unit.empty()), spaces_(0) {
    if (unit.empty() || unit == kIndentByTabs) return;
    const char* const end = unit.data() + unit.size();
    const auto parsed = std::from_chars(unit.data(), end, spaces_);
    if (parsed.ec != std::errc() || parsed.ptr != end || spaces_ < 1 || spaces_ > kSpacesMax) {
        throw host::badUse(
            fmt::format("--indent {}: write tab, or the number of spaces that one "
                        "level has, 1 to {}",
                        unit, kSpacesMax));
    }
}

LevelReading Indentation::levelOf(std::string_view line) const {
    const std::size_t tabs = leading(line, '\t');
    const std::size_t spaces = leading(line, ' ');
    if (spaces_ == 0) {
        // An outline indented by spaces would lose its shape unnoticed.
        if (spaces > 0 && !unitWasNamed_) {
            return {0,
                    "starts with a space, and tabs give the level; say --indent N where N spaces "
                    "do, or --indent tab where the space belongs to the text"};
        }
        return {static_cast<std::int32_t>(kTopLevel + tabs), ""};
    }
    if (spaces % spaces_ != 0) {
        return {0, fmt::format("starts with {} spaces, which is no multiple of --indent {}", spaces,
                               spaces_)};
    }
    return {static_cast<std::int32_t>(kTopLevel + spaces / spaces_), ""};
}

std::string LevelCheck::problemWith(std::int32_t level) {
    const std::int32_t previous = previousLevel_;
    previousLevel_ = level;
    if (level < kTopLevel || level > kDeepestLevel) {
        return fmt::format("is on level {}, and levels go from {} to {}", level, kTopLevel,
                           kDeepestLevel);
    }
    if (previous == 0 && level != kTopLevel) {
        return fmt::format(
            "is the first of its hierarchy and on level {}; a hierarchy starts on "
            "level {}",
            level, kTopLevel);
    }
    if (level > previous + 1) {
        return fmt::format(
            "is on level {} and the one before it on level {}; it can be one level "
            "deeper at most",
            level, previous);
    }
    return "";
}

}  // namespace tvsort::tools
