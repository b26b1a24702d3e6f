// A text line as a fixed-length record.
//
//     lines of up to 32767 bytes      longer lines, up to 65531 bytes
//
//      0   u16   length n              0       u16       length of the first part
//      2   n     the line              2       32767     the line's first 32767 bytes
//                                      32769   u16       length of the second part
//                                      32771   the rest  what exceeds them
//
// Each part is a length-prefixed value and a key of its own, because such a value's length is
// signed. A line shorter than the first part has an empty second one, so comparing part by part
// is comparing the lines. The longest line of a data set decides the length of all its records.

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/request_builder.h"
#include "protocol/bytes.h"
#include "tools/formats/record_field.h"

namespace tvsort::tools {

inline constexpr std::size_t kLinePartBytesMax = 32767;
// A record has at most 65535 bytes, of which two parts' lengths take four.
inline constexpr std::size_t kLineBytesMax = 65535 - 2 * sizeof(std::uint16_t);

class LineRecord {
  public:
    // For lines of up to `lineBytesMax` bytes, at most kLineBytesMax.
    explicit LineRecord(std::size_t lineBytesMax);

    std::uint16_t recordLength() const { return recordLength_; }
    // Orders lines by their bytes, a line before those that continue it.
    host::RequestBuilder request() const;

    std::vector<RecordField> fields() const;

    // Lays the line, of up to `lineBytesMax` bytes, into the record at `target`.
    void encode(std::string_view line, Byte* target) const;
    // Puts the line of a record that a process gave back to `target`, which has room for
    // `lineBytesMax`; answers its length. A record without a line is kProtocolBroken.
    std::size_t decode(const Byte* record, Byte* target) const;
    // The line's first kLinePartBytesMax bytes, where they lie.
    static std::string_view firstPart(const Byte* record);

  private:
    std::size_t firstPartMax_;
    std::size_t secondPartMax_;  // 0 when there is no second part
    std::uint16_t recordLength_;
};

}  // namespace tvsort::tools
