#include "tools/files/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include "host/host_error.h"
#include "host/random_name.h"
#include "tools/files/input_file.h"
#include "tools/files/interrupt.h"
#include "tools/files/output_place.h"
#include "tools/files/output_rights.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
constexpr mode_t kOwnerOnly = 0600;

[[noreturn]] void cannotCreate(const std::string& name, int systemError) {
    throw host::systemFailure("cannot create the output " + name, systemError,
                              "choose a place that can be written");
}

[[noreturn]] void cannotName(const std::string& name, int systemError) {
    throw host::systemFailure("cannot give the output its name " + name, systemError,
                              "choose a name that can be written");
}

// Where it stands in a folder that everybody can write, a name may have become a link.
host::FileDescriptor openInPlace(const OutputPlace& place) {
    const int follow = place.isOpenFile ? 0 : O_NOFOLLOW;
    int file = -1;
    do {
        throwIfInterrupted();  // a pipe without a reader waits for one
        file = openat(place.folder.number(), place.name.c_str(),
                      O_WRONLY | O_NOCTTY | O_CLOEXEC | follow);
    } while (file < 0 && errno == EINTR);
    return host::FileDescriptor(file);
}

}  // namespace

OutputFile::OutputFile(const std::string& name)
    : displayName_(name), packer_(makePacker(compressionNamed(name))) {
    buffer_.reserve(kBufferBytes);
    if (name.empty() || name == kStandardStream) {
        displayName_ = "standard output";
        isStandard_ = true;
        file_ = host::FileDescriptor(dup(STDOUT_FILENO));
        if (!file_.isOpen()) cannotCreate(displayName_, errno);
        return;
    }
    OutputPlace place = findOutputPlace(name);
    if (place.found.has_value() && (place.isOpenFile || !S_ISREG(place.found->st_mode))) {
        file_ = openInPlace(place);
        if (!file_.isOpen()) cannotCreate(name, errno);
        return;
    }
    // Renaming would replace a file that its owner has protected.
    if (place.found.has_value() &&
        faccessat(place.folder.number(), place.name.c_str(), W_OK, 0) != 0) {
        cannotCreate(name, errno);
    }
    folder_ = std::move(place.folder);
    finalName_ = place.name;
    createNameless();
    if (setRights(file_.number(), {folder_.number(), finalName_, place.found})) return;
    const int error = errno;
    removeHidden();
    cannotCreate(name, error);
}

OutputFile::~OutputFile() {
    removeHidden();
}

void OutputFile::removeHidden() {
    if (!hiddenName_.empty()) unlinkat(folder_.number(), hiddenName_.c_str(), 0);
}

void OutputFile::createNameless() {
    file_ = host::FileDescriptor(
        openat(folder_.number(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, kOwnerOnly));
    if (!file_.isOpen()) file_ = host::FileDescriptor(createHidden());
    if (!file_.isOpen()) cannotCreate(displayName_, errno);
}

template <typename Attempt>
int OutputFile::underHiddenName(const Attempt& attempt) {
    constexpr std::size_t kNameCharsMax = NAME_MAX - 2 - host::kRandomNameChars;  // and two dots
    const std::string visible = finalName_.substr(0, kNameCharsMax);
    for (int i = 0; i < host::kRandomNameTries; ++i) {
        const std::string name = fmt::format(".{}.{}", visible, host::randomName());
        const int result = attempt(name.c_str());
        if (result >= 0) hiddenName_ = name;
        if (result >= 0 || errno != EEXIST) return result;
    }
    return -1;
}

int OutputFile::createHidden() {
    return underHiddenName([this](const char* name) {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        return openat(folder_.number(), name, kFlags, kOwnerOnly);
    });
}

// A nameless file can get a name, but not that of a file that is there: only renaming replaces one.
int OutputFile::giveHiddenName() {
    const std::string own = fmt::format("/proc/self/fd/{}", file_.number());
    return underHiddenName([this, &own](const char* name) {
        return linkat(AT_FDCWD, own.c_str(), folder_.number(), name, AT_SYMLINK_FOLLOW);
    });
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
    if (packer_ == nullptr) return writeRaw(bytes, byteCount);
    packer_->write(bytes, byteCount, [this](const Byte* packed, std::size_t packedCount) {
        writeRaw(packed, packedCount);
    });
}

void OutputFile::writeRaw(const Byte* bytes, std::size_t byteCount) {
    while (byteCount > 0) {
        throwIfInterrupted();
        const ssize_t moved = ::write(file_.number(), bytes, byteCount);
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0) {
            const int error = moved < 0 ? errno : ENOSPC;
            if (error == EPIPE && isStandard_) throw ReaderGone();
            throw host::systemFailure(
                "cannot write the output " + displayName_, error,
                error == EPIPE ? "its reader has gone" : "make room there or choose another place");
        }
        bytes += moved;
        byteCount -= static_cast<std::size_t>(moved);
    }
}

void OutputFile::finish() {
    writeThrough(buffer_.data(), buffer_.size());
    buffer_.clear();
    if (packer_ != nullptr) {
        packer_->finish(
            [this](const Byte* packed, std::size_t packedCount) { writeRaw(packed, packedCount); });
    }
    if (!finalName_.empty() && hiddenName_.empty() && giveHiddenName() < 0) {
        cannotName(displayName_, errno);
    }
    if (!file_.close()) {
        throw host::systemFailure("cannot write " + displayName_, errno,
                                  "make room there or choose another place");
    }
    if (finalName_.empty()) return;
    const int folder = folder_.number();
    if (renameat(folder, hiddenName_.c_str(), folder, finalName_.c_str()) != 0) {
        cannotName(displayName_, errno);
    }
    hiddenName_.clear();
}

}  // namespace tvsort::tools
