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
constexpr std::int64_t kOwnBytes = std::int64_t{12} << 20;

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

std::int64_t blocksWithEntries(const Geometry& geometry, const Extent& extent) {
    const auto blockBytes = static_cast<std::int64_t>(geometry.blockBytes());
    return extent.fileBlocks + kEntryBytes * extent.recordCount / blockBytes;
}

// Whether three rounds bring a data set into ranges that fit; the process needs no more frames for
// that, and often fewer.
bool distributesBlocks(const RequestBuilder& request, const Geometry& geometry,
                       const Extent& extent, std::int32_t frameCount, bool hasFloats) {
    const bool fits = extent.fileBlocks <= frameCount;
    const auto blockBytes = static_cast<std::int64_t>(geometry.blockBytes());
    const bool isUnique =
        request.mode() == SortMode::kUnique || request.mode() == SortMode::kUniqueUnlessNull;
    if (fits && (hasFloats || isUnique)) return false;
    const std::int64_t frames = fits ? kOwnBytes / blockBytes : frameCount;
    constexpr std::int64_t kTimesMin = 128;
    return frames >= kBlocksFramesMin && extent.recordCount >= kBlocksCountMin &&
           extent.fileBlocks <= kBlocksMax - frames && 4 * geometry.recordLength <= blockBytes &&
           blocksWithEntries(geometry, extent) <= frames * std::max(kTimesMin, frames / 8);
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
    // Blocks: read and written twice and every second one moved on the way, less what frames hold;
    // once more for each round beyond the first. Quicksort: a level for each halving. The numbers
    // are measured ones.
    const double fitting = static_cast<double>(blocksWithEntries(geometry, extent)) / frameCount;
    const double rounds = fitting <= 0.18 * frameCount                ? 0
                          : fitting <= frameCount / 40.0 * frameCount ? 1
                                                                      : 2;
    const double perBlock = reason == MethodReason::kBlocks ? 5.2 - 3.9 / ratio + 2.1 * rounds
                                                            : 3.4 + 2.4 * std::log2(ratio);
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
        const bool distributes = distributesBlocks(request, geometry, extent, frameCount, floats);
        return {distributes ? MethodReason::kBlocks : MethodReason::kTooFewFrames, 0, wanted,
                floats};
    }
    const bool isCopied = copies && frameCount >= forCopy &&
                          (geometry.recordLength <= kCopiedBytesMax || frameCount < forEntries);
    return {isCopied ? MethodReason::kCopies : MethodReason::kEntries, 0, wanted, floats};
}

}  // namespace tvsort::host
