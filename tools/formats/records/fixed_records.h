// Fixed-length records out of an input.

#pragma once

#include <cstdint>

#include "protocol/bytes.h"
#include "tools/files/input_file.h"

namespace tvsort::tools {

class RecordInput {
  public:
    // Throws when the size of a regular file shows that its last record is short. Needs the input
    // as long as it reads.
    RecordInput(InputFile& input, std::uint16_t recordLength);

    // Puts up to `recordsMax` records to `target`; answers how many, 0 at the end. Throws when the
    // input ends inside a record.
    std::size_t read(Byte* target, std::size_t recordsMax);

  private:
    void checkWhole(std::int64_t inputBytes) const;

    InputFile& input_;
    std::uint16_t recordLength_;
    std::int64_t readBytes_ = 0;
};

}  // namespace tvsort::tools
