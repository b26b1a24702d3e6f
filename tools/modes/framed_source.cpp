#include "tools/modes/framed_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

// User records are read in pieces of about this size.
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

// What both sources do: read a piece of user records and frame them one by one.
class Framer {
  public:
    Framer(OperandInput& input, const FramedRecord& frame)
        : input_(input),
          frame_(frame),
          recordsMax_(std::max<std::size_t>(kPieceBytes / frame.userLength(), 1)),
          piece_(recordsMax_ * frame.userLength()) {}

    // `numberOf` is asked for each record in turn.
    template <typename NumberOf>
    std::size_t read(Byte* target, std::size_t recordsMax, Byte flag, const NumberOf& numberOf) {
        const std::size_t count = input_.read(piece_.data(), std::min(recordsMax, recordsMax_));
        for (std::size_t i = 0; i < count; ++i) {
            const Byte* const record = piece_.data() + i * frame_.userLength();
            frame_.frame(record, numberOf(record), flag, target + i * frame_.recordLength());
        }
        return count;
    }

  private:
    OperandInput& input_;
    const FramedRecord& frame_;
    std::size_t recordsMax_;
    std::vector<Byte> piece_;
};

// Follows the levels of all operands.
class LevelFollower {
  public:
    LevelFollower(OperandInput& input, LevelReader readLevel)
        : input_(input), readLevel_(std::move(readLevel)) {}

    std::int32_t next(const Byte* record) {
        if (input_.operandIndex() != operandIndex_) check_.restart();
        operandIndex_ = input_.operandIndex();
        recordNumber_ += 1;
        const LevelReading reading = readLevel_(record);
        const std::string problem =
            reading.problem.empty() ? check_.problemWith(reading.level) : reading.problem;
        if (problem.empty()) return reading.level;
        throw host::badUse(fmt::format("{} {}", input_.placeOf(recordNumber_), problem));
    }

  private:
    OperandInput& input_;
    LevelReader readLevel_;
    LevelCheck check_;
    std::size_t operandIndex_ = 0;
    std::int64_t recordNumber_ = 0;
};

}  // namespace

host::RecordSource numberedSource(OperandInput& input, const FramedRecord& frame, Byte flag,
                                  std::int64_t& nextNumber) {
    return [framer = Framer(input, frame), flag, &nextNumber](Byte* target,
                                                              std::size_t recordsMax) mutable {
        return framer.read(target, recordsMax, flag, [&](const Byte*) {
            // One that does not fit belongs to a record too many, at which loading stops.
            return static_cast<std::int32_t>(nextNumber++);
        });
    };
}

host::RecordSource levelledSource(OperandInput& input, const FramedRecord& frame,
                                  const LevelReader& readLevel) {
    return [framer = Framer(input, frame), follower = LevelFollower(input, readLevel)](
               Byte* target, std::size_t recordsMax) mutable {
        return framer.read(target, recordsMax, 0,
                           [&](const Byte* record) { return follower.next(record); });
    };
}

host::RecordSource concatenated(host::RecordSource first, host::RecordSource second) {
    return [first = std::move(first), second = std::move(second), firstEnded = false](
               Byte* target, std::size_t recordsMax) mutable {
        if (!firstEnded) {
            const std::size_t records = first(target, recordsMax);
            if (records > 0) return records;
            firstEnded = true;
        }
        return second(target, recordsMax);
    };
}

}  // namespace tvsort::tools
