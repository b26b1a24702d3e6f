#include "tools/ordered/key_plan.h"

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "tools/files/machine_memory.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kSampleRows = 16384;
constexpr std::uint64_t kSampleBytes = std::uint64_t{8} << 20;
constexpr std::size_t kKeyBytesMin = 16;
constexpr std::size_t kKeyBytesMax = 64;
// Rows up to this size always travel.
constexpr std::size_t kTinyRowBytesMax = 24;
// Where travelling pays at all, these do, and longer ones that use most of the room.
constexpr std::size_t kShortRowBytesMax = 128;
constexpr std::size_t kCarriedBytesMax = 512;
// Inputs of so many times the memory are read too often when rows are fetched.
constexpr std::uint64_t kFetchedMemoriesMax = 4;
// One of so many neighbours may stay alike, and one of so many rows be too long to travel.
constexpr std::size_t kRareShare = 64;

struct Sample {
    std::vector<std::string> keys;
    std::vector<std::size_t> rowBytes;
    std::uint64_t byteCount = 0;
};

Sample readSample(KeyedInput& input) {
    Sample sample;
    KeyedRow row;
    while (sample.keys.size() < kSampleRows && sample.byteCount < kSampleBytes && input.next(row)) {
        const std::size_t count = std::min(row.key->size(), kKeyBytesMax);
        sample.keys.emplace_back(row.key->begin(),
                                 row.key->begin() + static_cast<std::ptrdiff_t>(count));
        sample.rowBytes.push_back(row.place.byteCount);
        sample.byteCount += row.place.byteCount + 1;
    }
    input.restart();
    return sample;
}

// The value that all but a few do not exceed.
std::size_t nearlyMost(std::vector<std::size_t>& values) {
    if (values.empty()) return 0;
    const auto place = values.end() - 1 - static_cast<std::ptrdiff_t>(values.size() / kRareShare);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

std::size_t keyBytesFor(Sample& sample, std::uint64_t inputBytes) {
    std::sort(sample.keys.begin(), sample.keys.end());
    std::size_t longest = 1;
    std::vector<std::size_t> needed;
    for (std::size_t i = 0; i < sample.keys.size(); ++i) {
        const std::string& key = sample.keys[i];
        longest = std::max(longest, key.size());
        if (i == 0) continue;
        const std::string& before = sample.keys[i - 1];
        const auto differ = std::mismatch(key.begin(), key.end(), before.begin(), before.end());
        needed.push_back(
            std::min(static_cast<std::size_t>(differ.first - key.begin()) + 1, key.size()));
    }
    // Among more rows neighbours are closer: twice as many share about three bits more of text.
    constexpr std::size_t kDoublingsPerByte = 3;
    const std::uint64_t growth = inputBytes / std::max<std::uint64_t>(sample.byteCount, 1);
    const std::size_t closer =
        (static_cast<std::size_t>(std::bit_width(growth)) + kDoublingsPerByte - 1) /
        kDoublingsPerByte;
    return std::min(std::clamp(nearlyMost(needed) + closer, kKeyBytesMin, kKeyBytesMax), longest);
}

bool areReadOverAndOver(std::uint64_t inputBytes, std::uint64_t memoryBytes) {
    return inputBytes / kFetchedMemoriesMax > memoryBytes || inputBytes > machineMemoryBytes() / 2;
}

std::size_t carriedBytesFor(Sample& sample, std::uint64_t inputBytes, std::uint64_t memoryBytes) {
    if (sample.keys.empty()) return 0;
    const std::size_t most = nearlyMost(sample.rowBytes);
    if (most <= kTinyRowBytesMax) return most;
    if (!areReadOverAndOver(inputBytes, memoryBytes)) return 0;
    const std::uint64_t average = sample.byteCount / sample.keys.size();
    const bool isFull = most <= kCarriedBytesMax && most <= 2 * average;
    return most <= kShortRowBytesMax || isFull ? most : 0;
}

}  // namespace

KeyRecord::Form planKeys(KeyedInput& input, std::uint64_t memoryBytes) {
    Sample sample = readSample(input);
    KeyRecord::Form form;
    form.keyBytes = keyBytesFor(sample, input.places().end());
    form.carriedBytes = carriedBytesFor(sample, input.places().end(), memoryBytes);
    return form;
}

}  // namespace tvsort::tools
