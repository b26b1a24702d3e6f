#include "tools/files/machine_memory.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>

namespace tvsort::tools {

namespace {

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

// `max` stands for none, as does what cannot be read.
std::uint64_t limitIn(const std::filesystem::path& file) {
    std::uint64_t limit = 0;
    return std::ifstream(file) >> limit ? limit : kNoLimit;
}

// Of the group and all above it. In a container the path may be one of the machine's, of which the
// last folders or none are there.
std::uint64_t limitUpwards(const std::filesystem::path& root, std::filesystem::path group,
                           const char* file) {
    std::uint64_t limit = limitIn(root / file);
    for (group = group.relative_path(); !group.empty(); group = group.parent_path())
        limit = std::min(limit, limitIn(root / group / file));
    return limit;
}

}  // namespace

std::uint64_t groupMemoryBytes(std::string_view groups, const std::filesystem::path& root) {
    std::uint64_t limit = kNoLimit;
    std::istringstream lines{std::string(groups)};
    // NUMBER:CONTROLLERS:PATH, of version 2 without controllers.
    for (std::string number, controllers, path; std::getline(lines, number, ':') &&
                                                std::getline(lines, controllers, ':') &&
                                                std::getline(lines, path);) {
        if (controllers.empty()) {
            limit = std::min(limit, limitUpwards(root, path, "memory.max"));
        } else if (("," + controllers + ",").find(",memory,") != std::string::npos) {
            limit = std::min(limit, limitUpwards(root / "memory", path, "memory.limit_in_bytes"));
        }
    }
    return limit;
}

std::uint64_t machineMemoryBytes() {
    std::ifstream file("/proc/self/cgroup");
    const std::string groups{std::istreambuf_iterator<char>(file), {}};
    const auto machineBytes = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                              static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    return std::min(machineBytes, groupMemoryBytes(groups, "/sys/fs/cgroup"));
}

}  // namespace tvsort::tools
