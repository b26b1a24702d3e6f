#include "host/values/value_text.h"

#include <array>
#include <charconv>

#include "host/request_builder.h"
#include "host/values/decimal_text.h"
#include "host/values/geometry_text.h"
#include "host/values/ucs2_text.h"
#include "host/values/value_error.h"
#include "protocol/data_type.h"

namespace tvsort::host {

namespace {

constexpr std::uint16_t kOwnLength = 0;

constexpr std::array kFormats = {
    ValueFormat{ValueKind::kInt16, "int16", DataType::kInteger, 2},
    ValueFormat{ValueKind::kInt32, "int32", DataType::kInteger, 4},
    ValueFormat{ValueKind::kInt64, "int64", DataType::kInteger, 8},
    ValueFormat{ValueKind::kSingle, "float", DataType::kFloat, 4},
    ValueFormat{ValueKind::kDouble, "double", DataType::kFloat, 8},
    ValueFormat{ValueKind::kDecimal, "decimal", DataType::kDecimal, sizeof(DecimalBytes)},
    ValueFormat{ValueKind::kByte, "byte", DataType::kSingleByte, 1},
    ValueFormat{ValueKind::kString, "string", DataType::kString, kOwnLength},
    ValueFormat{ValueKind::kUnits, "ucs2", DataType::kUnitString, kOwnLength},
    ValueFormat{ValueKind::kGeometry, "wkt", DataType::kString, kOwnLength},
    ValueFormat{ValueKind::kEnvelope, "wkt-envelope", DataType::kString, sizeof(Envelope)},
};

template <typename Number>
void appendNumber(std::string_view text, const std::string& wanted, std::vector<Byte>& target) {
    std::string_view digits = text;
    if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
    Number number = {};
    const char* const end = digits.data() + digits.size();
    const auto [stop, status] = std::from_chars(digits.data(), end, number);
    if (status == std::errc::result_out_of_range)
        throw badValue(text, wanted, "it is out of range");
    if (status != std::errc() || stop != end) {
        throw badValue(text, wanted, "write it as a number and nothing else");
    }
    const auto* const first = reinterpret_cast<const Byte*>(&number);
    target.insert(target.end(), first, first + sizeof number);
}

int parseScale(const std::string& text, const std::string& scaleText) {
    int scale = -1;
    const char* const end = scaleText.data() + scaleText.size();
    const auto [stop, status] = std::from_chars(scaleText.data(), end, scale);
    if (status != std::errc() || stop != end || scale < 0 || scale > kDecimalTextDigitsMax) {
        throw badUse("the type \"" + text +
                     "\" needs a scale, the digits behind the point, from 0 "
                     "to 30, such as decimal:2");
    }
    return scale;
}

}  // namespace

bool ValueFormat::isPrefixed() const {
    return valueBytes == kOwnLength || kind == ValueKind::kEnvelope;
}

bool ValueFormat::takesEmptyText() const {
    return kind == ValueKind::kString || kind == ValueKind::kUnits;
}

KeyDescriptor ValueFormat::key(std::uint16_t fieldOffset, std::uint16_t valueBytesMax) const {
    KeyDescriptor descriptor =
        ascendingKey(dataType, fieldOffset, valueBytes == kOwnLength ? valueBytesMax : valueBytes);
    if (kind == ValueKind::kGeometry || kind == ValueKind::kEnvelope) {
        descriptor.geometryType = kGeometryTypeOfValue;
    }
    if (kind == ValueKind::kEnvelope) descriptor.kindFlags |= kEnvelopeBit;
    return descriptor;
}

ValueFormat valueFormat(const std::string& text) {
    const std::size_t colon = text.find(':');
    for (const ValueFormat& known : kFormats) {
        if (known.name != text.substr(0, colon)) continue;
        ValueFormat format = known;
        if (format.kind == ValueKind::kDecimal) {
            format.scale = parseScale(text, colon < text.size() ? text.substr(colon + 1) : "");
        } else if (colon < text.size()) {
            throw badUse("the type \"" + text + "\" has a scale, and only decimal takes one");
        }
        return format;
    }
    throw badUse("there is no type \"" + text + "\" of text values; the types are " +
                 valueFormatNames());
}

std::string valueFormatNames() {
    std::string names;
    for (const ValueFormat& format : kFormats) {
        if (!names.empty()) names += ", ";
        names += format.name;
        if (format.kind == ValueKind::kDecimal) names += ":SCALE";
    }
    return names;
}

ValueEncoder::ValueEncoder(const ValueFormat& format) : format_(format) {
    if (format.kind == ValueKind::kGeometry || format.kind == ValueKind::kEnvelope) {
        geometryText_ = std::make_unique<GeometryText>();
    }
}

ValueEncoder::~ValueEncoder() = default;

const std::vector<Byte>& ValueEncoder::encode(std::string_view text) {
    bytes_.clear();
    append(text);
    if (format_.isPrefixed() && bytes_.size() > kPrefixedValueBytesMax) {
        throw badValue(text, "key value",
                       "it takes " + std::to_string(bytes_.size()) +
                           " bytes, and a value can have " +
                           std::to_string(kPrefixedValueBytesMax));
    }
    return bytes_;
}

void ValueEncoder::append(std::string_view text) {
    switch (format_.kind) {
        case ValueKind::kInt16:
            return appendNumber<std::int16_t>(text, "integer of 16 bits", bytes_);
        case ValueKind::kInt32:
            return appendNumber<std::int32_t>(text, "integer of 32 bits", bytes_);
        case ValueKind::kInt64:
            return appendNumber<std::int64_t>(text, "integer of 64 bits", bytes_);
        case ValueKind::kByte:
            return appendNumber<std::uint8_t>(text, "number from 0 to 255", bytes_);
        case ValueKind::kSingle:
            return appendNumber<float>(text, "floating-point number", bytes_);
        case ValueKind::kDouble:
            return appendNumber<double>(text, "floating-point number", bytes_);
        case ValueKind::kDecimal: {
            const DecimalBytes decimal = decimalFromText(text, format_.scale);
            bytes_.assign(decimal.begin(), decimal.end());
            return;
        }
        case ValueKind::kString:
            bytes_.assign(text.begin(), text.end());
            return;
        case ValueKind::kUnits:
            return appendUcs2(text, bytes_);
        case ValueKind::kGeometry:
            return geometryText_->appendBinary(text, bytes_);
        case ValueKind::kEnvelope:
            return geometryText_->appendEnvelope(text, bytes_);
    }
}

}  // namespace tvsort::host
