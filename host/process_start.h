// Starts a program as the child of this one, with walls around it.
//
// What the child finds: /dev/null as standard input, a pipe as standard output, this side's
// standard error, the shared object under its own number and nothing else of what is marked to be
// closed; a process group of its own; no signal ignored or held back. And what a fault in it cannot
// pass:
//
//     no core file     it would hold the users' records
//     file size        EFBIG behind it, also for what this process did not ask for
//     address space    ENOMEM behind it
//     its starter      it is killed when the thread that started it ends
//
// The last one is the system's way to count: not this process but the starting thread is the
// parent. A host whose starting thread ends before the child turns it off (`endsWithStarter`); the
// child then ends when it next looks at its socket.

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "host/deadline.h"

namespace tvsort::host {

inline constexpr std::int64_t kNoLimit = std::numeric_limits<std::int64_t>::max();

// What is above the limits that this process has itself is these.
struct ProcessLimits {
    std::int64_t fileBytes = kNoLimit;     // of each file that it writes
    std::int64_t addressBytes = kNoLimit;  // of memory, mapped files and the program included
    bool endsWithStarter = true;
};

struct ProcessStart {
    // Without a slash it is looked up in PATH.
    std::filesystem::path program;
    // As the process takes them, the shared object's descriptor among them.
    std::vector<std::string> arguments;
    // "NAME=value" strings that replace or add to this process's own environment.
    std::vector<std::string> environment;
    // Inherited under its own number; -1 for none.
    int sharedDescriptor = -1;
    ProcessLimits limits = {};
    // Until the program runs: a child can be stopped before.
    Timeout timeout = kNoTimeout;
    WhileWaiting whileWaiting = {};
};

// Starts the program with `output` as its standard output; answers the child's id. A program that
// cannot be run is thrown as kSystemCall, one that does not come to run as kTimedOut.
pid_t startProcess(const ProcessStart& start, int output);

}  // namespace tvsort::host
