#include "tools/formats/records/fixed_records.h"

#include <fmt/format.h>

#include <charconv>
#include <memory>
#include <string>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

LevelReader levelFieldReader(const std::string& level, std::uint16_t recordLength) {
    std::uint16_t levelOffset = 0;
    const char* const end = level.data() + level.size();
    const auto parsed = std::from_chars(level.data(), end, levelOffset);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        throw host::badUse(fmt::format("--level {}: write an offset from 0 to 65535", level));
    }
    constexpr std::size_t kLevelBytes = sizeof(std::int32_t);
    if (levelOffset + kLevelBytes > recordLength) {
        throw host::badUse(
            fmt::format("--level {} reaches byte {} of a record of {} bytes; check "
                        "the offset and --record-length",
                        levelOffset, levelOffset + kLevelBytes, recordLength));
    }
    return [levelOffset](const Byte* record) -> LevelReading {
        return {loadI32(record + levelOffset), ""};
    };
}

}  // namespace

FixedRecordSource::FixedRecordSource(InputFile& input, std::uint16_t recordLength)
    : Operand(input.displayName(), "record"),
      input_(input),
      fileBytes_(input.fileBytes()),
      recordLength_(recordLength) {
    if (fileBytes_.has_value()) checkWhole(*fileBytes_);
}

std::size_t FixedRecordSource::readRecords(Byte* target, std::size_t recordsMax) {
    const std::size_t read = input_.read(target, recordsMax * recordLength_);
    if (read < recordsMax * recordLength_ && input_.fileBytes() != fileBytes_)
        throw changedWhileRead(input_.displayName());
    if (read % recordLength_ != 0) {
        checkWhole(recordCount() * recordLength_ + static_cast<std::int64_t>(read));
    }
    return read / recordLength_;
}

void FixedRecordSource::checkWhole(std::int64_t inputBytes) const {
    const std::int64_t rest = inputBytes % recordLength_;
    if (rest == 0) return;
    throw host::badUse(fmt::format(
        "{} ends with a short record: record {} has {} of {} bytes; check --record-length, or "
        "whether the file is whole",
        input_.displayName(), inputBytes / recordLength_ + 1, rest, recordLength_));
}

RecordFlow fixedRecords(const RecordOptions& options, const ModeOptions& mode,
                        std::vector<InputFile>& inputs, OutputFile& output) {
    RecordFlow flow;
    const std::uint16_t recordLength = options.recordLength.value();
    flow.recordLength = recordLength;
    flow.request = requestFor(options);
    for (InputFile& input : inputs) {
        flow.operands.push_back(std::make_shared<FixedRecordSource>(input, recordLength));
    }
    flow.output = std::make_shared<PlainOutput>(
        [recordLength, &output](const Byte* first, std::size_t recordCount) {
            output.write(first, recordCount * recordLength);
        },
        output);
    if (mode.hierarchy) flow.readLevel = levelFieldReader(mode.level, recordLength);
    return flow;
}

}  // namespace tvsort::tools
