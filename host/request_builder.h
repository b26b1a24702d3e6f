// Builds the bytes of a sort request.
//
//     const std::vector<Byte> bytes = RequestBuilder()
//         .addKey(ascendingKey(DataType::kInteger, 0, 4))
//         .addKey(descendingKey(DataType::kBytes, 10, 20))
//         .setNullIndicators(30)
//         .build(geometry, extent);
//
// Keys compare in the order in which they were added, unless a descriptor brings an order number of
// its own. Only what the message format cannot hold is refused here: whether the request makes
// sense is for the process to say.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "protocol/bytes.h"
#include "protocol/data_type.h"
#include "protocol/messages.h"

namespace tvsort::host {

// How records lie in blocks, and blocks in frames and work file.
struct Geometry {
    std::uint16_t recordLength = 0;     // bytes
    std::int32_t blockPages = 0;        // pages of 4096 bytes per block
    std::uint16_t recordsPerBlock = 0;  // records

    std::size_t blockBytes() const {
        return static_cast<std::size_t>(blockPages) * static_cast<std::size_t>(kPageBytes);
    }
};

// How much there is.
struct Extent {
    std::int32_t recordCount = 0;
    std::int32_t fileBlocks = 0;
};

KeyDescriptor ascendingKey(DataType type, std::uint16_t fieldOffset, std::uint16_t fieldLength);
KeyDescriptor descendingKey(DataType type, std::uint16_t fieldOffset, std::uint16_t fieldLength);

class RequestBuilder {
  public:
    // A descriptor as it is; order number 0 stands for its place among those added. More than 100
    // descriptors, null indicators included, are bad use.
    RequestBuilder& addKey(const KeyDescriptor& key);
    // One null-indicator byte per added key stands at `fieldOffset`, in the order of adding.
    RequestBuilder& setNullIndicators(std::uint16_t fieldOffset);
    // More than 32 tables are bad use.
    RequestBuilder& addWeightTable(const ByteWeightTable& table);
    RequestBuilder& setMode(SortMode mode);
    // Leading records wanted; 0 means all.
    RequestBuilder& setLimit(std::int32_t limitCount);
    // Up to four characters; needed only where the answer's name did not open the work file.
    RequestBuilder& setWorkDirectoryName(const std::string& name);

    const std::vector<KeyDescriptor>& keys() const { return keys_; }
    const std::vector<ByteWeightTable>& weightTables() const { return tables_; }
    SortMode mode() const { return mode_; }
    std::int32_t limit() const { return limitCount_; }
    std::optional<std::uint16_t> nullIndicatorsOffset() const { return nullIndicatorsOffset_; }

    // The whole message; `serial` comes back in the reply.
    std::vector<Byte> build(const Geometry& geometry, const Extent& extent,
                            std::uint32_t serial = 0) const;

  private:
    std::vector<KeyDescriptor> keys_;
    std::optional<std::uint16_t> nullIndicatorsOffset_;
    std::vector<ByteWeightTable> tables_;
    SortMode mode_ = SortMode::kOrder;
    std::int32_t limitCount_ = 0;
    std::string workDirectoryName_;
};

}  // namespace tvsort::host
