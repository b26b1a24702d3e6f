// A directory of this host alone, for the socket and the work files. It goes away, with all the
// files in it, when the object does.

#pragma once

#include <filesystem>

namespace tvsort::host {

class PrivateDirectory {
  public:
    // Makes a new directory "tvsort-XXXXXX" under `parent`, readable by its owner alone.
    explicit PrivateDirectory(const std::filesystem::path& parent);
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    // Absolute.
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// Characters that a private directory's own name and the slash before it take.
inline constexpr std::size_t kPrivateNameChars = sizeof "/tvsort-XXXXXX" - 1;

// `TMPDIR` where it is set, else "/tmp".
std::filesystem::path defaultTempDirectory();

}  // namespace tvsort::host
