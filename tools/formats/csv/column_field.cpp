#include "tools/formats/csv/column_field.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/host_error.h"

namespace tvsort::tools {

using host::FieldForm;

namespace {

constexpr std::size_t kUnitBytes = 2;
constexpr std::size_t kFieldBytesMax = 65535;
constexpr Byte kBlank = ' ';

}  // namespace

ColumnField::ColumnField(const host::ValueFormat& format)
    : encoder_(std::make_shared<host::ValueEncoder>(format)), contentBytes_(format.valueBytes) {}

ColumnField::ColumnField(host::KeyForm form) : ColumnField(host::valueFormat("string")) {
    using host::Placement;
    if (form.isDescending && form.nans != Placement::kDefault)
        form.nans = form.nans == Placement::kFirst ? Placement::kLast : Placement::kFirst;
    form.isDescending = false;
    ordered_ = std::make_shared<host::OrderedKey>(form);
}

const std::vector<Byte>& ColumnField::valueOf(std::string_view text) {
    if (ordered_ == nullptr) return encoder_->encode(text);
    orderedBytes_.clear();
    ordered_->append(text, orderedBytes_);
    return orderedBytes_;
}

std::size_t ColumnField::bytesOfLength(std::uint16_t length) const {
    const bool inUnits = format().kind == host::ValueKind::kUnits;
    return length * (inUnits ? kUnitBytes : 1);
}

std::size_t ColumnField::contentBytesLimit() const {
    return format().form == FieldForm::kPrefixed ? host::kPrefixedValueBytesMax : kFieldBytesMax;
}

KeyDescriptor ColumnField::key(std::uint16_t fieldOffset) const {
    // The length of a prefixed field counts its prefix: the process then sees that a field holds
    // nothing behind its value, and may order the records without comparing them.
    KeyDescriptor key = format().key(fieldOffset, 0);
    key.fieldLength = static_cast<std::uint16_t>(fieldBytes());
    return key;
}

std::size_t ColumnField::measure(std::string_view text) {
    return isPlainText() ? text.size() : valueOf(text).size();
}

void ColumnField::encode(std::string_view text, Byte* target) {
    const auto* value = reinterpret_cast<const Byte*>(text.data());
    std::size_t valueBytes = text.size();
    if (!isPlainText()) {
        const std::vector<Byte>& encoded = valueOf(text);
        value = encoded.data();
        valueBytes = encoded.size();
    }
    const bool is512 = format().form == FieldForm::kField512;
    const std::size_t room = is512 ? kFixedFieldComparedBytes : contentBytes_;
    if (valueBytes > room) {
        throw host::badValue(text, fmt::format("value of up to {} bytes", room),
                             fmt::format("it has {}; shorten it, or give the key a greater LENGTH "
                                         "where there is room",
                                         valueBytes));
    }
    if (is512) target += kFixedFieldSkippedBytes;
    if (format().form == FieldForm::kPrefixed) {
        storeAs(target, static_cast<std::uint16_t>(valueBytes));
        target += kLengthPrefixBytes;
    }
    std::copy_n(value, valueBytes, target);
    if (format().dataType != DataType::kUnits) return;
    for (std::size_t i = valueBytes; i < contentBytes_; i += kUnitBytes)
        target[i] = kBlank;
}

}  // namespace tvsort::tools
