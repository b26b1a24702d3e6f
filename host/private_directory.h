// A directory of this host alone, for the socket and the work files. It goes away, with all the
// files in it, when the object does.
//
// A host that was killed leaves its directory behind. While it lives it holds a lock (flock(2)) on
// it, which the system takes back with its life: whoever makes a directory beside it later removes
// what nobody holds any more. One without a file in it stays, for it may be another host's that has
// just come into being and is not locked yet.

#pragma once

#include <filesystem>

#include "host/file_descriptor.h"

namespace tvsort::host {

class PrivateDirectory {
  public:
    // Makes a new directory "tvsort-host-XXXXXX" under `parent`, readable by its owner alone, and
    // removes those of this user's hosts that were killed.
    explicit PrivateDirectory(const std::filesystem::path& parent);
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    // Absolute.
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    FileDescriptor lock_;
};

// Characters that a private directory's own name and the slash before it take.
inline constexpr std::size_t kPrivateNameChars = sizeof "/tvsort-host-XXXXXX" - 1;

// `TMPDIR` where it is set, else "/tmp".
std::filesystem::path defaultTempDirectory();

}  // namespace tvsort::host
