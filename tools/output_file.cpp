#include "tools/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "host/host_error.h"
#include "tools/input_file.h"
#include "tools/interrupt.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

[[noreturn]] void cannotCreate(const std::string& name, int systemError) {
    throw host::systemFailure("cannot create the output " + name, systemError,
                              "choose a place that can be written");
}

[[noreturn]] void cannotName(const std::string& name, int systemError) {
    throw host::systemFailure("cannot give the output its name " + name, systemError,
                              "choose a name that can be written");
}

// Beside the final one.
std::string hiddenNameFor(const std::filesystem::path& path, const std::string& ending) {
    return (path.parent_path() / fmt::format(".{}.{}", path.filename().string(), ending)).string();
}

// The rights of the file that is replaced, or those that a new file gets.
mode_t rightsFor(const std::string& finalName) {
    constexpr mode_t kRightsMask = 07777;
    struct stat status = {};
    if (stat(finalName.c_str(), &status) == 0) return status.st_mode & kRightsMask;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// What a symbolic link leads to is replaced, not the link.
std::string resolve(const std::string& name) {
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(name, error);
    return error ? name : resolved.string();
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : displayName_(name) {
    buffer_.reserve(kBufferBytes);
    if (name.empty() || name == kStandardStream) {
        displayName_ = "standard output";
        file_ = host::FileDescriptor(dup(STDOUT_FILENO));
        if (!file_.isOpen()) cannotCreate(displayName_, errno);
        return;
    }
    struct stat status = {};
    const bool exists = stat(name.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        file_ = host::FileDescriptor(open(name.c_str(), O_WRONLY | O_CLOEXEC));
        if (!file_.isOpen()) cannotCreate(name, errno);
        return;
    }
    // Renaming would replace a file that its owner has protected.
    if (exists && access(name.c_str(), W_OK) != 0) cannotCreate(name, errno);
    openBeside(resolve(name));
}

OutputFile::~OutputFile() {
    if (!hiddenName_.empty()) unlink(hiddenName_.c_str());
}

void OutputFile::openBeside(const std::string& finalName) {
    const std::filesystem::path path(finalName);
    const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
    finalName_ = finalName;
    file_ = host::FileDescriptor(open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!file_.isOpen()) {
        hiddenName_ = hiddenNameFor(path, "XXXXXX");
        file_ = host::FileDescriptor(mkostemp(hiddenName_.data(), O_CLOEXEC));
        if (!file_.isOpen()) {
            hiddenName_.clear();
            cannotCreate(displayName_, errno);
        }
    }
    if (fchmod(file_.number(), rightsFor(finalName)) != 0) cannotCreate(displayName_, errno);
}

// A nameless file can get a name, but not that of a file that is there: only renaming replaces one.
void OutputFile::giveHiddenName() {
    const std::string own = fmt::format("/proc/self/fd/{}", file_.number());
    const std::string name = hiddenNameFor(finalName_, std::to_string(getpid()));
    unlink(name.c_str());  // of a dead process that had this one's number
    if (linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        cannotName(finalName_, errno);
    }
    hiddenName_ = name;
}

void OutputFile::write(const Byte* bytes, std::size_t byteCount) {
    if (buffer_.size() + byteCount > kBufferBytes) {
        writeThrough(buffer_.data(), buffer_.size());
        buffer_.clear();
    }
    if (byteCount > kBufferBytes) {
        writeThrough(bytes, byteCount);
    } else {
        buffer_.insert(buffer_.end(), bytes, bytes + byteCount);
    }
}

void OutputFile::writeThrough(const Byte* bytes, std::size_t byteCount) {
    while (byteCount > 0) {
        throwIfInterrupted();
        const ssize_t moved = ::write(file_.number(), bytes, byteCount);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) {
            const int error = moved < 0 ? errno : ENOSPC;
            throw host::systemFailure(
                "cannot write the output " + displayName_, error,
                error == EPIPE ? "its reader has gone" : "make room there or choose another place");
        }
        writtenBytes_ += moved;
        bytes += moved;
        byteCount -= static_cast<std::size_t>(moved);
    }
}

void OutputFile::finish() {
    writeThrough(buffer_.data(), buffer_.size());
    buffer_.clear();
    if (!finalName_.empty() && hiddenName_.empty()) giveHiddenName();
    if (!file_.close()) {
        throw host::systemFailure("cannot write " + displayName_, errno,
                                  "make room there or choose another place");
    }
    if (finalName_.empty()) return;
    if (rename(hiddenName_.c_str(), finalName_.c_str()) != 0) cannotName(finalName_, errno);
    hiddenName_.clear();
}

}  // namespace tvsort::tools
