#include "bench/memory_cage.h"

#include <fmt/core.h>
#include <unistd.h>

#include <fstream>

namespace tvsort::bench {

namespace {

namespace fs = std::filesystem;

bool writeTo(const fs::path& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

// The roots of both versions of the hierarchy, and the file that limits a group of each.
struct Hierarchy {
    const char* root;
    const char* limit;
};
constexpr Hierarchy kHierarchies[] = {{"/sys/fs/cgroup/memory", "memory.limit_in_bytes"},
                                      {"/sys/fs/cgroup", "memory.max"}};

}  // namespace

std::unique_ptr<MemoryCage> MemoryCage::make(std::int64_t bytes) {
    for (const Hierarchy& hierarchy : kHierarchies) {
        const fs::path folder =
            fs::path(hierarchy.root) / fmt::format("tvsort-bench-{}-{}", getpid(), bytes);
        std::error_code error;
        if (!fs::create_directory(folder, error)) continue;
        auto cage = std::unique_ptr<MemoryCage>(new MemoryCage(folder));
        if (fs::exists(folder / hierarchy.limit) &&
            writeTo(folder / hierarchy.limit, std::to_string(bytes))) {
            return cage;
        }
    }
    return nullptr;
}

MemoryCage::~MemoryCage() {
    std::error_code error;
    fs::remove(folder_, error);
}

std::vector<std::string> MemoryCage::wrap(const std::vector<std::string>& words) const {
    std::vector<std::string> wrapped = {"sh", "-c", R"(echo $$ > "$0"/cgroup.procs && exec "$@")",
                                        folder_.string()};
    wrapped.insert(wrapped.end(), words.begin(), words.end());
    return wrapped;
}

}  // namespace tvsort::bench
