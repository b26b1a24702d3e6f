// The types of values by the words that a person writes: one vocabulary for the fields of
// fixed-length records, for text lines and for the columns of CSV files.
//
// One table holds them all; a new type is a row of it (and a comparison in host/record_order.cpp,
// if its order is to be verified). A word means the same wherever it is known, but one: `ucs2` is a
// padded field in a record, where there is no length before it, and prefixed everywhere else.
//
// A field has one of four forms:
//
//     kFixed      a value of the type's own size
//     kPrefixed   u16 length in bytes, then what the length says
//     kPadded     the whole field, filled up behind the value
//     kField512   10 bytes that do not count, and 512 that do

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "protocol/data_type.h"
#include "protocol/messages.h"

namespace tvsort::host {

// How a value is read from text (host/values/value_text.h).
enum class ValueKind : std::uint8_t {
    kInt16,
    kInt32,
    kInt64,
    kSingle,
    kDouble,
    kDecimal,
    kByte,
    kString,
    kUnits,
    kGeometry,
    kEnvelope,
};

enum class FieldForm : std::uint8_t { kFixed, kPrefixed, kPadded, kField512 };

// Where a word for a type may stand; a bit each.
enum class ValuePlace : std::uint8_t { kRecord = 1, kLine = 2, kColumn = 4 };

// The length of a prefixed value is a signed 16-bit number.
inline constexpr std::size_t kPrefixedValueBytesMax = 32767;

struct ValueFormat {
    std::string_view name;
    ValueKind kind;
    DataType dataType;
    FieldForm form;
    // Bytes of a value without its length prefix; 0 where values or fields have their own.
    std::uint16_t valueBytes;
    std::uint8_t places;  // bits of ValuePlace
    std::string_view family;
    std::string_view explanation;
    int scale = 0;

    bool isKnownIn(ValuePlace place) const {
        return (places & static_cast<std::uint8_t>(place)) != 0;
    }
    bool isGeometry() const { return kind == ValueKind::kGeometry || kind == ValueKind::kEnvelope; }
    // Whether a LENGTH says how much room a field has: the type does not.
    bool takesLength() const { return valueBytes == 0 && form != FieldForm::kField512; }
    // Whether a SCALE belongs to the type's name, as in text it does.
    bool takesScale(ValuePlace place) const {
        return kind == ValueKind::kDecimal && place != ValuePlace::kRecord;
    }
    // Whether the empty text is a value of this format.
    bool takesEmptyText() const { return kind == ValueKind::kString || kind == ValueKind::kUnits; }
    // Bytes of the record that a field with room for `contentBytes` takes; the type's own length,
    // if it has one, comes first.
    std::size_t fieldBytes(std::size_t contentBytes) const;
    // The ascending key, at `fieldOffset`, of values that have up to `contentBytes`.
    KeyDescriptor key(std::uint16_t fieldOffset, std::uint16_t contentBytes) const;
};

// The table.
std::span<const ValueFormat> valueFormats();
// Null when the word is none of that place.
const ValueFormat* findValueFormat(std::string_view name, ValuePlace place);
// The format that the text NAME, or decimal:SCALE, names. What names none is bad use; the error
// lists those there are. A record's decimal has no scale.
ValueFormat valueFormat(const std::string& text, ValuePlace place = ValuePlace::kLine);
// One whose values are compared as the key's are; null where the key compares nothing.
const ValueFormat* valueFormatOf(const KeyDescriptor& key);

// "int16, int32, ...", for messages.
std::string valueFormatNames(ValuePlace place);

}  // namespace tvsort::host
