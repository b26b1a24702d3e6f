// What a sort cost: time, and what it moved by read(2) and write(2).

#pragma once

#include <cstdint>

namespace tvsort::bench {

struct Cost {
    double wallSeconds = 0;
    double cpuSeconds = 0;  // of the contender alone; 0 where nobody counted
    std::int64_t readBytes = 0;
    std::int64_t writtenBytes = 0;
    std::int64_t readCalls = 0;
    std::int64_t writeCalls = 0;
    std::int64_t peakBytes = 0;  // of memory, of a program that was run; 0 where nobody looked

    std::int64_t movedBytes() const { return readBytes + writtenBytes; }
};

}  // namespace tvsort::bench
