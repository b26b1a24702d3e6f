// How much memory there is for a process and the files that it reads: the machine's, or what the
// control groups that it is in are allowed, whichever is less.
//
// Groups of version 2 have a file memory.max, those of version 1 memory.limit_in_bytes. A group is
// never allowed more than those above it, so all of them up to the root are asked.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace tvsort::tools {

std::uint64_t machineMemoryBytes();

// Of the groups that `groups`, the text of /proc/self/cgroup, names below the file systems at
// `root`, /sys/fs/cgroup; the greatest number where none has a limit.
std::uint64_t groupMemoryBytes(std::string_view groups, const std::filesystem::path& root);

}  // namespace tvsort::tools
