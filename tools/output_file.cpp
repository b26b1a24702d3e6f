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
    if (!temporaryName_.empty()) unlink(temporaryName_.c_str());
}

void OutputFile::openBeside(const std::string& finalName) {
    const std::filesystem::path path(finalName);
    std::string pattern =
        (path.parent_path() / fmt::format(".{}.XXXXXX", path.filename().string())).string();
    file_ = host::FileDescriptor(mkostemp(pattern.data(), O_CLOEXEC));
    if (!file_.isOpen()) cannotCreate(displayName_, errno);
    temporaryName_ = pattern;
    finalName_ = finalName;
    if (fchmod(file_.number(), rightsFor(finalName)) != 0) cannotCreate(displayName_, errno);
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
    if (!file_.close()) {
        throw host::systemFailure("cannot write " + displayName_, errno,
                                  "make room there or choose another place");
    }
    if (temporaryName_.empty()) return;
    if (rename(temporaryName_.c_str(), finalName_.c_str()) != 0) {
        throw host::systemFailure("cannot give the output its name " + finalName_, errno,
                                  "choose a name that can be written");
    }
    temporaryName_.clear();
}

}  // namespace tvsort::tools
