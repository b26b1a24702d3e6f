#include "host/sort_method.h"

#include "protocol/stored_string.h"

namespace tvsort::host {

namespace {

constexpr std::int64_t kCounterBytes = 262144;
constexpr std::int64_t kRoundingBytes = 4;

DataType typeOf(const KeyDescriptor& key) {
    return static_cast<DataType>(key.dataType);
}

bool isPlainString(const KeyDescriptor& key) {
    return typeOf(key) == DataType::kString && key.geometryType == kGeometryTypeNone;
}

bool isOrderedByBytes(const KeyDescriptor& key) {
    switch (typeOf(key)) {
        case DataType::kInteger:
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
        case DataType::kBytes:
            return true;
        default:
            return isPlainString(key);
    }
}

}  // namespace

MethodForecaster::MethodForecaster(const RequestBuilder& request)
    : request_(request), fullStringIndex_(request.keys().size()) {}

void MethodForecaster::look(const Byte* record) {
    for (std::size_t i = 0; i < fullStringIndex_; ++i) {
        const KeyDescriptor& key = request_.keys()[i];
        if (!isPlainString(key) || isNull(record, i)) continue;
        if (!isZeroFilled(record + key.fieldOffset, key.fieldLength)) fullStringIndex_ = i;
    }
}

bool MethodForecaster::isNull(const Byte* record, std::size_t keyIndex) const {
    const auto offset = request_.nullIndicatorsOffset();
    return offset.has_value() && record[*offset + keyIndex] == 1;
}

MethodForecast MethodForecaster::forecast(const Geometry& geometry, const Extent& extent,
                                          std::int32_t frameCount) const {
    if (request_.mode() == SortMode::kHierarchy) return {MethodReason::kHierarchy, 0, 0};
    if (extent.recordCount < kDistributionCountMin) return {MethodReason::kFewRecords, 0, 0};
    const auto& keys = request_.keys();
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (!isOrderedByBytes(keys[i])) return {MethodReason::kKeyType, i, 0};
    }
    if (fullStringIndex_ < keys.size()) return {MethodReason::kStringRest, fullStringIndex_, 0};
    const std::int64_t workingBytes =
        std::int64_t{geometry.recordLength} * extent.recordCount + kCounterBytes + kRoundingBytes;
    const std::int64_t wanted =
        workingBytes / static_cast<std::int64_t>(geometry.blockBytes()) + extent.fileBlocks + 1;
    return {wanted <= frameCount ? MethodReason::kDistributes : MethodReason::kTooFewFrames, 0,
            wanted};
}

}  // namespace tvsort::host
