// What stands at the places of the work file while blocks are distributed: places count from 0 and
// hold one block each.
//
// A place is free, or holds a block that has not been read yet, or a block of a range: then the map
// knows the range and the block's number in it. So a block can be put anywhere, and a range read in
// its order. The map is the process's own, 4 bytes and a bit for each place: the process follows it
// blindly, and in the slot another writer could change it. A bit for every 64 places tells whether
// one of them is free: the first pass asks for free places while almost none are, for each block.

#pragma once

#include <cstdint>

namespace tvsort {

inline constexpr std::int32_t kPlacesMax = std::int32_t{1} << 22;
// Of ranges, from 0.
inline constexpr std::uint32_t kRangeNumbersMax = 1023;

struct StoredBlock {
    std::uint32_t range;
    std::uint32_t number;  // from 0
};

class PlaceMap {
  public:
    // Starts with `places` places, none of them free, none with a block of a range.
    void open(std::int32_t places);

    std::int32_t places() const { return places_; }
    bool isFree(std::int32_t place) const { return (word(place) >> bitOf(place) & 1) != 0; }
    void setFree(std::int32_t place);
    // The place is not free any more and holds nothing that will be asked for.
    void close(std::int32_t place);
    void store(std::int32_t place, StoredBlock block);

    // Whether a block of a range stands there: answers it in `block`.
    bool holdsBlock(std::int32_t place, StoredBlock& block) const;
    // The first free place from `from` on, or the last one before it; -1 where none is free.
    std::int32_t findFree(std::int32_t from) const;
    // Sets `list[n]` to the place of block n of the range, for its `count` blocks.
    void listBlocks(std::uint32_t range, std::uint32_t count, std::int32_t* list) const;

  private:
    static std::uint32_t bitOf(std::int32_t place) {
        return static_cast<std::uint32_t>(place) % 64;
    }
    const std::uint64_t& word(std::int32_t place) const { return freeBits_[place / 64]; }

    std::int32_t places_;
    std::uint32_t labels_[kPlacesMax];
    std::uint64_t freeBits_[kPlacesMax / 64];
    std::uint64_t openWords_[kPlacesMax / 64 / 64];  // words of freeBits_ that are not 0
};

}  // namespace tvsort
