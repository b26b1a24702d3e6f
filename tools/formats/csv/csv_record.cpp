#include "tools/formats/csv/csv_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "tools/formats/stored_length.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kRecordBytesMax = 65535;
constexpr std::size_t kCarriedPrefix = sizeof(std::uint16_t);
constexpr std::size_t kPlaceBytes = sizeof(std::uint64_t) + sizeof(std::uint32_t);

// Says in which column `use` finds no value.
template <typename Use>
void inColumn(const std::string& name, Use use) {
    try {
        use();
    } catch (const host::HostError& error) {
        throw host::badUse(fmt::format("column {}: {}", name, error.what()));
    }
}

const KeyColumn& widest(const std::vector<KeyColumn>& keys) {
    return *std::max_element(keys.begin(), keys.end(),
                             [](const KeyColumn& left, const KeyColumn& right) {
                                 return left.field.fieldBytes() < right.field.fieldBytes();
                             });
}

}  // namespace

CsvRecord::CsvRecord(std::vector<KeyColumn> keys, std::optional<LevelColumn> level,
                     std::size_t carriedBytesMax)
    : keys_(std::move(keys)), level_(std::move(level)), carriedBytesMax_(carriedBytesMax) {
    std::size_t end = 0;
    for (const KeyColumn& key : keys_)
        end += key.field.fieldBytes();
    const std::size_t nullsOffset = end;
    const std::size_t levelOffset = nullsOffset + keys_.size();
    const std::size_t rowOffset = levelOffset + (level_.has_value() ? sizeof(std::int32_t) : 0);
    const std::size_t recordLength =
        rowOffset + (carriesRows() ? kCarriedPrefix + carriedBytesMax_ : kPlaceBytes);
    if (recordLength > kRecordBytesMax) {
        throw host::badUse(fmt::format(
            "the keys make records of {} bytes, and a record can have {}; column {} needs most, "
            "{} bytes: give its key a LENGTH, or order by less",
            recordLength, kRecordBytesMax, widest(keys_).name, widest(keys_).field.fieldBytes()));
    }
    nullsOffset_ = static_cast<std::uint16_t>(nullsOffset);
    levelOffset_ = static_cast<std::uint16_t>(levelOffset);
    rowOffset_ = static_cast<std::uint16_t>(rowOffset);
    recordLength_ = static_cast<std::uint16_t>(recordLength);
}

host::RequestBuilder CsvRecord::request(std::uint16_t weightTableId) const {
    host::RequestBuilder request;
    std::size_t offset = 0;
    for (const KeyColumn& column : keys_) {
        KeyDescriptor key = column.field.key(static_cast<std::uint16_t>(offset));
        key.kindFlags =
            static_cast<std::uint8_t>((key.kindFlags & ~kKeyKindMask) | column.kindFlags);
        key.weightTableId = weightTableId;
        request.addKey(key);
        offset += column.field.fieldBytes();
    }
    request.setNullIndicators(nullsOffset_);
    return request;
}

std::vector<RecordField> CsvRecord::fields() const {
    std::vector<RecordField> fields;
    std::size_t offset = 0;
    for (const KeyColumn& key : keys_) {
        fields.push_back({offset, key.field.fieldBytes(), "column " + key.name});
        offset += key.field.fieldBytes();
    }
    fields.push_back({nullsOffset_, keys_.size(), "null indicators"});
    if (level_.has_value()) fields.push_back({levelOffset_, sizeof(std::int32_t), "level"});
    fields.push_back({rowOffset_, static_cast<std::size_t>(recordLength_ - rowOffset_),
                      carriesRows() ? "row" : "row's place and length"});
    return fields;
}

void CsvRecord::encode(const std::vector<CsvField>& fields, std::string_view row,
                       std::uint64_t place, Byte* target) {
    // What is not filled is cleared: equal rows make equal records.
    std::fill_n(target, recordLength_, Byte{0});
    Byte* field = target;
    Byte* isNull = target + nullsOffset_;
    for (KeyColumn& key : keys_) {
        const CsvField& value = fields[key.columnIndex];
        if (value.isNull) {
            *isNull = 1;
        } else {
            inColumn(key.name, [&] { key.field.encode(value.text, field); });
        }
        field += key.field.fieldBytes();
        isNull += 1;
    }
    if (level_.has_value()) {
        inColumn(level_->name, [&] { encodeLevel(fields, target + levelOffset_); });
    }
    Byte* const rowField = target + rowOffset_;
    if (carriesRows()) {
        if (row.size() > carriedBytesMax_) throw host::badUse("the row has grown; sort again");
        storeAs(rowField, static_cast<std::uint16_t>(row.size()));
        std::copy(row.begin(), row.end(), rowField + kCarriedPrefix);
    } else {
        storeAs(rowField, place);
        storeAs(rowField + sizeof place, static_cast<std::uint32_t>(row.size()));
    }
}

void CsvRecord::encodeLevel(const std::vector<CsvField>& fields, Byte* target) {
    const CsvField& value = fields[level_->columnIndex];
    if (value.isNull) throw host::badUse("it is empty, and a hierarchy needs a level in each row");
    level_->field.encode(value.text, target);
}

std::string_view CsvRecord::rowOf(const Byte* record) const {
    const Byte* const carried = record + rowOffset_;
    return {reinterpret_cast<const char*>(carried + kCarriedPrefix),
            storedLength(carried, carriedBytesMax_)};
}

RowPlace CsvRecord::rowPlaceOf(const Byte* record) const {
    const Byte* const place = record + rowOffset_;
    return {loadAs<std::uint64_t>(place), loadAs<std::uint32_t>(place + sizeof(std::uint64_t))};
}

}  // namespace tvsort::tools
