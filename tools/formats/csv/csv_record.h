// A CSV row as a fixed-length record.
//
//      0         the key fields, one behind the other (tools/formats/csv/column_field.h)
//      +         u8[]   null indicators, one per key
//      +         i32    level in a hierarchy, where one is asked for
//      +         the row, in one of two forms:
//
//          carried       u16  length, and the row's bytes
//          left behind   u64  the row's place in the inputs, the first byte of the first being 0
//                        u32  its length
//
// Rows are carried where even the longest is short; else a record has the row's place alone, and
// the row is fetched when the result is written (tools/formats/row_writer.h).

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/request_builder.h"
#include "protocol/bytes.h"
#include "tools/formats/csv/column_field.h"
#include "tools/formats/csv/csv_rows.h"
#include "tools/formats/record_field.h"
#include "tools/formats/row_place.h"

namespace tvsort::tools {

struct KeyColumn {
    std::size_t columnIndex;
    std::string name;
    ColumnField field;
    std::uint8_t kindFlags;
};

struct LevelColumn {
    std::size_t columnIndex;
    std::string name;
    ColumnField field;  // int32
};

class CsvRecord {
  public:
    // `carriedBytesMax`: rows up to this size are carried; 0: they are left behind. Throws when
    // the key fields do not fit into a record.
    CsvRecord(std::vector<KeyColumn> keys, std::optional<LevelColumn> level,
              std::size_t carriedBytesMax);

    std::uint16_t recordLength() const { return recordLength_; }
    bool carriesRows() const { return carriedBytesMax_ > 0; }
    // Orders records by their keys; weight tables are the caller's to add, under `weightTableId`.
    host::RequestBuilder request(std::uint16_t weightTableId) const;

    std::vector<RecordField> fields() const;

    // Lays a row with these fields to `target`. `place` is used where rows are left behind. A value
    // that breaks its type's rules is thrown as bad use that names the column.
    void encode(const std::vector<CsvField>& fields, std::string_view row, std::uint64_t place,
                Byte* target);

    // Of a record that a process gave back. One that carries its row, and none that could be it, is
    // kProtocolBroken.
    std::string_view rowOf(const Byte* record) const;
    // Of one that does not carry it. Whether a row can be there is the caller's to check.
    RowPlace rowPlaceOf(const Byte* record) const;
    std::int32_t levelOf(const Byte* record) const { return loadI32(record + levelOffset_); }

  private:
    void encodeLevel(const std::vector<CsvField>& fields, Byte* target);

    std::vector<KeyColumn> keys_;
    std::optional<LevelColumn> level_;
    std::size_t carriedBytesMax_;
    std::uint16_t nullsOffset_ = 0;
    std::uint16_t levelOffset_ = 0;
    std::uint16_t rowOffset_ = 0;
    std::uint16_t recordLength_ = 0;
};

}  // namespace tvsort::tools
