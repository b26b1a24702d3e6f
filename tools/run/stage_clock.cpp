#include "tools/run/stage_clock.h"

#include <sys/resource.h>

namespace tvsort::tools {

namespace {

rusage ownUsage() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage;
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double ownCpuSeconds() {
    const rusage usage = ownUsage();
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

}  // namespace

StageClock::StageClock()
    : begin_(std::chrono::steady_clock::now()), beginCpuSeconds_(ownCpuSeconds()) {}

StageCost StageClock::lap() {
    const StageClock now;
    const std::chrono::duration<double> passed = now.begin_ - begin_;
    const StageCost cost = {passed.count(), now.beginCpuSeconds_ - beginCpuSeconds_};
    *this = now;
    return cost;
}

std::int64_t ownPeakBytes() {
    return std::int64_t{ownUsage().ru_maxrss} * 1024;
}

}  // namespace tvsort::tools
