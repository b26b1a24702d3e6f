#include "process/storage/work_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "process/storage/server_watch.h"

namespace tvsort {

namespace {

constexpr std::size_t kPathBytes = 1024;
constexpr int kDirectoryCharsMax = 258;

// Takes off trailing blanks. Inner and leading blanks belong to the name.
void trimBlanks(char (&name)[kDirectoryNameBytes + 1]) {
    for (std::size_t end = kDirectoryNameBytes; end > 0 && name[end - 1] == ' '; --end) {
        name[end - 1] = '\0';
    }
}

bool isPrefixName(const char* name) {
    return strcmp(name, "SY00") == 0 || strcmp(name, "TEMP") == 0;
}

// False when the path does not fit.
bool formatPath(const SortJob& job, const char* name, char (&path)[kPathBytes]) {
    const char* const directory = isPrefixName(name) ? nullptr : getenv(name);
    const int length =
        directory != nullptr
            ? snprintf(path, sizeof path, "%.*s/1.5%d", kDirectoryCharsMax, directory,
                       job.slotNumber)
            : snprintf(path, sizeof path, "%s1.5%d", job.directoryPrefix, job.slotNumber);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof path;
}

std::size_t blockBytes(const SortJob& job, std::int32_t blockCount) {
    return static_cast<std::size_t>(blockCount) * frameBytes(job);
}

off_t positionOf(const SortJob& job, std::int32_t block) {
    return off_t{block - 1} * off_t{job.blockPages} * kPageBytes;
}

bool seekToBlock(const SortJob& job, std::int32_t block) {
    return lseek(job.workFd, positionOf(job, block), SEEK_SET) >= 0;
}

}  // namespace

void openWorkFile(SortJob& job, const char* directoryName) {
    char name[kDirectoryNameBytes + 1] = {};
    memcpy(name, directoryName, kDirectoryNameBytes);
    trimBlanks(name);

    char path[kPathBytes];
    if (!formatPath(job, name, path)) {
        raiseSystemError(job, ErrorCode::kWorkFileOpen, ENAMETOOLONG);
        return;
    }
    const int fd = open(path, O_RDWR | O_NONBLOCK | O_LARGEFILE);
    if (fd < 0) {
        raiseSystemError(job, ErrorCode::kWorkFileOpen, errno);
        return;
    }
    job.workFd = fd;
    job.workFileOpen = 1;
}

void closeWorkFile(SortJob& job) {
    if (job.workFileOpen == 1) close(job.workFd);
    job.workFileOpen = 0;
}

// One call may move less than asked (the kernel's 2 GiB limit, a signal, a disk that fills up):
// both transfers go on where the last call stopped, so that a block is either whole or an error.

bool readBlocks(SortJob& job, Byte* target, std::int32_t firstBlock, std::int32_t blockCount) {
    watchServer(job, blockBytes(job, blockCount));
    if (!seekToBlock(job, firstBlock)) {
        raiseSystemError(job, ErrorCode::kWorkFileRead, errno);
        return false;
    }
    std::size_t missing = blockBytes(job, blockCount);
    while (missing > 0) {
        const ssize_t moved = read(job.workFd, target, missing);
        if (moved < 0) {
            raiseSystemError(job, ErrorCode::kWorkFileRead, errno);
            return false;
        }
        if (moved == 0) return true;  // the end of the file
        target += moved;
        missing -= static_cast<std::size_t>(moved);
    }
    return true;
}

void expectReads(const SortJob& job, std::int32_t firstBlock, std::int32_t blockCount) {
    posix_fadvise(job.workFd, positionOf(job, firstBlock),
                  static_cast<off_t>(blockBytes(job, blockCount)), POSIX_FADV_WILLNEED);
}

bool writeBlocks(SortJob& job, const Byte* source, std::int32_t firstBlock,
                 std::int32_t blockCount) {
    watchServer(job, blockBytes(job, blockCount));
    if (!seekToBlock(job, firstBlock)) {
        raiseSystemError(job, ErrorCode::kWorkFileWrite, errno);
        return false;
    }
    std::size_t missing = blockBytes(job, blockCount);
    while (missing > 0) {
        const ssize_t moved = write(job.workFd, source, missing);
        if (moved <= 0) {
            // A write that moves nothing would go on for ever: the device takes no more.
            raiseSystemError(job, ErrorCode::kWorkFileWrite, moved < 0 ? errno : ENOSPC);
            return false;
        }
        source += moved;
        missing -= static_cast<std::size_t>(moved);
    }
    return true;
}

}  // namespace tvsort
