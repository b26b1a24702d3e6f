// A memory control group: what runs in it shares so much memory, the page cache of its files
// included.

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tvsort::bench {

class MemoryCage {
  public:
    // Null where the system or the user's rights do not allow one.
    static std::unique_ptr<MemoryCage> make(std::int64_t bytes);
    ~MemoryCage();
    MemoryCage(const MemoryCage&) = delete;
    MemoryCage& operator=(const MemoryCage&) = delete;

    // The words of a command that runs `words` in it.
    std::vector<std::string> wrap(const std::vector<std::string>& words) const;

  private:
    explicit MemoryCage(std::filesystem::path folder) : folder_(std::move(folder)) {}

    std::filesystem::path folder_;
};

}  // namespace tvsort::bench
