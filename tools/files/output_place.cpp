#include "tools/files/output_place.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/limits.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr int kLinksMax = 40;  // Linux's own bound

// A walk along a path, one component after the other.
class Walk {
  public:
    explicit Walk(const std::string& path) : path_(path), rest_(path) { enterStart(); }

    OutputPlace find();

  private:
    [[noreturn]] void fail(int systemError) const;
    std::string takeComponent();
    void enterStart();
    void enter(host::FileDescriptor folder) { folder_ = std::move(folder); }
    bool isInProc() const;
    bool isAnothersInPublic(const struct stat& thing) const;
    void checkMayFollow(const std::string& name, const struct stat& link) const;
    void checkMayWrite(const struct stat& found) const;
    // True when the walk goes on along the link's text.
    bool follow(const std::string& name, int link, const struct stat& status);
    bool textLeadsTo(const std::string& text, const struct stat& status) const;
    OutputPlace placeAt(std::string name, std::optional<struct stat> found, bool isOpenFile);

    const std::string& path_;
    std::string rest_;
    host::FileDescriptor folder_;
    int linkCount_ = 0;
};

void Walk::fail(int systemError) const {
    throw host::systemFailure("cannot create the output " + path_, systemError,
                              "choose a place that can be written");
}

// "/" leads on from the root, all else from where the walk is.
void Walk::enterStart() {
    if (rest_.empty()) fail(ENOENT);
    if (rest_.front() != '/' && folder_.isOpen()) return;
    enter(host::FileDescriptor(
        open(rest_.front() == '/' ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC)));
    if (!folder_.isOpen()) fail(errno);
}

// Slashes behind a component stay in the rest: it must be a directory then.
std::string Walk::takeComponent() {
    rest_.erase(0, rest_.find_first_not_of('/'));
    const std::size_t end = std::min(rest_.find('/'), rest_.size());
    std::string name = rest_.substr(0, end);
    rest_.erase(0, end);
    return name.empty() ? "." : name;
}

bool Walk::isInProc() const {
    struct statfs status = {};
    return fstatfs(folder_.number(), &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

// In a folder like /tmp, and neither the user's nor that of the folder's owner.
bool Walk::isAnothersInPublic(const struct stat& thing) const {
    constexpr mode_t kEverybodysSticky = S_ISVTX | S_IWOTH;
    struct stat folder = {};
    if (fstat(folder_.number(), &folder) != 0) fail(errno);
    return (folder.st_mode & kEverybodysSticky) == kEverybodysSticky && thing.st_uid != geteuid() &&
           thing.st_uid != folder.st_uid;
}

void Walk::checkMayFollow(const std::string& name, const struct stat& link) const {
    if (!isAnothersInPublic(link)) return;
    throw host::badUse(
        fmt::format("cannot create the output {}: {} is a symbolic link of another user in a "
                    "folder that everybody can write; name the file that is meant, or remove the "
                    "link",
                    path_, name));
}

void Walk::checkMayWrite(const struct stat& found) const {
    if (!(S_ISREG(found.st_mode) || S_ISFIFO(found.st_mode)) || !isAnothersInPublic(found)) return;
    throw host::badUse(
        fmt::format("cannot create the output {}: it belongs to another user, in a folder that "
                    "everybody can write; choose another name",
                    path_));
}

bool Walk::textLeadsTo(const std::string& text, const struct stat& status) const {
    struct stat named = {};
    return fstatat(folder_.number(), text.c_str(), &named, 0) == 0 &&
           named.st_dev == status.st_dev && named.st_ino == status.st_ino;
}

bool Walk::follow(const std::string& name, int link, const struct stat& status) {
    checkMayFollow(name, status);
    if (++linkCount_ > kLinksMax) fail(ELOOP);
    std::string text(PATH_MAX, '\0');
    const ssize_t length = readlinkat(link, "", text.data(), text.size());
    if (length <= 0) fail(length < 0 ? errno : ENOENT);
    text.resize(static_cast<std::size_t>(length));
    // A link of /proc leads to an open file itself; its text is that file's name only where it
    // still has one.
    if (isInProc()) {
        struct stat target = {};
        if (fstatat(folder_.number(), name.c_str(), &target, 0) != 0) fail(errno);
        if (!textLeadsTo(text, target)) return false;
    }
    rest_ = text + rest_;
    enterStart();
    return true;
}

OutputPlace Walk::placeAt(std::string name, std::optional<struct stat> found, bool isOpenFile) {
    if (found.has_value() && !isOpenFile) checkMayWrite(*found);
    return {std::move(folder_), std::move(name), found, isOpenFile};
}

OutputPlace Walk::find() {
    for (;;) {
        const std::string name = takeComponent();
        const bool isLast = rest_.empty();
        host::FileDescriptor found(
            openat(folder_.number(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (!found.isOpen() && errno == ENOENT && isLast) return placeAt(name, {}, false);
        struct stat status = {};
        if (!found.isOpen() || fstat(found.number(), &status) != 0) fail(errno);
        if (S_ISLNK(status.st_mode)) {
            if (follow(name, found.number(), status)) continue;
            found =
                host::FileDescriptor(openat(folder_.number(), name.c_str(), O_PATH | O_CLOEXEC));
            if (!found.isOpen() || fstat(found.number(), &status) != 0) fail(errno);
            if (isLast) return placeAt(name, status, true);
        }
        if (isLast) return placeAt(name, status, false);
        if (!S_ISDIR(status.st_mode)) fail(ENOTDIR);
        enter(std::move(found));
    }
}

}  // namespace

OutputPlace findOutputPlace(const std::string& path) {
    return Walk(path).find();
}

}  // namespace tvsort::tools
