#include "tools/files/output_rights.h"

#include <fmt/format.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace tvsort::tools {

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

// Empty where it has none.
std::string accessListOf(const Replaced& replaced) {
    const std::string path = fmt::format("/proc/self/fd/{}/{}", replaced.folder, replaced.name);
    std::string list(XATTR_SIZE_MAX, '\0');
    const ssize_t length = lgetxattr(path.c_str(), kAccessList, list.data(), list.size());
    list.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return list;
}

bool setNewFileRights(int file) {
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(file, 0666 & ~mask) == 0;
}

}  // namespace

bool setRights(int file, const Replaced& replaced) {
    constexpr mode_t kRightsMask = 0777;  // without those that change whose rights a program has
    if (!replaced.status.has_value()) return setNewFileRights(file);
    const gid_t group = replaced.status->st_gid;
    struct stat own = {};
    if (fstat(file, &own) != 0) return false;
    const std::string list = accessListOf(replaced);
    const bool hasGroup = own.st_gid == group || fchown(file, static_cast<uid_t>(-1), group) == 0;
    mode_t rights = replaced.status->st_mode & kRightsMask;
    if (!hasGroup || !list.empty()) {
        const mode_t everybodys = (rights & S_IRWXO) << 3;
        rights &= ~mode_t{S_IRWXG} | everybodys;
    }
    fremovexattr(file, kAccessList);  // what the folder gives to new files
    if (fchmod(file, rights) != 0) return false;
    // Where the list cannot be set, the narrower rights hold.
    if (hasGroup && !list.empty()) fsetxattr(file, kAccessList, list.data(), list.size(), 0);
    return true;
}

}  // namespace tvsort::tools
