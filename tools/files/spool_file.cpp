#include "tools/files/spool_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
constexpr char kAdvice[] = "make room there or choose another temporary directory";

// It never has a name, and none can be given to it; where the file system has no such files, it has
// one for a moment.
host::FileDescriptor createNameless(const std::filesystem::path& directory) {
    constexpr mode_t kOwnerOnly = 0600;
    host::FileDescriptor file(
        open(directory.c_str(), O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, kOwnerOnly));
    if (file.isOpen()) return file;
    std::string pattern = (directory / "tvsort-spool-XXXXXX").string();
    file = host::FileDescriptor(mkostemp(pattern.data(), O_CLOEXEC));
    if (!file.isOpen()) {
        throw host::systemFailure("cannot create a file in " + directory.string(), errno, kAdvice);
    }
    unlink(pattern.c_str());
    return file;
}

}  // namespace

SpoolFile::SpoolFile(const std::filesystem::path& directory)
    : directory_(directory), file_(createNameless(directory)) {}

void SpoolFile::write(const Byte* bytes, std::size_t byteCount) {
    byteCount_ += byteCount;
    buffer_.insert(buffer_.end(), bytes, bytes + byteCount);
    if (buffer_.size() >= kBufferBytes) flush();
}

void SpoolFile::flush() {
    writeThrough(buffer_.data(), buffer_.size());
    buffer_.clear();
}

void SpoolFile::readAt(std::uint64_t offset, Byte* target, std::size_t byteCount) const {
    while (byteCount > 0) {
        const ssize_t moved = pread(file_.number(), target, byteCount, static_cast<off_t>(offset));
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0)
            throw host::systemFailure("cannot read what was kept in " + directory_.string(),
                                      moved < 0 ? errno : EIO);
        target += moved;
        offset += static_cast<std::uint64_t>(moved);
        byteCount -= static_cast<std::size_t>(moved);
    }
}

void SpoolFile::writeThrough(const Byte* bytes, std::size_t byteCount) {
    while (byteCount > 0) {
        const ssize_t moved = ::write(file_.number(), bytes, byteCount);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) {
            throw host::systemFailure("cannot keep records in " + directory_.string(),
                                      moved < 0 ? errno : ENOSPC, kAdvice);
        }
        bytes += moved;
        byteCount -= static_cast<std::size_t>(moved);
    }
}

void SpoolFile::expectJumps() const {
    posix_fadvise(file_.number(), 0, 0, POSIX_FADV_RANDOM);
}

InputFile SpoolFile::takeAsInput(const std::string& displayName) {
    flush();
    InputFile input(std::move(file_), displayName);
    input.rewind();
    return input;
}

InputFile makeRereadable(InputFile input, const std::filesystem::path& tempDirectory,
                         Progress& progress) {
    if (input.fileBytes().has_value()) return input;
    SpoolFile copy(tempDirectory);
    std::vector<Byte> piece(kBufferBytes);
    while (const std::size_t read = input.read(piece.data(), piece.size())) {
        copy.write(piece.data(), read);
        progress.advanceBytes(read);
    }
    InputFile same = copy.takeAsInput(input.displayName());
    if (input.isPlain()) same.takeAsPlain();
    return same;
}

}  // namespace tvsort::tools
