#include "host/shared_object.h"

#include <fcntl.h>
#include <linux/mount.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "host/host_error.h"
#include "protocol/messages.h"

namespace tvsort::host {

namespace {

constexpr std::int64_t kStatBlockBytes = 512;  // the unit of st_blocks
constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;
// The child and the first page take about a millisecond.
constexpr std::size_t kTriedBytesMin = 8 * kHugePageBytes;

HostError cannot(const char* what, std::size_t byteCount) {
    return systemFailure(std::string(what) + std::to_string(byteCount) + " bytes of shared memory",
                         errno, "ask for less memory or fewer slots");
}

FileDescriptor sealedFile(std::size_t byteCount) {
    FileDescriptor file =
        aboveStreams(FileDescriptor(memfd_create("tvsort", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    if (!file.isOpen() || ftruncate(file.number(), static_cast<off_t>(byteCount)) != 0 ||
        fcntl(file.number(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        throw cannot("cannot create ", byteCount);
    }
    return file;
}

// What the child does; it has this side's memory as a copy and its descriptors in common, and may
// only make system calls, since other threads may have held locks when it began.
class TmpfsMaker {
  public:
    TmpfsMaker(std::size_t byteCount, int target) : target_(target) {
        write(size_, (byteCount + kHugePageBytes - 1) / kHugePageBytes * kHugePageBytes, "");
        // Files get an owner that exists in the namespace only where it has been told of one.
        write(userMap_, getuid(), " ");
        write(groupMap_, getgid(), " ");
    }

    // Puts the file in the target's place.
    bool run() const {
        if (!tell("/proc/self/setgroups", "deny") || !tell("/proc/self/uid_map", userMap_) ||
            !tell("/proc/self/gid_map", groupMap_)) {
            return false;
        }
        const FileDescriptor system(call(SYS_fsopen, "tmpfs", FSOPEN_CLOEXEC));
        if (!system.isOpen() || !set(system, "huge", "always") || !set(system, "size", size_) ||
            call(SYS_fsconfig, system.number(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) {
            return false;
        }
        const FileDescriptor mount(call(SYS_fsmount, system.number(), FSMOUNT_CLOEXEC, 0));
        if (!mount.isOpen()) return false;
        const FileDescriptor file(
            openat(mount.number(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
        return file.isOpen() && dup3(file.number(), target_, O_CLOEXEC) == target_;
    }

  private:
    static constexpr std::size_t kTextBytes = 64;  // three numbers of 20 digits fit
    using Text = char[kTextBytes];

    template <class Number>
    static void write(Text& text, Number number, const char* between) {
        std::string made = std::to_string(number);
        if (*between != '\0') made += between + made + between + "1";
        made.copy(text, kTextBytes - 1);
    }
    template <class... Arguments>
    static int call(long number, Arguments... arguments) {
        return static_cast<int>(syscall(number, arguments...));
    }
    static bool tell(const char* path, const char* text) {
        const FileDescriptor file(open(path, O_WRONLY | O_CLOEXEC));
        const std::size_t length = std::char_traits<char>::length(text);
        return file.isOpen() &&
               ::write(file.number(), text, length) == static_cast<ssize_t>(length);
    }
    static bool set(const FileDescriptor& system, const char* name, const char* value) {
        return call(SYS_fsconfig, system.number(), FSCONFIG_SET_STRING, name, value, 0) == 0;
    }

    int target_;
    Text size_ = {};
    Text userMap_ = {};
    Text groupMap_ = {};
};

// Closed where it cannot be had.
FileDescriptor fileInHugePages(std::size_t byteCount) {
    FileDescriptor file = aboveStreams(FileDescriptor(open("/dev/null", O_RDWR | O_CLOEXEC)));
    if (!file.isOpen()) return {};
    const TmpfsMaker maker(byteCount, file.number());
    // Without a signal at its end, and so unseen by whoever waits for children of this process.
    const long child = syscall(SYS_clone, CLONE_FILES | CLONE_NEWUSER | CLONE_NEWNS, nullptr,
                               nullptr, nullptr, nullptr);
    if (child == 0) _exit(maker.run() ? 0 : 1);
    if (child < 0) return {};
    int status = -1;
    while (waitpid(static_cast<pid_t>(child), &status, static_cast<int>(__WCLONE)) < 0 &&
           errno == EINTR) {
    }
    if (status != 0 || ftruncate(file.number(), static_cast<off_t>(byteCount)) != 0) return {};
    return file;
}

}  // namespace

SharedObject::SharedObject(FileDescriptor file, std::size_t byteCount, bool advises)
    : file_(std::move(file)), byteCount_(byteCount) {
    void* const start =
        mmap(nullptr, byteCount, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor(), 0);
    if (start == MAP_FAILED) throw cannot("cannot map ", byteCount);
    start_ = static_cast<Byte*>(start);
    if (advises) madvise(start_, byteCount, MADV_HUGEPAGE);
    *start_ = 0;  // the first page comes into being, and shows what pages there are
    struct stat status = {};
    hasHugePages_ =
        fstat(descriptor(), &status) == 0 && status.st_blocks * kStatBlockBytes > kPageBytes;
}

SharedObject::SharedObject(std::size_t byteCount, HugePages hugePages)
    : SharedObject(sealedFile(byteCount), byteCount, hugePages != HugePages::kOff) {
    if (hasHugePages_ || hugePages == HugePages::kOff) return;
    if (hugePages == HugePages::kTry && byteCount < kTriedBytesMin) return;
    if (FileDescriptor file = fileInHugePages(byteCount); file.isOpen()) {
        *this = SharedObject(std::move(file), byteCount, false);
    }
    if (!hasHugePages_ && hugePages == HugePages::kOn) {
        throw badUse(
            "the system gives no huge pages for shared memory: it allows neither advice "
            "(`advise` in /sys/kernel/mm/transparent_hugepage/shmem_enabled) nor a tmpfs "
            "in a namespace; allow one of them, or do without");
    }
}

SharedObject::~SharedObject() {
    if (start_ != nullptr) munmap(start_, byteCount_);
}

SharedObject::SharedObject(SharedObject&& other) noexcept
    : file_(std::move(other.file_)),
      start_(std::exchange(other.start_, nullptr)),
      byteCount_(other.byteCount_),
      hasHugePages_(other.hasHugePages_) {}

SharedObject& SharedObject::operator=(SharedObject&& other) noexcept {
    std::swap(file_, other.file_);
    std::swap(start_, other.start_);
    std::swap(byteCount_, other.byteCount_);
    std::swap(hasHugePages_, other.hasHugePages_);
    return *this;
}

}  // namespace tvsort::host
