// Other programs, run to their end.

#pragma once

#include <string>
#include <vector>

#include "bench/cost.h"

namespace tvsort::bench {

struct Command {
    std::vector<std::string> words;        // the program, looked up in PATH, and its arguments
    std::vector<std::string> environment;  // "NAME=value", in addition
    std::string outputPath = "/dev/null";  // for what it prints
};

// Runs it and waits. What it cost covers its start, its threads and its reaped children. A program
// that cannot be started or ends badly is thrown as std::runtime_error.
Cost run(const Command& command);

// Whether PATH holds the program.
bool isInstalled(const std::string& program);

}  // namespace tvsort::bench
