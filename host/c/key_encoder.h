// Columns of rows as strings of bytes that compare, byte by byte and unsigned, as the columns do.
//
//     record    [ column 0 ][ column 1 ] ... [ row number ][ payload ][ zeros up to 8 bytes ]
//               '----------- key ------------'  4 bytes
//
//     column    signed, unsigned    big-endian; the sign bit turned around
//               float               big-endian; of a negative one all bits turned around, of any
//                                   other the sign bit; -0.0 as 0.0; NaN is a null
//               time                as signed, its values moved by one to make room for a null
//               bytes               as they are
//               code points         their lower 3 bytes, big-endian
//               descending          all bits turned around, but not those of a null
//               null                all bits 0 or all 1: no value of a float or time has that form
//               nullable            one byte before the value tells nulls, whose value is zeros
//
// So one key of type 6 stands for all columns, and no value is compared within a tolerance.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "include/tvsort.h"
#include "protocol/bytes.h"

namespace tvsort::capi {

class KeyEncoder {
  public:
    // A column that cannot be ordered, or makes the key too long for a record, is bad use.
    void addColumn(const tvsort_column& column);
    // As tvsort_rows_set_values has it.
    void setValues(std::int32_t columnIndex, const void* values, std::ptrdiff_t stride,
                   const void* nulls, std::ptrdiff_t nullsStride);
    // Needs all columns' values set, else it is bad use.
    void checkValues() const;

    std::size_t keyBytes() const { return keyBytes_; }
    std::size_t columnCount() const { return columns_.size(); }

    // Writes the keys of `rowCount` rows of the places set, from row `firstRow` on: the first one
    // to `records`, each further one `recordBytes` behind. Text with what is no code point is bad
    // use.
    void encode(std::int64_t firstRow, std::size_t rowCount, Byte* records,
                std::size_t recordBytes) const;

  private:
    struct Column {
        std::int32_t type;
        std::uint32_t flags;
        std::size_t valueBytes;
        std::size_t keyOffset;
        const Byte* values = nullptr;
        std::ptrdiff_t stride = 0;
        const Byte* nulls = nullptr;
        std::ptrdiff_t nullsStride = 0;

        bool has(std::uint32_t flag) const { return (flags & flag) != 0; }
    };
    // The rows of one column on their way into records.
    struct Run {
        const Byte* values;
        std::ptrdiff_t stride;
        std::size_t rowCount;
        Byte* target;
        std::size_t recordBytes;
        const Byte* nulls;  // null where the column is not nullable
    };
    template <typename Word>
    static void encodeWords(const Column& column, const Run& run);
    static void encodeBytes(const Column& column, const Run& run);
    static void encodeCodePoints(const Column& column, const Run& run);
    static void encodeNulls(const Column& column, const Run& run, std::size_t fieldBytes);
    static std::size_t fieldBytes(const Column& column);

    std::vector<Column> columns_;
    std::size_t keyBytes_ = 0;
};

}  // namespace tvsort::capi
