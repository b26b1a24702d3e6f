// The file or standard input that a command reads.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/file_descriptor.h"
#include "host/host_error.h"
#include "protocol/bytes.h"

namespace tvsort::tools {

// In place of a file's name: standard input or output.
inline constexpr char kStandardStream[] = "-";

// The error of an input that is not what it was at the first reading.
host::HostError changedWhileRead(const std::string& name);

class InputFile {
  public:
    // Opens the file; throws with the reason and the name when that cannot be.
    explicit InputFile(const std::string& name);
    // Reads from an open file under a name of the caller's choice.
    InputFile(host::FileDescriptor file, std::string displayName);

    // The same open file, with one position for both.
    InputFile duplicate() const;
    // For messages.
    const std::string& displayName() const { return displayName_; }
    // Nothing at its start is taken for the mark of an encoding or of a compression.
    void takeAsPlain() { isPlain_ = true; }
    bool isPlain() const { return isPlain_; }
    // Bytes of a regular file; nothing for pipes and devices.
    std::optional<std::int64_t> fileBytes() const;

    // Bytes that have been read of a regular file; 0 of another one.
    std::int64_t position() const;

    // Fills `target` as far as the input reaches; answers fewer than `byteCount` at its end only.
    std::size_t read(Byte* target, std::size_t byteCount);
    // Fills `target` from this byte of a regular file on, wherever `read` has come. A file that
    // ends before is thrown: it was changed.
    void readAt(std::int64_t offset, Byte* target, std::size_t byteCount) const;
    // Back to the first byte; the input must be a regular file.
    void rewind();

  private:
    host::FileDescriptor file_;
    std::string displayName_;
    bool isPlain_ = false;
};

}  // namespace tvsort::tools
