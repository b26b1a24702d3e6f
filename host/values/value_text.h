// Key values of every type from text, one after the other, for text lines and columns alike.
//
// The format of a value is written NAME or NAME:SCALE:
//
//     int16, int32, int64   digits with an optional sign
//     float, double         1.5, -2e10, inf, nan
//     decimal:SCALE         -12.50; SCALE digits behind the point (host/values/decimal_text.h)
//     byte                  0 to 255
//     string                the text's bytes
//     ucs2                  UTF-8 text, as UCS-2 (host/values/ucs2_text.h)
//     wkt                   a geometry in well-known text, ordered by its bounding box
//     wkt-envelope          the same, of which the record keeps the bounding box only
//
// Types with a fixed field (`bytes`, fixed UCS-2) have no format of their own: a length-prefixed
// value holds the same text without padding.

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/bytes.h"
#include "protocol/data_type.h"
#include "protocol/messages.h"

namespace tvsort::host {

class GeometryText;

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

struct ValueFormat {
    ValueKind kind = ValueKind::kString;
    std::string_view name;
    DataType dataType = DataType::kString;
    // Bytes of a value without its length prefix; 0 where each value has its own.
    std::uint16_t valueBytes = 0;
    int scale = 0;

    // Whether a u16 length stands before the value. Such values have 32767 bytes at most.
    bool isPrefixed() const;
    // Whether the empty text is a value of this format.
    bool takesEmptyText() const;
    // The key, at `fieldOffset`, of values that have up to `valueBytesMax` bytes.
    KeyDescriptor key(std::uint16_t fieldOffset, std::uint16_t valueBytesMax) const;
};

// The stored length of a prefixed value is a signed 16-bit number.
inline constexpr std::size_t kPrefixedValueBytesMax = 32767;

// The format that the text names. What names none is bad use; the error lists those there are.
ValueFormat valueFormat(const std::string& text);
// "int16, int32, ...", for messages and help.
std::string valueFormatNames();

class ValueEncoder {
  public:
    explicit ValueEncoder(const ValueFormat& format);
    ~ValueEncoder();

    const ValueFormat& format() const { return format_; }

    // The value's bytes without a length prefix, good until the next call. A text that is no value
    // of the format is bad use.
    const std::vector<Byte>& encode(std::string_view text);

  private:
    void append(std::string_view text);

    ValueFormat format_;
    std::vector<Byte> bytes_;
    std::unique_ptr<GeometryText> geometryText_;
};

}  // namespace tvsort::host
