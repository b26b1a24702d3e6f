// What the test and the shim inside the sort process share: which system call is to go wrong, and
// what came of it.
//
// The test makes the plan's memory and names it to the process by an environment variable; the shim
// (tests/fault/fault_shim.cpp), preloaded into the process, maps it before `main` runs. From then
// on the test arms and disarms faults from outside, between two requests or before the start.

#pragma once

#include <atomic>
#include <cstdint>

namespace tvsort::test {

// Calls of the process, those on the socket apart from those on files.
enum class Call : std::int32_t {
    kNone,
    kOpen,
    kFcntl,
    kClose,  // of a descriptor that is open
    kFstat,
    kMmap,
    kSocket,
    kConnect,
    kSetsockopt,
    kSeek,
    kReadFile,
    kWriteFile,
    kReadSocket,
    kWriteSocket,
    kAnyOnFile,  // in a plan: seeks, reads and writes of files together
};

// What a struck call does.
enum class Deed : std::int32_t {
    kFail,     // gives -1 and a system error
    kShort,    // moves half of the bytes, one at least
    kNothing,  // gives 0: the end of the file or stream, or a device that takes no more
};

inline constexpr char kPlanVariable[] = "TVSORT_FAULT_PLAN";
inline constexpr std::int32_t kLogCallsMax = 16384;

struct FaultPlan {
    std::atomic<Call> call;  // kNone: nothing is struck
    // The first and the last call struck, from 1, counted since the plan was armed.
    std::atomic<std::int32_t> first;
    std::atomic<std::int32_t> last;
    std::atomic<Deed> deed;
    std::atomic<std::int32_t> systemError;
    std::atomic<std::int32_t> seen;
    std::atomic<std::int32_t> injected;
    // Of `rand`, so that each armed request takes the same pivots, and so makes the same calls.
    std::atomic<std::uint32_t> randomState;
    // Of malloc, calloc and realloc, since the program was loaded.
    std::atomic<std::int64_t> heapCalls;
    // The calls on files since the plan was armed, in order.
    std::atomic<std::int32_t> logCount;
    Call log[kLogCallsMax];
};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

}  // namespace tvsort::test
