#include "host/private_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

constexpr char kNamePrefix[] = "tvsort-host-";

FileDescriptor openDirectory(const std::filesystem::path& path) {
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool hasPrivateName(const std::filesystem::path& path) {
    const std::string name = path.filename().string();
    return name.starts_with(kNamePrefix) && name.size() + 1 == kPrivateNameChars;
}

void removeUnlessHeld(const std::filesystem::path& path) {
    const FileDescriptor directory = openDirectory(path);
    struct stat status = {};
    if (!directory.isOpen() || fstat(directory.number(), &status) != 0) return;
    if (status.st_uid != geteuid() || flock(directory.number(), LOCK_EX | LOCK_NB) != 0) return;
    std::error_code ignored;
    if (!std::filesystem::is_empty(path, ignored)) std::filesystem::remove_all(path, ignored);
}

// What cannot be looked at or removed is no concern of the host that starts here.
void removeLeftovers(const std::filesystem::path& parent) {
    std::error_code error;
    std::vector<std::filesystem::path> found;
    for (std::filesystem::directory_iterator entry(parent, error), end; !error && entry != end;
         entry.increment(error)) {
        if (hasPrivateName(entry->path())) found.push_back(entry->path());
    }
    for (const std::filesystem::path& path : found)
        removeUnlessHeld(path);
}

}  // namespace

PrivateDirectory::PrivateDirectory(const std::filesystem::path& parent) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(parent, error);
    if (error) absolute = parent;
    removeLeftovers(absolute);
    std::string pattern = (absolute / (std::string(kNamePrefix) + "XXXXXX")).string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw systemFailure("cannot create a directory under " + absolute.string(), errno,
                            "choose a temporary directory that exists and can be written");
    }
    path_ = pattern;
    // Where a file system has no locks, nobody gets one, and nothing is removed.
    lock_ = openDirectory(path_);
    while (flock(lock_.number(), LOCK_EX) != 0 && errno == EINTR)
        continue;
}

PrivateDirectory::~PrivateDirectory() {
    // There is nobody to tell of a failure here; the directory then stays for its owner to remove.
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path defaultTempDirectory() {
    const char* const directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != '\0' ? directory : "/tmp";
}

}  // namespace tvsort::host
