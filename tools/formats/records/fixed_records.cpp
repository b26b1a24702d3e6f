#include "tools/formats/records/fixed_records.h"

#include <fmt/format.h>

#include "host/host_error.h"

namespace tvsort::tools {

RecordInput::RecordInput(InputFile& input, std::uint16_t recordLength)
    : input_(input), recordLength_(recordLength) {
    if (const auto bytes = input.fileBytes(); bytes.has_value()) checkWhole(*bytes);
}

std::size_t RecordInput::read(Byte* target, std::size_t recordsMax) {
    const std::size_t read = input_.read(target, recordsMax * recordLength_);
    readBytes_ += static_cast<std::int64_t>(read);
    if (read % recordLength_ != 0) checkWhole(readBytes_);
    return read / recordLength_;
}

void RecordInput::checkWhole(std::int64_t inputBytes) const {
    const std::int64_t rest = inputBytes % recordLength_;
    if (rest == 0) return;
    throw host::badUse(fmt::format(
        "{} ends with a short record: record {} has {} of {} bytes; check --record-length, or "
        "whether the file is whole",
        input_.displayName(), inputBytes / recordLength_ + 1, rest, recordLength_));
}

}  // namespace tvsort::tools
