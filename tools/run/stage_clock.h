// What the stages of a command cost: time that went by, and processor time.

#pragma once

#include <chrono>
#include <cstdint>

namespace tvsort::tools {

struct StageCost {
    double elapsedSeconds = 0;
    double cpuSeconds = 0;  // of this command and of the sort processes

    StageCost& operator+=(const StageCost& other) {
        elapsedSeconds += other.elapsedSeconds;
        cpuSeconds += other.cpuSeconds;
        return *this;
    }
};

class StageClock {
  public:
    StageClock();
    // The cost since the last call, or since the making. Processor time is this command's alone.
    StageCost lap();

  private:
    std::chrono::steady_clock::time_point begin_;
    double beginCpuSeconds_;
};

// The largest resident size of this command so far, the shared slots that it touched included.
std::int64_t ownPeakBytes();

}  // namespace tvsort::tools
