// The counters of bytes and calls that the system keeps of each process.

#pragma once

#include <iosfwd>
#include <string>

#include "bench/cost.h"

namespace tvsort::bench {

// Of a process by its id, or of this one by "self". Times are left 0.
Cost ioCountersOf(const std::string& process);

// From text of the form that /proc/PID/io has; other lines are passed over.
Cost parseIoCounters(std::istream& text);

// What was moved between two readings.
Cost difference(const Cost& before, const Cost& after);

}  // namespace tvsort::bench
