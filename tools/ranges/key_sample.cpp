#include "tools/ranges/key_sample.h"

#include <algorithm>
#include <memory>
#include <string>

#include "tools/files/interrupt.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kWindowBytes = std::size_t{64} * 1024;

host::KeyBytes cut(const host::KeyBytes& key) {
    const auto count = static_cast<std::ptrdiff_t>(std::min(key.size(), kSampleKeyBytesMax));
    return {key.begin(), key.begin() + count};
}

std::uint64_t firstPlace(const KeyedInput& input, const ByteShare& share) {
    return std::max(share.begin, input.firstRowOf(0));
}

// Of all rows, those that lie at the places.
std::vector<host::KeyBytes> sampleStream(const KeyedInput& input, const ByteShare& share,
                                         std::uint64_t step) {
    RowErrors passedOver(kSkipOnError);
    ShareRows rows(input, share, passedOver);
    std::vector<host::KeyBytes> keys;
    std::uint64_t place = firstPlace(input, share) + step / 2;
    const std::uint64_t shareEnd = std::min(share.end, input.places().end());
    for (KeyedRow row; rows.next(row);) {
        throwIfInterrupted();
        const std::uint64_t end = std::min(row.place.offset + row.place.byteCount, shareEnd - 1);
        for (; place <= end; place += step)
            keys.push_back(cut(*row.key));
    }
    return keys;
}

std::vector<host::KeyBytes> samplePlaces(const KeyedInput& input, const ByteShare& share,
                                         std::uint64_t step) {
    const InputPlaces& places = input.places();
    const std::unique_ptr<RowReader> reader = input.reader(kSampleKeyBytesMax);
    std::vector<host::KeyBytes> keys;
    std::string window;
    const std::uint64_t end = std::min(share.end, places.end());
    for (std::uint64_t place = firstPlace(input, share) + step / 2; place < end; place += step) {
        throwIfInterrupted();
        window.resize(std::min<std::uint64_t>(kWindowBytes, places.end() - place));
        places.readAt(place, reinterpret_cast<Byte*>(window.data()), window.size());
        const bool endsInput = place + window.size() == places.end();
        const TextPart part = {place, window, endsInput};
        const std::size_t start = reader->guessStart(part);
        if (start >= window.size()) continue;
        KeyedRow row;
        const TextPart rest = {place + start, std::string_view(window).substr(start), endsInput};
        if (reader->next(rest, row).outcome == RowReader::Outcome::kRow)
            keys.push_back(cut(*row.key));
    }
    return keys;
}

}  // namespace

std::vector<host::KeyBytes> sampleKeys(const KeyedInput& input, const ByteShare& share,
                                       std::size_t sampleCount) {
    const std::uint64_t begin = firstPlace(input, share);
    const std::uint64_t end = std::min(share.end, input.places().end());
    if (begin >= end || sampleCount == 0) return {};
    const std::uint64_t step = (end - begin + sampleCount - 1) / sampleCount;
    return step <= kWindowBytes ? sampleStream(input, share, step)
                                : samplePlaces(input, share, step);
}

}  // namespace tvsort::tools
