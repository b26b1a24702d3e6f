// What the process may still ask of the kernel once it has started: a wall for the day on which all
// else fails and somebody's bytes decide what it does.
//
//     call                               while
//     read, write, lseek, poll           always
//     close, exit_group                  always
//     rt_sigreturn, restart_syscall      always: the kernel asks for them, no code does
//     openat, but neither creating nor   no work file is open
//       cutting a file
//     prctl, to add a filter             the same
//
// Every other call, and every call by another architecture's table of numbers, fails with EPERM.
// The process goes on and ends with status 0, as after any failed call.
//
// The filters are classic BPF. The kernel only ever adds them, and they come with
// no-new-privileges: no program that this one might start could gain anything by its file's mode.
//
// Where it is not known (other architectures than x86-64 and AArch64, kernels without filters) the
// process runs without. So it does with `TVSORT_FILTER=off` in its environment, for tools inside
// it that have calls of their own to make, and in builds with the option TVSORT_FILTER off, as
// sanitizers and coverage need.

#pragma once

#include "process/job/sort_job.h"

namespace tvsort {

// Puts the filter in force. Needs the channel connected; `systemCallsRestricted` says whether it
// came about.
void restrictSystemCalls(SortJob& job);

// Takes back what opening the work file needed, if the filter is in force.
void refuseOpening(const SortJob& job);

}  // namespace tvsort
