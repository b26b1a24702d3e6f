// Levels of a hierarchy: read from records or from the indentation of lines, and checked.
//
//     level 1   fruit           A record on the level below another belongs to it, and is followed
//     level 2       apple       by what belongs to itself. So the first record is on level 1, and
//     level 2       pear        each is one level deeper at most than the one before it.
//     level 1   grain
//
// The process refuses other levels too, but cannot say where they are.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "protocol/bytes.h"

namespace tvsort::tools {

struct LevelReading {
    std::int32_t level;
    // What is wrong where no level can be read, to follow "line 4 of FILE"; else empty.
    std::string problem;
};

// Finds the level in a user's record.
using LevelReader = std::function<LevelReading(const Byte* record)>;

// Reads levels off the indentation of lines.
class Indentation {
  public:
    // `unit` is the value of --indent: "tab", a number of spaces, or empty for tabs where no line
    // starts with a space. Throws when it is something else.
    explicit Indentation(const std::string& unit);

    LevelReading levelOf(std::string_view line) const;
    char character() const { return spaces_ == 0 ? '\t' : ' '; }

  private:
    bool unitWasNamed_;
    std::size_t spaces_;  // per level; 0: a tab per level
};

// Follows the levels of one input from record to record.
class LevelCheck {
  public:
    // What is wrong with the next record's level, in words as above; empty when it fits.
    std::string problemWith(std::int32_t level);
    // The next record is the first of another hierarchy.
    void restart() { previousLevel_ = 0; }

  private:
    std::int32_t previousLevel_ = 0;
};

}  // namespace tvsort::tools
