// The server's side of a work file: created before the process opens it, filled with the blocks
// that the frames do not hold, read for the rest of the result, and removed in the end.
//
// Block b (from 1) lies at byte (b - 1) x blockPages x 4096. The blocks that fit into the frames
// are a hole in the file until the process writes them.

#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

#include "host/file_descriptor.h"
#include "protocol/bytes.h"

namespace tvsort::host {

class WorkFile {
  public:
    // Creates "<directory>/1.5<slotNumber>", which must not exist yet.
    WorkFile(const std::filesystem::path& directory, int slotNumber);
    ~WorkFile();
    WorkFile(const WorkFile&) = delete;
    WorkFile& operator=(const WorkFile&) = delete;

    const std::filesystem::path& path() const { return path_; }

    // `block` is one whole block, and its size the size of all blocks.
    void writeBlock(std::int32_t blockNumber, std::span<const Byte> block);
    // A file that ends before the block does is kProtocolBroken.
    void readBlock(std::int32_t blockNumber, std::span<Byte> block) const;

    // Bytes written here since the file was emptied, the process's own not counted.
    std::int64_t writtenBytes() const { return writtenBytes_; }
    // Gives the space of an earlier data set back.
    void makeEmpty();

  private:
    std::filesystem::path path_;
    FileDescriptor file_;
    std::int64_t writtenBytes_ = 0;
};

}  // namespace tvsort::host
