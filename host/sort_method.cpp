#include "host/sort_method.h"

#include <algorithm>
#include <cmath>

namespace tvsort::host {

namespace {

constexpr std::int64_t kEntryBytes = 24;
constexpr std::int32_t kCopyCountMin = 10000;
constexpr std::uint32_t kCopiedBytesMax = 32;
constexpr std::int64_t kCounterBytes = 262148;
constexpr std::int32_t kBlocksCountMin = 10000;
constexpr std::int32_t kBlocksFramesMin = 64;
constexpr std::int32_t kBlocksMax = 1 << 22;

DataType typeOf(const KeyDescriptor& key) {
    return static_cast<DataType>(key.dataType);
}

bool isString(const KeyDescriptor& key) {
    return typeOf(key) == DataType::kString || typeOf(key) == DataType::kWeightedString;
}

bool isGeometry(const KeyDescriptor& key) {
    return isString(key) && key.geometryType != kGeometryTypeNone;
}

bool isTolerantFloat(const KeyDescriptor& key) {
    const auto kind = static_cast<KeyKind>(key.kindFlags & kKeyKindMask);
    return typeOf(key) == DataType::kFloat && kind == KeyKind::kAscending;
}

bool isCopiedType(const KeyDescriptor& key) {
    switch (typeOf(key)) {
        case DataType::kInteger:
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
        case DataType::kBytes:
        case DataType::kString:
            return true;
        default:
            return false;
    }
}

// The frames that the data set wants with so many bytes behind it.
std::int64_t framesWith(std::int64_t bytes, const Geometry& geometry, const Extent& extent) {
    const auto blockBytes = static_cast<std::int64_t>(geometry.blockBytes());
    return extent.fileBlocks + (bytes + blockBytes - 1) / blockBytes;
}

bool distributesBlocks(const Extent& extent, std::int32_t frameCount) {
    return extent.fileBlocks > frameCount && frameCount >= kBlocksFramesMin &&
           extent.recordCount >= kBlocksCountMin && extent.fileBlocks <= kBlocksMax;
}

}  // namespace

bool keepsArrival(MethodReason reason) {
    return reason == MethodReason::kEntries || reason == MethodReason::kCopies ||
           reason == MethodReason::kBlocks;
}

std::int64_t forecastMovedBytes(MethodReason reason, const Geometry& geometry, const Extent& extent,
                                std::int32_t frameCount) {
    if (extent.fileBlocks <= frameCount) return 0;
    const double blocks = extent.fileBlocks;
    const double ratio = blocks / frameCount;
    // Blocks: read and written twice and every second one moved on the way, less what frames hold.
    // Quicksort: a level for each halving. The numbers are measured ones.
    const double perBlock =
        reason == MethodReason::kBlocks ? 5.2 - 3.9 / ratio : 3.4 + 2.4 * std::log2(ratio);
    return static_cast<std::int64_t>(perBlock * blocks) *
           static_cast<std::int64_t>(geometry.blockBytes());
}

MethodForecast forecastMethod(const RequestBuilder& request, const Geometry& geometry,
                              const Extent& extent, std::int32_t frameCount) {
    if (request.mode() == SortMode::kHierarchy) return {MethodReason::kHierarchy, 0, 0, false};
    if (extent.recordCount < kEntryCountMin) return {MethodReason::kFewRecords, 0, 0, false};
    const auto& keys = request.keys();
    const auto geometryKey = std::find_if(keys.begin(), keys.end(), isGeometry);
    if (geometryKey != keys.end()) {
        const auto index = static_cast<std::size_t>(geometryKey - keys.begin());
        return {MethodReason::kKeyType, index, 0, false};
    }
    const bool floats = std::any_of(keys.begin(), keys.end(), isTolerantFloat);
    const std::int64_t count = extent.recordCount;
    const std::int64_t forEntries = framesWith(kEntryBytes * count, geometry, extent);
    const bool copies =
        count >= kCopyCountMin && std::all_of(keys.begin(), keys.end(), isCopiedType);
    const std::int64_t copyBytes = geometry.recordLength * count + kCounterBytes;
    const std::int64_t forCopy =
        extent.fileBlocks + copyBytes / static_cast<std::int64_t>(geometry.blockBytes()) + 1;
    const std::int64_t wanted = copies ? std::min(forEntries, forCopy) : forEntries;
    if (frameCount < wanted) {
        const MethodReason reason = distributesBlocks(extent, frameCount)
                                        ? MethodReason::kBlocks
                                        : MethodReason::kTooFewFrames;
        return {reason, 0, wanted, floats};
    }
    const bool isCopied = copies && frameCount >= forCopy &&
                          (geometry.recordLength <= kCopiedBytesMax || frameCount < forEntries);
    return {isCopied ? MethodReason::kCopies : MethodReason::kEntries, 0, wanted, floats};
}

}  // namespace tvsort::host
