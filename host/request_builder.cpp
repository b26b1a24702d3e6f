#include "host/request_builder.h"

#include <algorithm>
#include <cstring>

#include "host/host_error.h"
#include "host/serial_number.h"

namespace tvsort::host {

namespace {

KeyDescriptor keyOf(KeyKind kind, DataType type, std::uint16_t offset, std::uint16_t length) {
    KeyDescriptor key = {};
    key.dataType = static_cast<std::uint8_t>(type);
    key.fieldLength = length;
    key.fieldOffset = offset;
    key.kindFlags = static_cast<std::uint8_t>(kind);
    return key;
}

// The elements of `parts`, one behind the other; answers the place behind them.
template <typename Part>
Byte* place(Byte* target, const std::vector<Part>& parts) {
    if (!parts.empty()) std::memcpy(target, parts.data(), parts.size() * sizeof(Part));
    return target + parts.size() * sizeof(Part);
}

void checkKeyCount(std::size_t keyCount) {
    if (keyCount > std::size_t{kKeysMax}) {
        throw badUse("a request holds at most " + std::to_string(kKeysMax) +
                     " keys, null indicators included; sort by fewer");
    }
}

}  // namespace

KeyDescriptor ascendingKey(DataType type, std::uint16_t fieldOffset, std::uint16_t fieldLength) {
    return keyOf(KeyKind::kAscending, type, fieldOffset, fieldLength);
}

KeyDescriptor descendingKey(DataType type, std::uint16_t fieldOffset, std::uint16_t fieldLength) {
    return keyOf(KeyKind::kDescending, type, fieldOffset, fieldLength);
}

RequestBuilder& RequestBuilder::addKey(const KeyDescriptor& key) {
    checkKeyCount(keys_.size() + 1 + (nullIndicatorsOffset_.has_value() ? 1 : 0));
    keys_.push_back(key);
    if (key.orderNumber == 0) keys_.back().orderNumber = static_cast<std::uint8_t>(keys_.size());
    return *this;
}

RequestBuilder& RequestBuilder::setNullIndicators(std::uint16_t fieldOffset) {
    checkKeyCount(keys_.size() + 1);
    nullIndicatorsOffset_ = fieldOffset;
    return *this;
}

RequestBuilder& RequestBuilder::addWeightTable(const ByteWeightTable& table) {
    if (tables_.size() == std::size_t{kItemsMax}) {
        throw badUse("a request holds at most " + std::to_string(kItemsMax) +
                     " byte-weight tables; let keys share them");
    }
    tables_.push_back(table);
    return *this;
}

RequestBuilder& RequestBuilder::setMode(SortMode mode) {
    mode_ = mode;
    return *this;
}

RequestBuilder& RequestBuilder::setLimit(std::int32_t limitCount) {
    limitCount_ = limitCount;
    return *this;
}

RequestBuilder& RequestBuilder::setWorkDirectoryName(const std::string& name) {
    workDirectoryName_ = name;
    return *this;
}

std::vector<Byte> RequestBuilder::build(const Geometry& geometry, const Extent& extent,
                                        std::uint32_t serial) const {
    std::vector<KeyDescriptor> keys = keys_;
    if (nullIndicatorsOffset_.has_value()) {
        // Last, so that indicator n belongs to key n.
        keys.push_back(keyOf(KeyKind::kNullIndicators, DataType::kNone, *nullIndicatorsOffset_,
                             static_cast<std::uint16_t>(keys_.size())));
    }
    const std::size_t messageBytes = itemCountOffset(keys.size()) + sizeof(std::uint16_t) +
                                     tables_.size() * sizeof(ByteWeightTable);
    SortRequest request = {};
    request.length = static_cast<std::uint32_t>(messageBytes);
    std::string directoryName = workDirectoryName_;
    directoryName.resize(kDirectoryNameBytes, ' ');
    std::copy(directoryName.begin(), directoryName.end(), request.workDirName);
    request.fileBlocks = extent.fileBlocks;
    request.blockPages = geometry.blockPages;
    request.recordCount = extent.recordCount;
    request.recordsPerBlock = geometry.recordsPerBlock;
    request.recordLength = geometry.recordLength;
    request.keyCount = static_cast<std::uint16_t>(keys.size());
    request.sortMode = static_cast<std::uint16_t>(mode_);
    request.limitCount = limitCount_;

    std::vector<Byte> message(messageBytes);
    storeAs(message.data(), request);
    storeAs(message.data() + kSerialOffset, serial);
    Byte* const itemCount = place(message.data() + sizeof request, keys);
    storeAs(itemCount, static_cast<std::uint16_t>(tables_.size()));
    place(itemCount + sizeof(std::uint16_t), tables_);
    return message;
}

}  // namespace tvsort::host
