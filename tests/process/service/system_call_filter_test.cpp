// What the process can no longer do behind the filter: every call of the kernel's table is tried.

#include "process/service/system_call_filter.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

namespace tvsort::test {
namespace {

#if defined(SYS_poll)
constexpr long kPollCall = SYS_poll;
#else
constexpr long kPollCall = SYS_ppoll;
#endif
// Behind the newest call of today's kernels.
constexpr long kCallNumbersMax = 1023;
constexpr long kX32Bit = 0x40000000;
// The kernel's probes, which pass every filter; elsewhere than in a probe they are SIGILL.
constexpr long kProbeCalls[] = {335, 336};
// How the child says that the filter could not be had.
constexpr int kNoFilter = 77;

bool isRefused(long result) {
    return result == -1 && errno == EPERM;
}

// The child's part: it may say what it saw, and end.
void expectInChild(bool claim, const char* what, long call = 0) {
    if (claim) return;
    dprintf(STDERR_FILENO, "%s (call %ld, system error %d)\n", what, call, errno);
    _exit(1);
}

void restrictThisProcess(SortJob& job) {
    alarm(20);  // where the filter has a hole a call may wait for ever
    restrictSystemCalls(job);
    if (!job.systemCallsRestricted) _exit(kNoFilter);
    // Before calls are tried that would do harm if the filter were not there.
    expectInChild(isRefused(syscall(SYS_getpid)), "the filter lets a call pass");
}

// Runs it in a process of its own, which is lost for everything else.
void inChild(void (*tries)(SortJob& job)) {
    const pid_t child = fork();
    if (child == 0) {
        SortJob job = {};
        restrictThisProcess(job);
        tries(job);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (status == W_EXITCODE(kNoFilter, 0)) GTEST_SKIP() << "no filter in this build or kernel";
    EXPECT_EQ(status, 0);
}

constexpr long kAllowed[] = {SYS_read,       SYS_write, SYS_lseek,        SYS_close,
                             SYS_exit_group, kPollCall, SYS_rt_sigreturn, SYS_restart_syscall};

void tryEveryOther(long alsoAllowed) {
    int refused = 0;
    for (long call = 0; call <= kCallNumbersMax; ++call) {
        for (const long bit : {0L, kX32Bit}) {
            const bool isAllowed = call == alsoAllowed || std::ranges::count(kAllowed, call) != 0;
            if (isAllowed && bit == 0) continue;
            if (std::ranges::count(kProbeCalls, call) != 0) continue;
            expectInChild(isRefused(syscall(call | bit, 0L, 0L, 0L, 0L, 0L, 0L)), "passes", call);
            refused += 1;
        }
    }
    expectInChild(refused > 2 * kCallNumbersMax - 15, "tried too few");
}

TEST(SystemCallFilter, RefusesEveryCallButThoseOfASort) {
    inChild([](SortJob& job) {
        tryEveryOther(SYS_openat);
        refuseOpening(job);
        tryEveryOther(-1);
    });
}

TEST(SystemCallFilter, LeavesWhatASortNeeds) {
    inChild([](SortJob&) {
        // The runner's standard output may be anything; these are open or not, but never refused.
        pollfd polled = {STDOUT_FILENO, POLLOUT, 0};
        expectInChild(poll(&polled, 1, 0) >= 0, "poll");
        const int file = open("/proc/self/status", O_RDONLY);
        expectInChild(file >= 0, "open");
        char bytes[2];
        expectInChild(read(file, bytes, 2) == 2, "read");
        expectInChild(lseek(file, 0, SEEK_SET) == 0, "lseek");
        const auto advise = [&](int advice) {
            return syscall(SYS_fadvise64, file, 0L, 1L, advice);
        };
        expectInChild(!isRefused(advise(POSIX_FADV_WILLNEED)), "advise");
        expectInChild(isRefused(advise(POSIX_FADV_DONTNEED)), "other advice");
        expectInChild(write(file, bytes, 2) == -1 && errno == EBADF, "write");
        expectInChild(close(file) == 0, "close");
    });
}

TEST(SystemCallFilter, LetsNoFileBeCreatedOrCutAndNoneBeOpenedBesideTheWorkFile) {
    inChild([](SortJob& job) {
        for (const int flags : {O_CREAT, O_TRUNC, O_TMPFILE, O_CREAT | O_EXCL}) {
            expectInChild(isRefused(open("/dev/null", O_RDWR | flags, 0600)), "open", flags);
        }
        expectInChild(isRefused(prctl(PR_SET_DUMPABLE, 1)), "prctl");
        expectInChild(open("/dev/null", O_RDWR | O_NONBLOCK) >= 0, "open");
        refuseOpening(job);
        expectInChild(isRefused(open("/dev/null", O_RDWR | O_NONBLOCK)), "open");
        expectInChild(isRefused(prctl(PR_SET_SECCOMP, 2, 0)), "prctl");
    });
}

#if defined(__x86_64__)
// The kernel's 32-bit calls have numbers of their own: 20 is getpid there and writev here.
long callOf32Bits(long number) {
    long result = 0;
    asm volatile("int $0x80" : "=a"(result) : "a"(number) : "memory", "r8", "r9", "r10", "r11");
    return result;
}

TEST(SystemCallFilter, RefusesTheCallsOfAnotherArchitecture) {
    const pid_t probe = fork();
    if (probe == 0) _exit(callOf32Bits(20) > 0 ? 0 : 1);
    int status = 0;
    ASSERT_EQ(waitpid(probe, &status, 0), probe);
    if (status != 0) GTEST_SKIP() << "this kernel has no 32-bit calls";
    inChild([](SortJob&) {
        for (const long number : {20L, 3L, 4L, 6L}) {  // among them read, write, close
            expectInChild(callOf32Bits(number) == -EPERM, "a 32-bit call passes", number);
        }
    });
}
#endif

TEST(SystemCallFilter, IsLeftOutWhereTheEnvironmentSaysSo) {
    const int inherited = prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0);
    setenv("TVSORT_FILTER", "off", 1);
    SortJob job = {};
    restrictSystemCalls(job);
    refuseOpening(job);
    unsetenv("TVSORT_FILTER");
    EXPECT_FALSE(job.systemCallsRestricted);
    EXPECT_EQ(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0), inherited);
}

}  // namespace
}  // namespace tvsort::test
