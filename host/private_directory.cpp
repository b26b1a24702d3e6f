#include "host/private_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "host/host_error.h"
#include "host/random_name.h"

namespace tvsort::host {

namespace {

constexpr std::string_view kNamePrefix = "tvsort-host-";
constexpr char kMarkerName[] = "tvsort-host.owner";
constexpr std::string_view kMarkerText = "a directory of tvsort-host, which removes it\n";
constexpr mode_t kOwnerOnly = 0700;
constexpr char kAdvice[] = "choose a temporary directory that exists and can be written";

struct OwnFile {
    std::string_view prefix;  // digits follow it
    mode_t kind;
};
constexpr OwnFile kOwnFiles[] = {
    {"1.5", S_IFREG}, {"tavrin.internal.", S_IFSOCK}, {"tavucs", S_IFREG}};

// Of a slot or an instance.
bool isNumber(std::string_view text) {
    constexpr std::size_t kDigitsMax = 10;
    return !text.empty() && text.size() <= kDigitsMax &&
           text.find_first_not_of("0123456789") == text.npos;
}

bool isOwnFile(std::string_view name, const struct stat& status) {
    if (status.st_uid != geteuid()) return false;
    for (const OwnFile& file : kOwnFiles) {
        if (name.starts_with(file.prefix) && isNumber(name.substr(file.prefix.size()))) {
            return (status.st_mode & S_IFMT) == file.kind;
        }
    }
    return false;
}

bool isPrivateName(std::string_view name) {
    return name.starts_with(kNamePrefix) && isRandomName(name.substr(kNamePrefix.size()));
}

FileDescriptor openDirectory(int parent, const char* name) {
    return FileDescriptor(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// None where the directory cannot be read to its end.
std::optional<std::vector<std::string>> namesIn(int directory) {
    FileDescriptor own = openDirectory(directory, ".");
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(own.number()), closedir);
    if (stream == nullptr) return std::nullopt;
    own.release();  // to the stream, which closes it
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* const entry = readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    if (errno != 0) return std::nullopt;
    return names;
}

struct Contents {
    std::vector<std::string> ownFiles;  // the marker is not among them
    bool hasOthers = false;
};

std::optional<Contents> contentsOf(int directory) {
    const auto names = namesIn(directory);
    if (!names.has_value()) return std::nullopt;
    Contents contents;
    for (const std::string& name : *names) {
        struct stat status = {};
        if (name == kMarkerName) continue;
        if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            isOwnFile(name, status)) {
            contents.ownFiles.push_back(name);
        } else {
            contents.hasOthers = true;
        }
    }
    return contents;
}

// The marker goes last: what is cut short before is found by the next host. A directory that
// something was put into in the meantime stays, and so does another one that has got its name.
void removeDirectory(int parent, const std::string& name, int directory, const Contents& contents) {
    for (const std::string& file : contents.ownFiles)
        unlinkat(directory, file.c_str(), 0);
    unlinkat(directory, kMarkerName, 0);
    struct stat held = {};
    struct stat named = {};
    if (fstat(directory, &held) == 0 &&
        fstatat(parent, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        held.st_dev == named.st_dev && held.st_ino == named.st_ino) {
        unlinkat(parent, name.c_str(), AT_REMOVEDIR);
    }
}

bool lock(int file) {
    int result = 0;
    do {
        result = flock(file, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool hasMarkerText(int marker) {
    char text[kMarkerText.size() + 1];
    const ssize_t read = pread(marker, text, sizeof text, 0);
    return read >= 0 && std::string_view(text, static_cast<std::size_t>(read)) == kMarkerText;
}

// Open and locked, when it is whole and nobody holds it. Locks over the network ask that a file be
// open for writing.
FileDescriptor takeMarker(int directory) {
    constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    FileDescriptor marker(openat(directory, kMarkerName, kFlags));
    struct stat status = {};
    if (!marker.isOpen() || !hasMarkerText(marker.number()) || !lock(marker.number()) ||
        fstat(marker.number(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != geteuid()) {
        return {};
    }
    return marker;
}

void removeLeftover(int parent, const std::string& name) {
    const FileDescriptor directory = openDirectory(parent, name.c_str());
    struct stat status = {};
    if (!directory.isOpen() || fstat(directory.number(), &status) != 0 ||
        status.st_uid != geteuid() || (status.st_mode & 07777) != kOwnerOnly) {
        return;
    }
    const FileDescriptor marker = takeMarker(directory.number());  // held to the end
    if (!marker.isOpen()) return;
    const auto contents = contentsOf(directory.number());
    if (!contents.has_value() || contents->hasOthers) return;
    removeDirectory(parent, name, directory.number(), *contents);
}

// There a lock may hold on one machine only, and what looks left may be another machine's.
bool isOnNetwork(int directory) {
    constexpr std::uint32_t kNetworkTypes[] = {NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC, CIFS_SUPER_MAGIC,
                                               SMB2_SUPER_MAGIC, AFS_SUPER_MAGIC, CEPH_SUPER_MAGIC};
    struct statfs status = {};
    if (fstatfs(directory, &status) != 0) return true;
    const auto type = static_cast<std::uint32_t>(status.f_type);
    return std::find(std::begin(kNetworkTypes), std::end(kNetworkTypes), type) !=
           std::end(kNetworkTypes);
}

// What cannot be looked at or removed is no concern of the host that starts here.
void removeLeftovers(int parent) {
    if (isOnNetwork(parent)) return;
    const auto names = namesIn(parent);
    if (!names.has_value()) return;
    for (const std::string& name : *names) {
        if (isPrivateName(name)) removeLeftover(parent, name);
    }
}

// A new one's name; empty where that cannot be, with the reason in `errno`.
std::string makeDirectory(int parent) {
    for (int i = 0; i < kRandomNameTries; ++i) {
        std::string name = std::string(kNamePrefix) + randomName();
        if (mkdirat(parent, name.c_str(), kOwnerOnly) == 0) return name;
        if (errno != EEXIST) break;
    }
    return "";
}

// One that could not be opened, for want of descriptors, say, has no marker, and no host would
// remove it later. The reason stays in `errno`.
void removeUnopened(int parent, const std::string& name) {
    const int reason = errno;
    struct stat status = {};
    if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_uid == geteuid()) {
        unlinkat(parent, name.c_str(), AT_REMOVEDIR);
    }
    errno = reason;
}

// Whatever group bit or list of rights the parent hands on, the mode is the owner's only.
// Where others may rename in the parent, another directory may stand in its place by now.
bool openNewDirectory(int parent, const std::string& name, FileDescriptor& directory) {
    directory = openDirectory(parent, name.c_str());
    if (!directory.isOpen()) {
        removeUnopened(parent, name);
        return false;
    }
    struct stat status = {};
    if (fstat(directory.number(), &status) != 0) return false;
    if (status.st_uid == geteuid()) return fchmod(directory.number(), kOwnerOnly) == 0;
    errno = EPERM;
    return false;
}

HostError cannotCreateUnder(const std::filesystem::path& parent) {
    return systemFailure("cannot create a directory under " + parent.string(), errno, kAdvice);
}

}  // namespace

PrivateDirectory::Parent PrivateDirectory::openParent(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) absolute = path;
    FileDescriptor directory(open(absolute.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory.isOpen()) throw cannotCreateUnder(absolute);
    return {std::move(absolute), std::move(directory)};
}

PrivateDirectory::PrivateDirectory(Parent parent) : parent_(std::move(parent)) {
    const int number = parent_.directory.number();
    removeLeftovers(number);
    const std::string name = makeDirectory(number);
    if (name.empty() || !openNewDirectory(number, name, directory_)) {
        throw cannotCreateUnder(parent_.path);
    }
    path_ = parent_.path / name;
}

// From the end of the first constructor on the destructor removes what has been made.
PrivateDirectory::PrivateDirectory(const std::filesystem::path& parent)
    : PrivateDirectory(openParent(parent)) {
    mark();
}

void PrivateDirectory::mark() {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const std::string name = (path_ / kMarkerName).string();
    // Hosts that know no markers look for this lock as soon as there is a file in the directory.
    lock(directory_.number());
    marker_ = FileDescriptor(openat(directory_.number(), kMarkerName, kFlags, 0600));
    if (!marker_.isOpen()) throw systemFailure("cannot create " + name, errno, kAdvice);
    if (!lock(marker_.number())) {
        throw systemFailure("cannot lock " + name, errno,
                            "choose a temporary directory on a file system that has locks");
    }
    const ssize_t written = pwrite(marker_.number(), kMarkerText.data(), kMarkerText.size(), 0);
    if (written != static_cast<ssize_t>(kMarkerText.size())) {
        throw systemFailure("cannot write " + name, written < 0 ? errno : ENOSPC,
                            "make room there or choose another temporary directory");
    }
}

PrivateDirectory::~PrivateDirectory() {
    // There is nobody to tell of a failure here; the directory then stays for its owner to remove.
    try {
        auto contents = contentsOf(directory_.number());
        if (!contents.has_value()) {
            marker_.close();  // reading takes a descriptor, and there may be no other
            contents = contentsOf(directory_.number());
        }
        if (!contents.has_value()) contents.emplace();
        removeDirectory(parent_.directory.number(), path_.filename().string(), directory_.number(),
                        *contents);
    } catch (...) {
        return;  // without memory for the names
    }
}

std::filesystem::path defaultTempDirectory() {
    const char* const directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != '\0' ? directory : "/tmp";
}

}  // namespace tvsort::host
