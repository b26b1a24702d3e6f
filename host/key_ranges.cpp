#include "host/key_ranges.h"

#include <algorithm>

#include "protocol/data_type.h"

namespace tvsort::host {

std::string splitHindrance(const RequestBuilder& request, bool isCollated) {
    for (const KeyDescriptor& key : request.keys()) {
        const auto type = static_cast<DataType>(key.dataType);
        if (key.geometryType != kGeometryTypeNone) return "hold geometries";
        if (type == DataType::kFloat) return "hold floating-point values";
        const bool isText = type == DataType::kUnits || type == DataType::kUnitString;
        if (isText && isCollated) return "are ordered by a collation";
    }
    return "";
}

KeyRanges::KeyRanges(const RequestBuilder& request, std::uint16_t recordLength,
                     const std::vector<Byte>& sample, std::size_t partCount)
    : order_(request), partCount_(partCount) {
    std::vector<const Byte*> records;
    for (std::size_t at = 0; at < sample.size(); at += recordLength)
        records.push_back(sample.data() + at);
    std::sort(records.begin(), records.end(), [this](const Byte* left, const Byte* right) {
        return !order_.mayFollow(right, left);
    });
    for (std::size_t part = 1; part < partCount && !records.empty(); ++part) {
        const Byte* const splitter = records[part * records.size() / partCount];
        splitters_.emplace_back(splitter, splitter + recordLength);
    }
}

std::size_t KeyRanges::partOf(const Byte* record) const {
    const auto next = std::partition_point(splitters_.begin(), splitters_.end(),
                                           [this, record](const std::vector<Byte>& splitter) {
                                               return order_.mayFollow(splitter.data(), record);
                                           });
    return static_cast<std::size_t>(next - splitters_.begin());
}

}  // namespace tvsort::host
