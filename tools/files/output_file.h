// The file or standard output that a command writes.
//
// A file comes into being without a name in the folder of the final one and gets the final name by
// `finish`, when it is whole: nobody ever sees a half-written output, an earlier file of that name
// stays until then, and of a command that was killed nothing is left. To take the place of an
// earlier file it gets, for a moment (which a kill may hit), a hidden name that nobody can foresee;
// where the file system has no nameless files, it has that name from the beginning. It gets the
// earlier file's rights to read, write and execute (`setRights`), and never those that change whose
// rights a program has. Devices and pipes are written directly. `OutputPlace` says which symbolic
// links are followed.

#pragma once

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "host/file_descriptor.h"
#include "protocol/bytes.h"
#include "tools/files/compression.h"

namespace tvsort::tools {

// Whoever reads standard output wants no more, as `head` does: no failure, and nothing to say.
class ReaderGone : public std::exception {
  public:
    const char* what() const noexcept override { return "the reader has gone"; }
};

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

  private:
    // In the folder, with rights for its owner only.
    void createNameless();
    // Both draw names until one is free; -1 with the reason in `errno` where none is.
    int createHidden();
    int giveHiddenName();
    template <typename Attempt>
    int underHiddenName(const Attempt& attempt);
    void removeHidden();
    // Packed, where the output's name asks for it.
    void writeThrough(const Byte* bytes, std::size_t byteCount);
    void writeRaw(const Byte* bytes, std::size_t byteCount);

    host::FileDescriptor file_;
    std::string displayName_;
    bool isStandard_ = false;
    host::FileDescriptor folder_;
    std::string finalName_;   // in the folder; empty where there is nothing to rename
    std::string hiddenName_;  // empty before it has one and once it is final
    std::vector<Byte> buffer_;
    std::unique_ptr<Packer> packer_;
};

}  // namespace tvsort::tools
