#include "tools/modes/framed_record.h"

#include <fmt/format.h>

#include <algorithm>
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

}  // namespace tvsort::tools
