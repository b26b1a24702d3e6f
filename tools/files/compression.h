// Compressed inputs and outputs: gzip (zlib) and zstd.
//
// An input is known by its first bytes, or by its name; it is unpacked into a temporary file,
// because rows are read where they lie. An output is known by its name: what ends in .gz or .zst is
// packed.

#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "protocol/bytes.h"
#include "tools/files/input_file.h"
#include "tools/files/spool_file.h"

namespace tvsort::tools {

enum class Compression : std::uint8_t { kNone, kGzip, kZstd };

Compression compressionNamed(std::string_view fileName);
// Of a file with these first bytes, four or more.
Compression compressionMarked(std::string_view bytes);

// The input, or where it is packed a temporary file with all that it holds; several packed parts
// may stand one behind the other. What is damaged or cut short is bad use that names the input.
InputFile unpacked(Compression compression, InputFile input,
                   const std::filesystem::path& tempDirectory, Progress& progress);

class Packer {
  public:
    using Sink = std::function<void(const Byte* bytes, std::size_t byteCount)>;
    virtual ~Packer() = default;
    virtual void write(const Byte* bytes, std::size_t byteCount, const Sink& sink) = 0;
    // Nothing can be written after that.
    virtual void finish(const Sink& sink) = 0;
};

// Null for none.
std::unique_ptr<Packer> makePacker(Compression compression);

}  // namespace tvsort::tools
