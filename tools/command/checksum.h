// A checksum of a set of records that does not depend on their order: the sum, modulo 2^128, of the
// XXH3 128-bit hashes of all records. Input and output of a sort share it.

#pragma once

#include <cstdint>
#include <string>

#include "protocol/bytes.h"

namespace tvsort::tools {

class RecordChecksum {
  public:
    void add(const Byte* record, std::size_t byteCount);
    // 32 hexadecimal digits.
    std::string text() const;

  private:
    std::uint64_t high_ = 0;
    std::uint64_t low_ = 0;
};

}  // namespace tvsort::tools
