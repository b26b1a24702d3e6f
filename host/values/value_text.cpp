#include "host/values/value_text.h"

#include <algorithm>

#include "host/values/decimal_text.h"
#include "host/values/geometry_text.h"
#include "host/values/number_text.h"
#include "host/values/ucs2_text.h"

namespace tvsort::host {

namespace {

constexpr std::size_t kShownBytesMax = 60;

template <typename Number>
void appendNumber(std::string_view text, const char* wanted, std::vector<Byte>& target) {
    const auto number = parseNumber<Number>(text, wanted);
    const auto* const first = reinterpret_cast<const Byte*>(&number);
    target.insert(target.end(), first, first + sizeof number);
}

}  // namespace

std::string shownText(std::string_view text) {
    std::string shown(text.substr(0, kShownBytesMax));
    // What a terminal would obey instead of showing it.
    std::replace_if(
        shown.begin(), shown.end(),
        [](char character) {
            return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
        },
        '?');
    if (shown.size() < text.size()) shown += "...";
    return shown;
}

HostError badValue(std::string_view text, const std::string& wanted, const std::string& reason) {
    std::string said = "\"";
    said.append(shownText(text)).append("\" is no ").append(wanted).append(": ").append(reason);
    return badUse(said);
}

ValueEncoder::ValueEncoder(const ValueFormat& format) : format_(format) {
    if (format.isGeometry()) geometryText_ = std::make_unique<GeometryText>();
}

ValueEncoder::~ValueEncoder() = default;

const std::vector<Byte>& ValueEncoder::encode(std::string_view text) {
    bytes_.clear();
    append(text);
    if (format_.form == FieldForm::kPrefixed && bytes_.size() > kPrefixedValueBytesMax) {
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
