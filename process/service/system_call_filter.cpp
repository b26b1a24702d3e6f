#include "process/service/system_call_filter.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace tvsort {

#if !defined(TVSORT_WITHOUT_FILTER) && (defined(__x86_64__) || defined(__aarch64__))

namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
constexpr std::uint32_t kPollCall = SYS_poll;
#else
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
constexpr std::uint32_t kPollCall = SYS_ppoll;  // which poll() is made of there
#endif

constexpr std::uint32_t kCreatingOrCutting = O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);

constexpr sock_filter answer(std::uint32_t action) {
    return {BPF_RET | BPF_K, 0, 0, action};
}
constexpr sock_filter kAllow = answer(SECCOMP_RET_ALLOW);
constexpr sock_filter kRefuse = answer(SECCOMP_RET_ERRNO | EPERM);

constexpr sock_filter load(std::size_t offset) {
    return {BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<std::uint32_t>(offset)};
}
// The low half of an argument: the kernel takes those that are looked at here as 32 bits, and both
// architectures are little-endian.
constexpr sock_filter loadArgument(std::size_t index) {
    return load(offsetof(seccomp_data, args) + index * sizeof(std::uint64_t));
}
// The next instruction where the loaded word is `value`, else the one behind `otherwiseSkipped`.
constexpr sock_filter onlyIf(std::uint32_t value, std::uint8_t otherwiseSkipped = 1) {
    return {BPF_JMP | BPF_JEQ | BPF_K, 0, otherwiseSkipped, value};
}
constexpr sock_filter unless(std::uint32_t value) {
    return {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, value};
}
constexpr sock_filter onlyIfAnyBitOf(std::uint32_t bits) {
    return {BPF_JMP | BPF_JSET | BPF_K, 0, 1, bits};
}

// x86-64's second table of calls, x32, needs no line: its numbers differ in a bit of their own.
// What a sort does most comes first.
constexpr sock_filter kStarted[] = {
    load(offsetof(seccomp_data, arch)),
    unless(kArchitecture),
    kRefuse,
    load(offsetof(seccomp_data, nr)),
    onlyIf(SYS_lseek),
    kAllow,
    onlyIf(SYS_read),
    kAllow,
    onlyIf(SYS_write),
    kAllow,
    onlyIf(kPollCall),
    kAllow,
    onlyIf(SYS_fadvise64, 4),
    loadArgument(3),
    onlyIf(POSIX_FADV_WILLNEED),
    kAllow,
    kRefuse,
    onlyIf(SYS_close),
    kAllow,
    onlyIf(SYS_exit_group),
    kAllow,
    onlyIf(SYS_rt_sigreturn),
    kAllow,
    onlyIf(SYS_restart_syscall),
    kAllow,
    onlyIf(SYS_openat, 4),
    loadArgument(2),
    onlyIfAnyBitOf(kCreatingOrCutting),
    kRefuse,
    kAllow,
    onlyIf(SYS_prctl, 3),
    loadArgument(0),
    onlyIf(PR_SET_SECCOMP),
    kAllow,
    kRefuse,
};

// Added to the other, which still decides what this one lets pass.
constexpr sock_filter kWorkFileOpen[] = {
    load(offsetof(seccomp_data, nr)),
    onlyIf(SYS_openat),
    kRefuse,
    onlyIf(SYS_prctl),
    kRefuse,
    kAllow,
};

template <std::size_t count>
bool addFilter(const sock_filter (&instructions)[count]) {
    // The kernel copies the instructions; its interface has them mutable.
    const sock_fprog program = {count, const_cast<sock_filter*>(instructions)};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool isTurnedOff() {
    const char* const wish = getenv("TVSORT_FILTER");
    return wish != nullptr && strcmp(wish, "off") == 0;
}

}  // namespace

void restrictSystemCalls(SortJob& job) {
    if (isTurnedOff()) return;
    // Without it only a privileged process may add a filter.
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return;
    job.systemCallsRestricted = addFilter(kStarted);
}

void refuseOpening(const SortJob& job) {
    if (job.systemCallsRestricted) addFilter(kWorkFileOpen);
}

#else

void restrictSystemCalls(SortJob&) {}

void refuseOpening(const SortJob&) {}

#endif

}  // namespace tvsort
