#include "tools/modes/framed_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

// Where the header's own fields end.
constexpr std::uint16_t kNumberedFieldsEnd = 5;
constexpr std::uint16_t kLevelledFieldsEnd = 12;
constexpr std::uint16_t kNumberOffset = 0;
constexpr std::uint16_t kBehindLevelOffset = 4;
constexpr std::uint16_t kNumberBytes = 4;

KeyDescriptor numberKey() {
    return host::ascendingKey(DataType::kInteger, kNumberOffset, kNumberBytes);
}

// The request's keys before and behind the user's.
struct OwnKeys {
    std::vector<KeyDescriptor> before;
    std::vector<KeyDescriptor> behind;
};

OwnKeys ownKeysOf(FrameKind kind) {
    if (kind == FrameKind::kNumbered) return {{}, {numberKey()}};
    return {{host::ascendingKey(DataType::kNone, 0, 0),
             host::ascendingKey(DataType::kBytes, kBehindLevelOffset, 0)},
            {numberKey()}};
}

}  // namespace

FramedRecord::FramedRecord(FrameKind kind, const host::RequestBuilder& recordRequest,
                           std::uint16_t recordLength, const std::string& purpose)
    : kind_(kind),
      nullsOffset_(recordRequest.nullIndicatorsOffset()),
      nullsCount_(static_cast<std::uint16_t>(recordRequest.keys().size())),
      copiedNullsOffset_(0),
      userLength_(recordLength) {
    const OwnKeys own = ownKeysOf(kind);
    const std::uint16_t fieldsEnd =
        kind == FrameKind::kNumbered ? kNumberedFieldsEnd : kLevelledFieldsEnd;
    const std::size_t indicators =
        nullsOffset_.has_value() ? own.before.size() + nullsCount_ + own.behind.size() : 0;
    headerBytes_ = static_cast<std::uint16_t>(fieldsEnd + indicators);
    copiedNullsOffset_ = static_cast<std::uint16_t>(fieldsEnd + own.before.size());
    if (headerBytes_ + std::size_t{recordLength} > kFramedBytesMax) {
        throw host::badUse(fmt::format(
            "{} adds {} bytes to each record, which makes {} where a record can have {}; shorten "
            "the records, or the longest line",
            purpose, headerBytes_, headerBytes_ + recordLength, kFramedBytesMax));
    }
    recordLength_ = static_cast<std::uint16_t>(headerBytes_ + recordLength);

    for (const KeyDescriptor& key : own.before)
        request_.addKey(key);
    for (KeyDescriptor key : recordRequest.keys()) {
        key.fieldOffset = static_cast<std::uint16_t>(key.fieldOffset + headerBytes_);
        key.groupKey = kStartsGroup;
        key.orderNumber = 0;  // the place among those added
        request_.addKey(key);
    }
    for (const KeyDescriptor& key : own.behind)
        request_.addKey(key);
    if (nullsOffset_.has_value()) request_.setNullIndicators(fieldsEnd);
    for (const ByteWeightTable& table : recordRequest.weightTables())
        request_.addWeightTable(table);
}

void FramedRecord::frame(const Byte* record, std::int32_t number, Byte flag, Byte* target) const {
    std::fill_n(target, headerBytes_, Byte{0});
    storeAs(target + kNumberOffset, number);
    if (kind_ == FrameKind::kNumbered) target[kRecordFlagOffset] = flag;
    if (nullsOffset_.has_value()) {
        std::copy_n(record + *nullsOffset_, nullsCount_, target + copiedNullsOffset_);
    }
    std::copy_n(record, userLength_, target + headerBytes_);
}

std::vector<RecordField> FramedRecord::fields(const std::vector<RecordField>& userFields) const {
    const bool isNumbered = kind_ == FrameKind::kNumbered;
    std::vector<RecordField> fields = {
        {kNumberOffset, kNumberBytes, isNumbered ? "number of the record" : "level"}};
    if (isNumbered) {
        fields.push_back({kRecordFlagOffset, 1, "flag: operand, end of group"});
    } else {
        fields.push_back({kBehindLevelOffset, 2 * kNumberBytes, "subtree size, place in result"});
    }
    const std::size_t fieldsEnd = isNumbered ? kNumberedFieldsEnd : kLevelledFieldsEnd;
    if (nullsOffset_.has_value()) {
        fields.push_back({fieldsEnd, headerBytes_ - fieldsEnd, "null indicators"});
    }
    for (const RecordField& field : userFields)
        fields.push_back({headerBytes_ + field.offset, field.byteCount, field.content});
    return fields;
}

bool FramedRecord::hasNull(const Byte* framed) const {
    if (!nullsOffset_.has_value()) return false;
    const Byte* const nulls = framed + copiedNullsOffset_;
    return std::any_of(nulls, nulls + nullsCount_, [](Byte indicator) { return indicator != 0; });
}

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

}  // namespace tvsort::tools
