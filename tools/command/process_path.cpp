#include "tools/command/process_path.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <system_error>
#include <vector>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr char kProcessName[] = "tvsort";

bool isProgram(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) && access(path.c_str(), X_OK) == 0;
}

std::vector<std::filesystem::path> candidateDirectories() {
    std::vector<std::filesystem::path> directories;
    std::error_code error;
    const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        directories.push_back(own.parent_path());
        directories.push_back(own.parent_path().parent_path() / "libexec");
    }
    const char* const searchPath = std::getenv("PATH");
    std::istringstream searched(searchPath == nullptr ? "" : searchPath);
    for (std::string directory; std::getline(searched, directory, ':');) {
        directories.emplace_back(directory);
    }
    return directories;
}

}  // namespace

std::filesystem::path findProcess(const std::string& option) {
    if (!option.empty()) {
        if (isProgram(option)) return option;
        throw host::badUse(
            fmt::format("--process {}: there is no such program; name the built "
                        "tvsort",
                        option));
    }
    for (const std::filesystem::path& directory : candidateDirectories()) {
        if (isProgram(directory / kProcessName)) return directory / kProcessName;
    }
    throw host::badUse(
        "tvsort, the sort process, is neither beside this command nor in PATH; name "
        "it with --process");
}

}  // namespace tvsort::tools
