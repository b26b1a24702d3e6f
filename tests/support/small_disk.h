// A disk of a test's own, as small and as full as the test wants it.

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>

namespace tvsort::test {

inline constexpr std::uint64_t kDiskPage = 4096;

// Mounts of its own for this process; as root of a user namespace where it is not root already.
inline bool separateMounts() {
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
        std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// A file system in memory that is full when it is to be.
class SmallDisk {
  public:
    explicit SmallDisk(const std::filesystem::path& path, const char* size = "size=1M")
        : path_(path) {
        isMounted_ = separateMounts() && mount("small", path.c_str(), "tmpfs", 0, size) == 0;
    }
    ~SmallDisk() { umount2(path_.c_str(), MNT_DETACH); }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool isMounted() const { return isMounted_; }
    std::uint64_t freePages() const {
        struct statvfs status = {};
        EXPECT_EQ(statvfs(path_.c_str(), &status), 0);
        return status.f_bavail * status.f_bsize / kDiskPage;
    }
    void fillUpTo(std::uint64_t pagesLeft) const {
        const int fd = open(filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(posix_fallocate(fd, 0, static_cast<off_t>((freePages() - pagesLeft) * kDiskPage)),
                  0);
        close(fd);
        EXPECT_EQ(freePages(), pagesLeft);
    }
    void makeRoom() const { std::filesystem::remove(filler()); }

  private:
    std::filesystem::path filler() const { return path_ / "filler"; }

    std::filesystem::path path_;
    bool isMounted_;
};

}  // namespace tvsort::test
