#include "bench/child_process.h"

#include <fcntl.h>
#include <fmt/ranges.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "bench/io_counters.h"

namespace tvsort::bench {

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

pid_t spawn(const Command& command) {
    std::vector<std::string> words = command.words;
    std::vector<std::string> environment = command.environment;
    for (char** own = environ; *own != nullptr; ++own)
        environment.emplace_back(*own);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, command.outputPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t id = -1;
    const int error = posix_spawnp(&id, words[0].c_str(), &actions, nullptr,
                                   pointersTo(words).data(), pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start " + words[0] + ": " + std::strerror(error));
    }
    return id;
}

}  // namespace

Cost run(const Command& command) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t id = spawn(command);
    // The counters of an ended process can be read until it is reaped.
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT);
    const auto end = std::chrono::steady_clock::now();
    Cost cost = ioCountersOf(std::to_string(id));
    int status = 0;
    rusage usage = {};
    wait4(id, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(fmt::format("\"{}\" did not end well (status {})",
                                             fmt::join(command.words, " "), status));
    }
    cost.wallSeconds = std::chrono::duration<double>(end - start).count();
    cost.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    cost.peakBytes = std::int64_t{usage.ru_maxrss} * 1024;
    return cost;
}

bool isInstalled(const std::string& program) {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((std::filesystem::path(folder) / program).c_str(), X_OK) == 0) return true;
    }
    return false;
}

}  // namespace tvsort::bench
