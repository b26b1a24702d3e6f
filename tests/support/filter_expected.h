// Whether the built process is to run behind its system-call filter here.

#pragma once

#include <sys/prctl.h>

#include <cstdlib>

namespace tvsort::test {

inline bool filterExpected() {
#if TVSORT_PROGRAM_FILTERED && (defined(__x86_64__) || defined(__aarch64__))
    // A kernel without filters does not know the question.
    return std::getenv("TVSORT_FILTER") == nullptr && prctl(PR_GET_SECCOMP) >= 0;
#else
    return false;
#endif
}

}  // namespace tvsort::test
