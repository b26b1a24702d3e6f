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

constexpr std::int32_t wordsFor(std::int32_t bits) {
    return (bits + 63) / 64;
}

std::int32_t lowest(std::uint64_t bits) {
    return std::countr_zero(bits);
}

std::int32_t highest(std::uint64_t bits) {
    return 63 - std::countl_zero(bits);
}

// The first bit that is set behind bit `from` of `words` words; -1 where none is.
std::int32_t bitBehind(const std::uint64_t* bits, std::int32_t words, std::int32_t from) {
    std::int32_t w = from / 64;
    std::uint64_t open = bits[w] & ~std::uint64_t{1} << from % 64;
    while (open == 0 && ++w < words)
        open = bits[w];
    return open == 0 ? -1 : w * 64 + lowest(open);
}

// The last one before it.
std::int32_t bitBefore(const std::uint64_t* bits, std::int32_t from) {
    std::int32_t w = from / 64;
    std::uint64_t open = bits[w] & ~(~std::uint64_t{0} << from % 64);
    while (open == 0 && --w >= 0)
        open = bits[w];
    return open == 0 ? -1 : w * 64 + highest(open);
}

}  // namespace

void PlaceMap::open(std::int32_t places) {
    places_ = places;
    std::fill_n(labels_, places, kNoBlock);
    std::fill_n(freeBits_, wordsFor(places), std::uint64_t{0});
    std::fill_n(openWords_, wordsFor(wordsFor(places)), std::uint64_t{0});
}

void PlaceMap::setFree(std::int32_t place) {
    labels_[place] = kNoBlock;
    freeBits_[place / 64] |= std::uint64_t{1} << bitOf(place);
    openWords_[place / 64 / 64] |= std::uint64_t{1} << bitOf(place / 64);
}

void PlaceMap::close(std::int32_t place) {
    labels_[place] = kNoBlock;
    std::uint64_t& bits = freeBits_[place / 64];
    bits &= ~(std::uint64_t{1} << bitOf(place));
    if (bits == 0) openWords_[place / 64 / 64] &= ~(std::uint64_t{1} << bitOf(place / 64));
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
    const std::int32_t w = from / 64;
    const std::uint64_t before = ~(~std::uint64_t{0} << bitOf(from));
    if ((word(from) & ~before) != 0) return w * 64 + lowest(word(from) & ~before);
    const std::int32_t next = bitBehind(openWords_, wordsFor(wordsFor(places_)), w);
    if (next >= 0) return next * 64 + lowest(freeBits_[next]);
    if ((word(from) & before) != 0) return w * 64 + highest(word(from) & before);
    const std::int32_t last = bitBefore(openWords_, w);
    return last < 0 ? -1 : last * 64 + highest(freeBits_[last]);
}

void PlaceMap::listBlocks(std::uint32_t range, std::uint32_t count, std::int32_t* list) const {
    for (std::int32_t place = 0; place < places_; ++place) {
        const std::uint32_t label = labels_[place];
        if (label >> kNumberBits == range && (label & kNumberMask) < count)
            list[label & kNumberMask] = place;
    }
}

}  // namespace tvsort
