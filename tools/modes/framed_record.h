// A record with a few bytes in front of it that a sort mode needs.
//
// Most modes write into the records that they sort, or look there for what a user's record does not
// have. So a user's record travels behind a header of the command's own, with its keys moved behind
// it, and comes out without it:
//
//     numbered                                       levelled
//      0  i32  number of the record, in reading       0  i32  level in the hierarchy, from 1
//      4  u8   the process's flag: the operand        4  i32  subtree size, the process's
//      5  u8[] null indicators, if there are any      8  i32  place in the result, the process's
//      +       the user's record                     12  u8[] null indicators, if there are any
//                                                     +       the user's record
//
// Keys of a numbered record: the user's, then the number. No two numbers are equal, so equal
// records come in the order of reading, whatever the user's keys and their directions are. That
// makes the first one the survivor of duplicates, puts the first operand's records before all
// others of their key, which the set operations need, and is what the unique check asks for: a last
// key, an ascending 4-byte integer, that it leaves out. For equality only the user's keys count.
//
// Keys of a levelled record: one that the process drops, one of no bytes at offset 4 because the
// level stands before the first key, the user's, and the level. Siblings all have one level, so it
// orders nothing; but a row limit takes for ties only records of the same level.
//
// There is one null indicator for each key of the request. The user's are copied to the header
// because those of the keys before and behind them must be next to them.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/data_set.h"
#include "host/request_builder.h"
#include "protocol/bytes.h"
#include "protocol/messages.h"
#include "tools/formats/outline_level.h"
#include "tools/formats/record_field.h"
#include "tools/modes/operand_input.h"

namespace tvsort::tools {

enum class FrameKind : std::uint8_t { kNumbered, kLevelled };

// Of a record with its header.
inline constexpr std::size_t kFramedBytesMax = 65535;

class FramedRecord {
  public:
    // For records of `recordLength` bytes with the keys, null indicators and weight tables of
    // `recordRequest`. Throws when the header does not fit in, naming `purpose`.
    FramedRecord(FrameKind kind, const host::RequestBuilder& recordRequest,
                 std::uint16_t recordLength, const std::string& purpose);

    std::uint16_t recordLength() const { return recordLength_; }
    std::uint16_t userLength() const { return userLength_; }
    // Orders framed records; the mode is the caller's to set.
    const host::RequestBuilder& request() const { return request_; }

    // Lays a header and the user's record to `target`. `number` is the record's number or level,
    // `flag` what the process finds in the flag of a numbered record.
    void frame(const Byte* record, std::int32_t number, Byte flag, Byte* target) const;

    // The header's parts, and those of the user's record behind it.
    std::vector<RecordField> fields(const std::vector<RecordField>& userFields) const;

    const Byte* recordOf(const Byte* framed) const { return framed + headerBytes_; }
    std::int32_t numberOf(const Byte* framed) const { return loadI32(framed); }
    Byte flagOf(const Byte* framed) const { return framed[kRecordFlagOffset]; }
    // Whether the process has marked a numbered record as the last of its group.
    bool endsGroup(const Byte* framed) const { return (flagOf(framed) & kGroupEndBit) != 0; }
    // Whether a key of the user's is null.
    bool hasNull(const Byte* framed) const;

  private:
    FrameKind kind_;
    // The user's null indicators: in the user's record, and in the framed one.
    std::optional<std::uint16_t> nullsOffset_;
    std::uint16_t nullsCount_;
    std::uint16_t copiedNullsOffset_;
    std::uint16_t headerBytes_;
    std::uint16_t userLength_;
    std::uint16_t recordLength_;
    host::RequestBuilder request_;
};

// Flags of numbered records: the operand, where two are combined.
inline constexpr Byte kFirstOperand = 1;
inline constexpr Byte kOtherOperand = 2;

// User records on their way to the process, each laid behind its header: the input's records
// behind numbers from `nextNumber` on, which is advanced, and this flag. All
// that is passed must outlive the source.
host::RecordSource numberedSource(OperandInput& input, const FramedRecord& frame, Byte flag,
                                  std::int64_t& nextNumber);

// The input's records behind their levels. Each operand is a hierarchy of its own; a level that
// does not fit is thrown as bad use that names the record.
host::RecordSource levelledSource(OperandInput& input, const FramedRecord& frame,
                                  const LevelReader& readLevel);

}  // namespace tvsort::tools
