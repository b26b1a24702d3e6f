// Files of fixed-length records through a sort.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/formats/operand.h"
#include "tools/formats/record_flow.h"
#include "tools/options/mode_options.h"
#include "tools/options/record_options.h"

namespace tvsort::tools {

class FixedRecordSource : public Operand {
  public:
    // Throws when the size of a regular file shows that its last record is short. Needs the input
    // as long as it reads. An input that ends inside a record is thrown when it is read, and so is
    // a file that has got another size since.
    FixedRecordSource(InputFile& input, std::uint16_t recordLength);

  private:
    std::size_t readRecords(Byte* target, std::size_t recordsMax) override;
    void checkWhole(std::int64_t inputBytes) const;

    InputFile& input_;
    std::optional<std::int64_t> fileBytes_;
    std::uint16_t recordLength_;
};

// The records as the options describe them. Inputs and output are needed as long as the flow is
// used.
RecordFlow fixedRecords(const RecordOptions& options, const ModeOptions& mode,
                        std::vector<InputFile>& inputs, OutputFile& output);

}  // namespace tvsort::tools
