// A row of a sort by ordered keys as a record: one key of bytes, and where the row is.
//
//     0    5   number of the group, the most significant byte first; only in rounds behind the
//              first
//     +    w   bytes of the row's key, filled up with zeros
//     +    6   place of the row, likewise: bit 47 says that the key goes on behind the w bytes,
//              bit 46 that one of the row's keys is null
//     +    4   bytes of the row, little-endian
//
// Group, key and place are one key of the process. Where group and key are alike the place decides,
// so rows that are equal stand as they were read, and no two records are equal. Neither bit
// disturbs that: keys that are the same to their ends have the same nulls, and of keys that begin
// alike either all go on or none.

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/keys/ordered_bytes.h"
#include "host/request_builder.h"
#include "protocol/bytes.h"
#include "tools/formats/record_field.h"
#include "tools/formats/row_place.h"

namespace tvsort::tools {

struct RecordRow {
    std::uint64_t group = 0;
    RowPlace place = {};
    bool keyGoesOn = false;
    bool hasNull = false;
};

class KeyRecord {
  public:
    struct Form {
        bool hasGroups = false;
        std::size_t keyBytes = 0;
    };

    explicit KeyRecord(const Form& form);

    const Form& form() const { return form_; }
    std::uint16_t recordLength() const { return static_cast<std::uint16_t>(length_); }
    host::RequestBuilder request() const;
    std::vector<RecordField> fields(const std::string& keysInWords) const;

    // `key`: up to keyBytes of it.
    void encode(const RecordRow& row, std::string_view key, Byte* target) const;
    // Of a record that came back from a process: what it says is not known to be true.
    RecordRow decode(const Byte* record) const;
    // Puts another row, whose key begins alike, in place of the one that the record is about.
    void setRow(Byte* record, const RecordRow& row) const;
    // Group and key.
    std::string_view comparedBytes(const Byte* record) const {
        return {reinterpret_cast<const char*>(record), placeOffset_};
    }

  private:
    Form form_;
    std::size_t placeOffset_;
    std::size_t length_;
};

// Of all inputs together.
inline constexpr std::uint64_t kPlaceMax = (std::uint64_t{1} << 46) - 1;

}  // namespace tvsort::tools
