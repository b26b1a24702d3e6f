// The file or standard output that a command writes.
//
// A file comes into being without a name in the folder of the final one and gets the final name by
// `finish`, when it is whole: nobody ever sees a half-written output, an earlier file of that name
// stays until then, and of a command that was killed nothing is left. Where the file system has no
// nameless files, it has a hidden name of its own until then. Devices and pipes are written
// directly.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/file_descriptor.h"
#include "service/bytes.h"

namespace tvsort::tools {

class OutputFile {
  public:
    // `name` "-" or empty is standard output. An output that cannot be created fails here, before
    // any work is done.
    explicit OutputFile(const std::string& name);
    // Removes what `finish` has not made final.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const Byte* bytes, std::size_t byteCount);
    // Writes what is left in the buffer and gives the file its name.
    void finish();

    const std::string& displayName() const { return displayName_; }
    std::int64_t writtenBytes() const { return writtenBytes_; }

  private:
    void openBeside(const std::string& finalName);
    void giveHiddenName();
    void writeThrough(const Byte* bytes, std::size_t byteCount);

    host::FileDescriptor file_;
    std::string displayName_;
    std::string finalName_;   // empty where there is nothing to rename
    std::string hiddenName_;  // empty before it has one and once it is final
    std::vector<Byte> buffer_;
    std::int64_t writtenBytes_ = 0;
};

}  // namespace tvsort::tools
