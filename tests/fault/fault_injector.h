// The test's end of the fault plan: hands the shim to processes, and arms it.

#pragma once

#include <string>
#include <vector>

#include "tests/fault/fault_plan.h"

namespace tvsort::test {

// One way for a call to go wrong.
struct Fault {
    const char* name;
    Deed deed;
    int systemError;
};

// System errors, and what only reads and writes can do.
extern const std::vector<Fault> kFailures;
extern const std::vector<Fault> kFailuresAndShortMoves;

// For ever, and often enough to catch whoever gives up a call that is to be repeated.
inline constexpr std::int32_t kForEver = 0x7fffffff;
inline constexpr std::int32_t kManyTimes = 1000;

class FaultInjector {
  public:
    FaultInjector();
    ~FaultInjector();
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;

    // For a process that is to be struck. One process at a time.
    std::vector<std::string> environment() const;

    // From now on, call number `first` and up to `times` in all go wrong.
    void arm(Call call, std::int32_t first, std::int32_t times, const Fault& fault);
    // Nothing goes wrong; calls and pivots start afresh as they do with `arm`.
    void disarm();

    // Since it was armed.
    std::int32_t injected() const { return plan_->injected; }
    // The calls on files since it was armed.
    std::vector<Call> fileCalls() const { return {plan_->log, plan_->log + plan_->logCount}; }
    // Of malloc, calloc and realloc, since the program was loaded.
    std::int64_t heapCalls() const { return plan_->heapCalls; }

  private:
    std::string path_;  // of the file that is the plan's memory
    FaultPlan* plan_;
};

}  // namespace tvsort::test
