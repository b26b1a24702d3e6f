#include "tools/formats/keyed_input.h"

#include <algorithm>

namespace tvsort::tools {

namespace {

constexpr std::uint64_t kWindowBytes = std::uint64_t{16} * 1024;

}  // namespace

std::string_view PlaceReader::read(const RowPlace& place) {
    if (place.offset < begin_ || place.offset + place.byteCount > begin_ + window_.size()) {
        places_.check(place);
        const std::uint64_t inputEnd = places_.endOf(places_.indexOf(place.offset));
        const std::uint64_t wanted = std::max<std::uint64_t>(place.byteCount, kWindowBytes);
        window_.resize(std::min(wanted, inputEnd - place.offset));
        begin_ = place.offset;
        places_.readAt(begin_, window_.data(), window_.size());
    }
    return {reinterpret_cast<const char*>(window_.data()) + (place.offset - begin_),
            place.byteCount};
}

}  // namespace tvsort::tools
