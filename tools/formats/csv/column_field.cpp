#include "tools/formats/csv/column_field.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/host_error.h"
#include "host/values/value_error.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kUnitBytes = 2;
constexpr std::size_t kFieldBytesMax = 65535;
constexpr Byte kBlank = ' ';

constexpr std::array kColumnTypes = {
    ColumnType{"text", "string", FieldForm::kPrefixed, DataType::kString,
               "bytes of text, the shorter of two that begin alike first"},
    ColumnType{"int", "int64", FieldForm::kFixed, DataType::kInteger, "integer of 64 bits"},
    ColumnType{"int16", "int16", FieldForm::kFixed, DataType::kInteger, "integer of 16 bits"},
    ColumnType{"int32", "int32", FieldForm::kFixed, DataType::kInteger, "integer of 32 bits"},
    ColumnType{"int64", "int64", FieldForm::kFixed, DataType::kInteger, "integer of 64 bits"},
    ColumnType{"float", "float", FieldForm::kFixed, DataType::kFloat, "IEEE single"},
    ColumnType{"double", "double", FieldForm::kFixed, DataType::kFloat, "IEEE double"},
    ColumnType{"decimal", "decimal", FieldForm::kFixed, DataType::kDecimal,
               "decimal:SCALE, exact, SCALE digits behind the point"},
    ColumnType{"byte", "byte", FieldForm::kFixed, DataType::kSingleByte, "number from 0 to 255"},
    ColumnType{"bytes", "string", FieldForm::kPadded, DataType::kBytes,
               "bytes of text, zeros at the end not counted"},
    ColumnType{"weighted-text", "string", FieldForm::kPrefixed, DataType::kWeightedString,
               "as text, ordered by the --weights table"},
    ColumnType{"weighted-bytes", "string", FieldForm::kPadded, DataType::kWeightedBytes,
               "as bytes, ordered by the --weights table"},
    ColumnType{"ucs2", "ucs2", FieldForm::kPrefixed, DataType::kUnitString,
               "UTF-8 text as UCS-2, ordered by --collation"},
    ColumnType{"padded-ucs2", "ucs2", FieldForm::kPadded, DataType::kUnits,
               "as ucs2, blanks at the end not counted"},
    ColumnType{"field512", "string", FieldForm::kField512, DataType::kFixedField,
               "up to 512 bytes of text, zeros at the end not counted"},
    ColumnType{"wkt", "wkt", FieldForm::kPrefixed, DataType::kString,
               "geometry, ordered by its bounding box"},
    ColumnType{"wkt-envelope", "wkt-envelope", FieldForm::kPrefixed, DataType::kString,
               "as wkt, of which the record keeps the bounding box only"},
};

host::ValueFormat formatOf(const ColumnType& type, const std::string& scaleText) {
    const std::string name(type.valueFormat);
    return host::valueFormat(scaleText.empty() ? name : name + ":" + scaleText);
}

}  // namespace

const ColumnType* findColumnType(std::string_view name) {
    const auto* const found =
        std::find_if(kColumnTypes.begin(), kColumnTypes.end(),
                     [name](const ColumnType& type) { return type.name == name; });
    return found == kColumnTypes.end() ? nullptr : found;
}

std::string columnTypeNames() {
    std::string names;
    for (const ColumnType& type : kColumnTypes)
        names += fmt::format("{}{}", names.empty() ? "" : ", ", type.name);
    return names;
}

std::string columnTypesHelp() {
    std::string help;
    for (const ColumnType& type : kColumnTypes)
        help += fmt::format("  {:<16} {}\n", type.name, type.explanation);
    return help;
}

ColumnField::ColumnField(const ColumnType& type, const std::string& scaleText)
    : type_(&type), encoder_(std::make_shared<host::ValueEncoder>(formatOf(type, scaleText))) {
    contentBytes_ = encoder_->format().valueBytes;
}

bool ColumnField::hasLength() const {
    return type_->form == FieldForm::kPadded ||
           (type_->form == FieldForm::kPrefixed && encoder_->format().valueBytes == 0);
}

std::size_t ColumnField::bytesOfLength(std::uint16_t length) const {
    const bool inUnits = encoder_->format().kind == host::ValueKind::kUnits;
    return length * (inUnits ? kUnitBytes : 1);
}

std::size_t ColumnField::contentBytesLimit() const {
    return type_->form == FieldForm::kPrefixed ? host::kPrefixedValueBytesMax : kFieldBytesMax;
}

std::size_t ColumnField::fieldBytes() const {
    switch (type_->form) {
        case FieldForm::kFixed:
        case FieldForm::kPadded:
            return contentBytes_;
        case FieldForm::kPrefixed:
            return kLengthPrefixBytes + contentBytes_;
        case FieldForm::kField512:
            break;
    }
    return kFixedFieldSkippedBytes + kFixedFieldComparedBytes;
}

KeyDescriptor ColumnField::key(std::uint16_t fieldOffset) const {
    // The length of a prefixed field counts its prefix: the process then sees that a field holds
    // nothing behind its value, and may order the records without comparing them.
    KeyDescriptor key = encoder_->format().key(fieldOffset, 0);
    key.dataType = static_cast<std::uint8_t>(type_->dataType);
    key.fieldLength = static_cast<std::uint16_t>(fieldBytes());
    return key;
}

std::size_t ColumnField::measure(std::string_view text) {
    return isPlainText() ? text.size() : encoder_->encode(text).size();
}

void ColumnField::encode(std::string_view text, Byte* target) {
    const auto* value = reinterpret_cast<const Byte*>(text.data());
    std::size_t valueBytes = text.size();
    if (!isPlainText()) {
        const std::vector<Byte>& encoded = encoder_->encode(text);
        value = encoded.data();
        valueBytes = encoded.size();
    }
    const bool is512 = type_->form == FieldForm::kField512;
    const std::size_t room = is512 ? kFixedFieldComparedBytes : contentBytes_;
    if (valueBytes > room) {
        throw host::badValue(text, fmt::format("value of up to {} bytes", room),
                             fmt::format("it has {}; shorten it, or give the key a greater LENGTH "
                                         "where there is room",
                                         valueBytes));
    }
    if (is512) target += kFixedFieldSkippedBytes;
    if (type_->form == FieldForm::kPrefixed) {
        storeAs(target, static_cast<std::uint16_t>(valueBytes));
        target += kLengthPrefixBytes;
    }
    std::copy_n(value, valueBytes, target);
    if (type_->dataType != DataType::kUnits) return;
    for (std::size_t i = valueBytes; i < contentBytes_; i += kUnitBytes)
        target[i] = kBlank;
}

}  // namespace tvsort::tools
