// What happens to rows that cannot be read: `--on-error`.
//
//     stop   the first one ends the command, named
//     skip   it is left out; the first few are named at the end, and all are counted
//     last   it stands behind all others, named and counted likewise

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace tvsort::tools {

inline constexpr char kStopOnError[] = "stop";
inline constexpr char kSkipOnError[] = "skip";
inline constexpr char kLastOnError[] = "last";

class RowErrors {
  public:
    static constexpr std::size_t kNamedMax = 10;

    // `policy` is one of the words above; empty stands for stop.
    explicit RowErrors(const std::string& policy)
        : skips_(policy == kSkipOnError), keepsRows_(policy == kLastOnError) {}

    // Throws as bad use, or counts. `text` says where and what.
    void take(const std::string& text) {
        take([&] { return text; });
    }
    // The same where the words are costly: they are asked for if they are shown.
    template <typename Words>
    requires std::is_invocable_r_v<std::string, Words>
    void take(const Words& words) {
        if (!skips_ && !keepsRows_) stop(words());
        skippedCount_ += 1;
        if (first_.size() < kNamedMax) first_.push_back(words());
    }
    // Whether rows are left out.
    bool skips() const { return skips_; }
    // Whether they stand behind all others.
    bool keepsRows() const { return keepsRows_; }
    // Forgets what was counted: the inputs are read again from their start.
    void restart();

    // Left out, or put last.
    std::int64_t skippedCount() const { return skippedCount_; }
    // Lines for people: the first ones named, and how many there are. Empty without any.
    std::string report() const;

  private:
    [[noreturn]] static void stop(const std::string& text);

    bool skips_;
    bool keepsRows_;
    std::int64_t skippedCount_ = 0;
    std::vector<std::string> first_;
};

}  // namespace tvsort::tools
