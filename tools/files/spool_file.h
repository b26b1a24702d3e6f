// Bytes that are kept for a while in a file without a name: written first, then read. So an input
// that cannot be read twice, a pipe, can be.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/file_descriptor.h"
#include "protocol/bytes.h"
#include "tools/files/input_file.h"
#include "tools/files/progress.h"

namespace tvsort::tools {

class SpoolFile {
  public:
    // The bytes lie in `directory`; the file goes away by itself.
    explicit SpoolFile(const std::filesystem::path& directory);

    void write(const Byte* bytes, std::size_t byteCount);
    // Written so far.
    std::uint64_t byteCount() const { return byteCount_; }
    // What was written can be read at its place from here on.
    void flush();
    void readAt(std::uint64_t offset, Byte* target, std::size_t byteCount) const;
    // From here on it is read here and there, so that reading ahead is in vain: 1 GB in 48 runs,
    // which two threads read, cost 3.1 GB of reading with it, and 1.5 without.
    void expectJumps() const;
    // The file from its start, to be read under this name. Nothing can be written after that.
    InputFile takeAsInput(const std::string& displayName);

  private:
    void writeThrough(const Byte* bytes, std::size_t byteCount);

    std::filesystem::path directory_;
    host::FileDescriptor file_;
    std::vector<Byte> buffer_;
    std::uint64_t byteCount_ = 0;
};

// The input itself where it is a regular file, else a copy of it under the same display name. Not
// unpacked.
InputFile makeRereadable(InputFile input, const std::filesystem::path& tempDirectory,
                         Progress& progress);

}  // namespace tvsort::tools
