// The key types of CSV columns by the names that a person writes.
//
//     column type          value in the record                  what LENGTH says
//     int, int16, int32    signed, 8, 2 or 4 bytes
//     float, double        IEEE, 4 or 8 bytes
//     decimal:SCALE        16 bytes                             SCALE: digits behind the point
//     byte                 1 byte
//     text                 u16 length, bytes                    the longest value, in bytes
//     bytes                bytes, filled up with zeros          the field, in bytes
//     weighted-text        as text, by the --weights table
//     weighted-bytes       as bytes, by the --weights table
//     ucs2                 u16 length in bytes, code units      the longest value, in units
//     padded-ucs2          code units, filled up with blanks    the field, in units
//     field512             512 bytes, filled up with zeros
//     wkt, wkt-envelope    a geometry in well-known text
//
// LENGTH may be left out: the longest value of the file is then measured. A value that does not fit
// is refused, never cut.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/request_builder.h"
#include "host/values/value_text.h"
#include "protocol/bytes.h"

namespace tvsort::tools {

enum class FieldForm : std::uint8_t {
    kFixed,     // a value of the type's own size
    kPrefixed,  // a u16 length and what the length says
    kPadded,    // filled up to the field's length
    kField512,  // bytes that do not count, and 512 that do
};

struct ColumnType {
    std::string_view name;
    std::string_view valueFormat;  // how the text is read (host/values/value_text.h)
    FieldForm form;
    DataType dataType;
    std::string_view explanation;
};

// Null when there is none of this name.
const ColumnType* findColumnType(std::string_view name);
// "text, int, ...", for messages.
std::string columnTypeNames();
// The table as lines for a help text.
std::string columnTypesHelp();

// A field of a record that holds the values of one key column.
class ColumnField {
  public:
    // `scaleText` is what stands behind the type's name where a scale is needed, else empty.
    ColumnField(const ColumnType& type, const std::string& scaleText);

    const ColumnType& type() const { return *type_; }
    bool hasLength() const;
    // Bytes that LENGTH `length` stands for.
    std::size_t bytesOfLength(std::uint16_t length) const;

    // The most that the field can be given room for.
    std::size_t contentBytesLimit() const;
    // Makes room for values up to `contentBytes`, where the type leaves it open.
    void setContentBytes(std::size_t contentBytes) { contentBytes_ = contentBytes; }
    std::size_t contentBytes() const { return contentBytes_; }
    // Bytes of the record that the field takes.
    std::size_t fieldBytes() const;
    // An ascending key of this field.
    KeyDescriptor key(std::uint16_t fieldOffset) const;

    // Bytes that the text's value has, whatever the field has room for.
    std::size_t measure(std::string_view text);
    // Lays the text's value into the zero-filled field at `target`. Text that is no value of the
    // type, or does not fit, is thrown as bad use.
    void encode(std::string_view text, Byte* target);

  private:
    bool isPlainText() const { return encoder_->format().kind == host::ValueKind::kString; }

    const ColumnType* type_;
    std::shared_ptr<host::ValueEncoder> encoder_;  // copies take turns
    std::size_t contentBytes_ = 0;
};

}  // namespace tvsort::tools
