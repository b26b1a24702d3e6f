#include "host/values/value_format.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "host/host_error.h"
#include "host/request_builder.h"
#include "host/values/decimal_text.h"
#include "protocol/data_type.h"

namespace tvsort::host {

namespace {

using enum ValueKind;
using enum FieldForm;

constexpr std::uint16_t kOwnLength = 0;
constexpr std::uint8_t kR = static_cast<std::uint8_t>(ValuePlace::kRecord);
constexpr std::uint8_t kL = static_cast<std::uint8_t>(ValuePlace::kLine);
constexpr std::uint8_t kC = static_cast<std::uint8_t>(ValuePlace::kColumn);
constexpr std::uint8_t kAll = kR | kL | kC;

// In the order of messages and help.
constexpr std::array kFormats = {
    ValueFormat{"text", kString, DataType::kString, kPrefixed, kOwnLength, kR | kC, "string",
                "as string"},
    ValueFormat{"int16", kInt16, DataType::kInteger, kFixed, 2, kAll, "integer",
                "signed integer of 2 bytes"},
    ValueFormat{"int32", kInt32, DataType::kInteger, kFixed, 4, kAll, "integer",
                "signed integer of 4 bytes"},
    ValueFormat{"int64", kInt64, DataType::kInteger, kFixed, 8, kAll, "integer",
                "signed integer of 8 bytes"},
    ValueFormat{"int", kInt64, DataType::kInteger, kFixed, 8, kAll, "integer", "as int64"},
    ValueFormat{"float", kSingle, DataType::kFloat, kFixed, 4, kAll, "floating point",
                "IEEE single; ascending, values within a tiny tolerance are equal"},
    ValueFormat{"double", kDouble, DataType::kFloat, kFixed, 8, kAll, "floating point",
                "IEEE double, likewise"},
    ValueFormat{"float-tolerant", kSingle, DataType::kFloat, kFixed, 4, kL | kC, "floating point",
                "as float of R"},
    ValueFormat{"double-tolerant", kDouble, DataType::kFloat, kFixed, 8, kL | kC, "floating point",
                "as double of R"},
    ValueFormat{"decimal", kDecimal, DataType::kDecimal, kFixed, sizeof(DecimalBytes), kAll,
                "decimal",
                "exact, of 30 digits; in L and C decimal:SCALE, digits behind the point"},
    ValueFormat{"byte", kByte, DataType::kSingleByte, kFixed, 1, kAll, "byte",
                "number from 0 to 255"},
    ValueFormat{"string", kString, DataType::kString, kPrefixed, kOwnLength, kAll, "string",
                "bytes; the shorter of two that begin alike stands first"},
    ValueFormat{"bytes", kString, DataType::kBytes, kPadded, kOwnLength, kR | kC, "bytes",
                "bytes in a field filled up with zeros, which do not count"},
    ValueFormat{"weighted-string", kString, DataType::kWeightedString, kPrefixed, kOwnLength,
                kR | kC, "weighted string", "as string, by the table of --weights"},
    ValueFormat{"weighted-text", kString, DataType::kWeightedString, kPrefixed, kOwnLength, kR | kC,
                "weighted string", "as weighted-string"},
    ValueFormat{"weighted-bytes", kString, DataType::kWeightedBytes, kPadded, kOwnLength, kR | kC,
                "weighted bytes", "as bytes, by the table of --weights"},
    ValueFormat{"ucs2-string", kUnits, DataType::kUnitString, kPrefixed, kOwnLength, kAll,
                "UCS-2 string", "text of the basic plane, by code unit or by --collation"},
    ValueFormat{"padded-ucs2", kUnits, DataType::kUnits, kPadded, kOwnLength, kR | kC, "UCS-2",
                "the same in a field filled up with blanks, which do not count"},
    ValueFormat{"ucs2", kUnits, DataType::kUnitString, kPrefixed, kOwnLength, kL | kC,
                "UCS-2 string", "as ucs2-string"},
    ValueFormat{"ucs2", kUnits, DataType::kUnits, kPadded, kOwnLength, kR, "UCS-2",
                "as padded-ucs2"},
    ValueFormat{"field512", kString, DataType::kFixedField, kField512, kOwnLength, kR | kC,
                "field of 512 bytes", "512 bytes behind 10 that do not count"},
    ValueFormat{"wkt", kGeometry, DataType::kString, kPrefixed, kOwnLength, kL | kC, "geometry",
                "geometry in well-known text, ordered by its bounding box"},
    ValueFormat{"wkt-envelope", kEnvelope, DataType::kString, kPrefixed, sizeof(Envelope), kL | kC,
                "geometry", "the same, of which the record keeps the bounding box only"},
};

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

const char* wordsFor(ValuePlace place) {
    if (place == ValuePlace::kRecord) return "of fields";
    return place == ValuePlace::kLine ? "of text values" : "of columns";
}

}  // namespace

std::size_t ValueFormat::fieldBytes(std::size_t contentBytes) const {
    const std::size_t content = valueBytes == kOwnLength ? contentBytes : valueBytes;
    if (form == kField512) return kFixedFieldSkippedBytes + kFixedFieldComparedBytes;
    return form == kPrefixed ? kLengthPrefixBytes + content : content;
}

KeyDescriptor ValueFormat::key(std::uint16_t fieldOffset, std::uint16_t contentBytes) const {
    const std::size_t prefix = form == kPrefixed ? kLengthPrefixBytes : 0;
    const std::size_t length = fieldBytes(contentBytes) - prefix;
    KeyDescriptor descriptor =
        ascendingKey(dataType, fieldOffset, static_cast<std::uint16_t>(length));
    if (isGeometry()) descriptor.geometryType = kGeometryTypeOfValue;
    if (kind == kEnvelope) descriptor.kindFlags |= kEnvelopeBit;
    return descriptor;
}

std::span<const ValueFormat> valueFormats() {
    return kFormats;
}

const ValueFormat* findValueFormat(std::string_view name, ValuePlace place) {
    const auto* const found = std::find_if(
        kFormats.begin(), kFormats.end(),
        [&](const ValueFormat& format) { return format.name == name && format.isKnownIn(place); });
    return found == kFormats.end() ? nullptr : found;
}

ValueFormat valueFormat(const std::string& text, ValuePlace place) {
    const std::size_t colon = text.find(':');
    const ValueFormat* const known = findValueFormat(text.substr(0, colon), place);
    if (known == nullptr) {
        throw badUse("there is no type \"" + text + "\" " + wordsFor(place) + "; the types are " +
                     valueFormatNames(place));
    }
    ValueFormat format = *known;
    if (format.takesScale(place)) {
        format.scale = parseScale(text, colon < text.size() ? text.substr(colon + 1) : "");
    } else if (colon < text.size()) {
        throw badUse("the type \"" + text + "\" has a scale, and only decimal takes one");
    }
    return format;
}

const ValueFormat* valueFormatOf(const KeyDescriptor& key) {
    const bool isGeometry = key.geometryType != kGeometryTypeNone;
    const auto* const found =
        std::find_if(kFormats.begin(), kFormats.end(), [&](const ValueFormat& format) {
            return static_cast<std::uint8_t>(format.dataType) == key.dataType &&
                   format.isGeometry() == isGeometry &&
                   (format.form != kFixed || format.valueBytes == key.fieldLength);
        });
    return found == kFormats.end() ? nullptr : found;
}

std::string valueFormatNames(ValuePlace place) {
    std::string names;
    for (const ValueFormat& format : kFormats) {
        if (!format.isKnownIn(place)) continue;
        if (!names.empty()) names += ", ";
        names += format.name;
        if (format.takesScale(place)) names += ":SCALE";
    }
    return names;
}

}  // namespace tvsort::host
