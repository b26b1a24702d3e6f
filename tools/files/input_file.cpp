#include "tools/files/input_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

// A signal between the look at its note and the read would wait for input otherwise.
constexpr int kWaitMilliseconds = 200;

void waitForInput(int file) {
    for (;;) {
        throwIfInterrupted();
        pollfd polled = {file, POLLIN, 0};
        if (poll(&polled, 1, kWaitMilliseconds) > 0) return;
    }
}

host::FileDescriptor openInput(const std::string& name) {
    host::FileDescriptor file;
    do {
        throwIfInterrupted();  // a pipe without a writer waits for one
        file = host::FileDescriptor(
            name == kStandardStream ? dup(STDIN_FILENO) : open(name.c_str(), O_RDONLY | O_CLOEXEC));
    } while (!file.isOpen() && errno == EINTR);
    if (!file.isOpen()) {
        throw host::systemFailure(
            "cannot open the input " + name, errno,
            "name a file that exists and can be read, or - for standard input");
    }
    return file;
}

}  // namespace

host::HostError changedWhileRead(const std::string& name) {
    return host::badUse(name +
                        " was changed while it was being read; leave it alone and sort again");
}

InputFile::InputFile(const std::string& name)
    : InputFile(openInput(name), name == kStandardStream ? "standard input" : name) {}

InputFile::InputFile(host::FileDescriptor file, std::string displayName)
    : file_(std::move(file)), displayName_(std::move(displayName)) {}

InputFile InputFile::duplicate() const {
    host::FileDescriptor copy(fcntl(file_.number(), F_DUPFD_CLOEXEC, 0));
    if (!copy.isOpen())
        throw host::systemFailure("cannot open the input " + displayName_ + " once more", errno);
    InputFile same(std::move(copy), displayName_);
    same.isPlain_ = isPlain_;
    return same;
}

std::optional<std::int64_t> InputFile::fileBytes() const {
    struct stat status = {};
    if (fstat(file_.number(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return status.st_size;
}

std::int64_t InputFile::position() const {
    return std::max<std::int64_t>(lseek(file_.number(), 0, SEEK_CUR), 0);
}

std::size_t InputFile::read(Byte* target, std::size_t byteCount) {
    std::size_t filled = 0;
    while (filled < byteCount) {
        waitForInput(file_.number());
        const ssize_t moved = ::read(file_.number(), target + filled, byteCount - filled);
        if (moved < 0 && errno == EINTR) continue;
        if (moved < 0) {
            throw host::systemFailure("cannot read the input " + displayName_, errno,
                                      "name a file that can be read");
        }
        if (moved == 0) break;
        filled += static_cast<std::size_t>(moved);
    }
    return filled;
}

void InputFile::readAt(std::int64_t offset, Byte* target, std::size_t byteCount) const {
    while (byteCount > 0) {
        const ssize_t moved = pread(file_.number(), target, byteCount, offset);
        if (moved < 0 && errno == EINTR) continue;
        if (moved < 0) {
            throw host::systemFailure("cannot read the input " + displayName_ + " again", errno);
        }
        if (moved == 0) throw changedWhileRead(displayName_);
        target += moved;
        offset += moved;
        byteCount -= static_cast<std::size_t>(moved);
    }
}

void InputFile::rewind() {
    if (lseek(file_.number(), 0, SEEK_SET) != 0) {
        throw host::systemFailure("cannot read the input " + displayName_ + " a second time",
                                  errno);
    }
}

}  // namespace tvsort::tools
