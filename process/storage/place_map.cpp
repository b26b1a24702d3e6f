#include "process/storage/place_map.h"

#include <algorithm>
#include <bit>

namespace tvsort {

namespace {

constexpr std::uint32_t kNumberBits = 22;
constexpr std::uint32_t kNumberMask = (std::uint32_t{1} << kNumberBits) - 1;
constexpr std::uint32_t kNoBlock = ~std::uint32_t{0};
static_assert(kPlacesMax <= std::int32_t{kNumberMask} + 1);
static_assert(kRangeNumbersMax == kNoBlock >> kNumberBits);

}  // namespace

void PlaceMap::open(std::int32_t places) {
    places_ = places;
    std::fill_n(labels_, places, kNoBlock);
    std::fill_n(freeBits_, (places + 63) / 64, std::uint64_t{0});
}

void PlaceMap::setFree(std::int32_t place) {
    labels_[place] = kNoBlock;
    freeBits_[place / 64] |= std::uint64_t{1} << bitOf(place);
}

void PlaceMap::close(std::int32_t place) {
    labels_[place] = kNoBlock;
    freeBits_[place / 64] &= ~(std::uint64_t{1} << bitOf(place));
}

void PlaceMap::store(std::int32_t place, StoredBlock block) {
    close(place);
    labels_[place] = block.range << kNumberBits | block.number;
}

bool PlaceMap::holdsBlock(std::int32_t place, StoredBlock& block) const {
    block = {labels_[place] >> kNumberBits, labels_[place] & kNumberMask};
    return labels_[place] != kNoBlock;
}

std::int32_t PlaceMap::findFree(std::int32_t from) const {
    from = std::min(from, places_ - 1);
    const std::int32_t first = from / 64;
    const std::int32_t words = (places_ + 63) / 64;
    std::uint64_t open = word(from) & ~std::uint64_t{0} << bitOf(from);
    for (std::int32_t w = first;; open = freeBits_[w]) {
        if (open != 0) return w * 64 + std::countr_zero(open);
        if (++w == words) break;
    }
    open = word(from) & ~(~std::uint64_t{0} << bitOf(from));
    for (std::int32_t w = first;; open = freeBits_[w]) {
        if (open != 0) return w * 64 + 63 - std::countl_zero(open);
        if (--w < 0) return -1;
    }
}

void PlaceMap::listBlocks(std::uint32_t range, std::uint32_t count, std::int32_t* list) const {
    for (std::int32_t place = 0; place < places_; ++place) {
        const std::uint32_t label = labels_[place];
        if (label >> kNumberBits == range && (label & kNumberMask) < count)
            list[label & kNumberMask] = place;
    }
}

}  // namespace tvsort
