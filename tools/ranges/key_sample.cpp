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

// Of all rows, those that lie at the places.
std::vector<host::KeyBytes> sampleStream(const KeyedInput& input, std::uint64_t step) {
    RowErrors passedOver(kSkipOnError);
    RowStream rows(input, passedOver);
    std::vector<host::KeyBytes> keys;
    std::uint64_t place = input.firstRowOf(0) + step / 2;
    for (KeyedRow row; rows.next(row);) {
        throwIfInterrupted();
        const std::uint64_t end = row.place.offset + row.place.byteCount;
        for (; place <= end; place += step)
            keys.push_back(cut(*row.key));
    }
    return keys;
}

std::vector<host::KeyBytes> samplePlaces(const KeyedInput& input, std::uint64_t step) {
    const InputPlaces& places = input.places();
    const std::unique_ptr<RowReader> reader = input.reader(kSampleKeyBytesMax);
    std::vector<host::KeyBytes> keys;
    std::string window;
    for (std::uint64_t place = input.firstRowOf(0) + step / 2; place < places.end();
         place += step) {
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

std::vector<host::KeyBytes> sampleKeys(const KeyedInput& input, std::size_t sampleCount) {
    const InputPlaces& places = input.places();
    const std::uint64_t bytes = places.end() - input.firstRowOf(0);
    if (bytes == 0 || sampleCount == 0) return {};
    const std::uint64_t step = std::max<std::uint64_t>(bytes / sampleCount, 1);
    return step <= kWindowBytes ? sampleStream(input, step) : samplePlaces(input, step);
}

}  // namespace tvsort::tools
