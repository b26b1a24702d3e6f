// A descriptor of the operating system that closes itself.

#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace tvsort::host {

class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    ~FileDescriptor() { close(); }
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    // -1 when none is held, which poll(2) passes over.
    int number() const { return number_; }
    bool isOpen() const { return number_ >= 0; }
    // The number, for somebody else to close.
    int release() { return std::exchange(number_, -1); }
    // False when the system reports at the end what a write could not.
    bool close() { return number_ < 0 || ::close(std::exchange(number_, -1)) == 0; }

  private:
    int number_ = -1;
};

// The same under a number that is no standard stream's. In a host that has closed its own streams a
// new descriptor gets such a number, and a child's streams are laid over it.
inline FileDescriptor aboveStreams(FileDescriptor file) {
    if (file.number() > STDERR_FILENO || !file.isOpen()) return file;
    return FileDescriptor(fcntl(file.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace tvsort::host
