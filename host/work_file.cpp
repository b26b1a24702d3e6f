#include "host/work_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

off_t blockPosition(std::int32_t blockNumber, std::size_t blockBytes) {
    return static_cast<off_t>(blockNumber - 1) * static_cast<off_t>(blockBytes);
}

}  // namespace

WorkFile::WorkFile(const std::filesystem::path& directory, int slotNumber)
    : path_(directory / ("1.5" + std::to_string(slotNumber))) {
    constexpr mode_t kOwnerOnly = 0600;
    file_ = FileDescriptor(open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly));
    if (!file_.isOpen()) {
        throw systemFailure("cannot create the work file " + path_.string(), errno,
                            "choose another temporary directory");
    }
}

WorkFile::~WorkFile() {
    // In a folder of the server's choice another file may have got the name since.
    struct stat held = {};
    struct stat named = {};
    if (fstat(file_.number(), &held) == 0 && lstat(path_.c_str(), &named) == 0 &&
        held.st_dev == named.st_dev && held.st_ino == named.st_ino) {
        unlink(path_.c_str());
    }
}

void WorkFile::writeBlock(std::int32_t blockNumber, std::span<const Byte> block) {
    off_t position = blockPosition(blockNumber, block.size());
    while (!block.empty()) {
        const ssize_t moved = pwrite(file_.number(), block.data(), block.size(), position);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) {
            throw systemFailure("cannot write the work file " + path_.string(),
                                moved < 0 ? errno : ENOSPC,
                                "make room there, choose another temporary directory, or grant "
                                "more memory");
        }
        writtenBytes_ += moved;
        position += moved;
        block = block.subspan(static_cast<std::size_t>(moved));
    }
}

void WorkFile::readBlock(std::int32_t blockNumber, std::span<Byte> block) const {
    off_t position = blockPosition(blockNumber, block.size());
    while (!block.empty()) {
        const ssize_t moved = pread(file_.number(), block.data(), block.size(), position);
        if (moved < 0 && errno == EINTR) continue;
        if (moved < 0) {
            throw systemFailure("cannot read the work file " + path_.string(), errno,
                                "check the disk of the temporary directory");
        }
        if (moved == 0) {
            throw brokenResult("left the work file " + path_.string() + " without block " +
                               std::to_string(blockNumber) + " of its result");
        }
        position += moved;
        block = block.subspan(static_cast<std::size_t>(moved));
    }
}

void WorkFile::makeEmpty() {
    if (ftruncate(file_.number(), 0) != 0) {
        throw systemFailure("cannot empty the work file " + path_.string(), errno,
                            "choose another temporary directory");
    }
    writtenBytes_ = 0;
}

}  // namespace tvsort::host
