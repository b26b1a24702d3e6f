// A directory of this host alone, for the socket and the work files. It goes away, with the files
// that a host makes in it, when the object does.
//
//     tvsort-host-XXXXXX/     random letters; mode 0700
//         tvsort-host.owner   the marker: a fixed line, and a lock (flock(2)) while the host lives
//         tavrin.internal.N   socket
//         1.5N                work files
//         tavucsN             collation file
//
// A host that was killed leaves its directory behind, and the system takes the lock back with its
// life: whoever makes a directory beside it later removes it. Only what is beyond doubt goes: a
// directory, not a link to one, of that name and mode and of this effective user, with a whole
// marker whose lock is free, and with nothing in it but the files above, of their kinds and of this
// user. All else stays untouched, whatever its name. So does one without a marker: another host may
// have made it a moment ago, or was killed in that moment. The marker gets its line after the lock
// is taken, so that nobody ever sees a whole marker of a host that lives and is not locked.
//
// Everything is reached through descriptors, so that exchanging a name for another directory or a
// link in the middle of it leads nowhere.

#pragma once

#include <filesystem>

#include "host/file_descriptor.h"

namespace tvsort::host {

class PrivateDirectory {
  public:
    // Removes what this user's killed hosts left under `parent` and makes a new directory there.
    // One that cannot be locked is a failure, for it would not be safe from the next host.
    explicit PrivateDirectory(const std::filesystem::path& parent);
    // Removes the files above and the directory; where others are in it, it stays with them.
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    // Absolute.
    const std::filesystem::path& path() const { return path_; }

  private:
    struct Parent {
        std::filesystem::path path;
        FileDescriptor directory;
    };
    explicit PrivateDirectory(Parent parent);
    static Parent openParent(const std::filesystem::path& path);
    void mark();

    Parent parent_;
    std::filesystem::path path_;
    FileDescriptor directory_;
    FileDescriptor marker_;
};

// `TMPDIR` where it is set, else "/tmp".
std::filesystem::path defaultTempDirectory();

}  // namespace tvsort::host
