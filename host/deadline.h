// How long the host waits for the sort process, and what it does meanwhile.

#pragma once

#include <algorithm>
#include <chrono>
#include <functional>

namespace tvsort::host {

using Timeout = std::chrono::milliseconds;
// Waits as long as the process lives.
inline constexpr Timeout kNoTimeout = Timeout::max();
// No wait is longer than this in one piece, so that `WhileWaiting` runs and a process's end that
// nothing announces is seen.
inline constexpr Timeout kWaitSlice{50};

// Runs at least once per `kWaitSlice` of every wait: shows progress, or throws to give up waiting.
using WhileWaiting = std::function<void()>;

class Deadline {
  public:
    explicit Deadline(Timeout timeout)
        : endless_(timeout == kNoTimeout),
          end_(endless_ ? Clock::time_point::max() : Clock::now() + timeout) {}

    bool hasPassed() const { return !endless_ && Clock::now() >= end_; }

    // The next piece of the wait, as poll(2) takes it.
    int sliceMilliseconds() const {
        if (endless_) return static_cast<int>(kWaitSlice.count());
        const auto left = std::chrono::ceil<Timeout>(end_ - Clock::now());
        return static_cast<int>(std::clamp(left, Timeout{0}, kWaitSlice).count());
    }

  private:
    using Clock = std::chrono::steady_clock;
    bool endless_;
    Clock::time_point end_;
};

}  // namespace tvsort::host
