// What happens to rows that cannot be read: `--on-error`.
//
//     stop   the first one ends the command, named
//     skip   it is left out; the first few are named at the end, and all are counted

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvsort::tools {

inline constexpr char kStopOnError[] = "stop";
inline constexpr char kSkipOnError[] = "skip";

class RowErrors {
  public:
    // `policy` is one of the words above; empty stands for stop.
    explicit RowErrors(const std::string& policy) : skips_(policy == kSkipOnError) {}

    // Throws as bad use, or counts. `text` says where and what.
    void take(const std::string& text);
    // Whether rows are left out.
    bool skips() const { return skips_; }
    // Forgets what was counted: the inputs are read again from their start.
    void restart();

    std::int64_t skippedCount() const { return skippedCount_; }
    // Lines for people: the first ones named, and how many there are. Empty without any.
    std::string report() const;

  private:
    bool skips_;
    std::int64_t skippedCount_ = 0;
    std::vector<std::string> first_;
};

}  // namespace tvsort::tools
