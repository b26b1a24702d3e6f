// The field of a record that holds the values of one key column, in the form that its type has
// (host/values/value_format.h).
//
// What LENGTH says is room: bytes of the longest value, or units of the longest UCS-2 text. It may
// be left out: the longest value of the file is then measured. A value that does not fit is
// refused, never cut.

#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "host/keys/ordered_key.h"
#include "host/request_builder.h"
#include "host/values/value_text.h"
#include "protocol/bytes.h"

namespace tvsort::tools {

class ColumnField {
  public:
    explicit ColumnField(const host::ValueFormat& format);
    // Holds the bytes of an ordered key instead, in a string, whose own key has the direction.
    explicit ColumnField(host::KeyForm form);

    bool hasLength() const { return format().takesLength(); }
    // Bytes that LENGTH `length` stands for.
    std::size_t bytesOfLength(std::uint16_t length) const;

    // The most that the field can be given room for.
    std::size_t contentBytesLimit() const;
    // Makes room for values up to `contentBytes`, where the type leaves it open.
    void setContentBytes(std::size_t contentBytes) { contentBytes_ = contentBytes; }
    std::size_t contentBytes() const { return contentBytes_; }
    // Bytes of the record that the field takes.
    std::size_t fieldBytes() const { return format().fieldBytes(contentBytes_); }
    // An ascending key of this field.
    KeyDescriptor key(std::uint16_t fieldOffset) const;

    // Bytes that the text's value has, whatever the field has room for.
    std::size_t measure(std::string_view text);
    // Lays the text's value into the zero-filled field at `target`. Text that is no value of the
    // type, or does not fit, is thrown as bad use.
    void encode(std::string_view text, Byte* target);

  private:
    const host::ValueFormat& format() const { return encoder_->format(); }
    bool isPlainText() const {
        return ordered_ == nullptr && format().kind == host::ValueKind::kString;
    }
    const std::vector<Byte>& valueOf(std::string_view text);

    std::shared_ptr<host::ValueEncoder> encoder_;  // copies take turns
    std::shared_ptr<host::OrderedKey> ordered_;
    host::KeyBytes orderedBytes_;
    std::size_t contentBytes_ = 0;
};

}  // namespace tvsort::tools
