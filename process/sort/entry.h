// What stands for a record while its place is looked for: digits of its key and its number.
//
//     0   u64   digits: a window on the key (keys/key_window.h)
//     8   u32   the record's index in the data set, from 0
//
// Twelve bytes, unaligned: fewer bytes to move pay more than an aligned load.

#pragma once

#include <algorithm>
#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort {

struct Entry {
    Byte digitBytes[8];
    std::uint32_t index;

    std::uint64_t digits() const { return loadAs<std::uint64_t>(digitBytes); }
    void setDigits(std::uint64_t digits) { storeAs(digitBytes, digits); }
};
static_assert(sizeof(Entry) == 12);

// The number of an entry that stands in the slot, as an index below `count`: loaded once, so that
// what has been bounded is what is used.
inline std::uint32_t boundedIndex(const Entry& entry, std::uint32_t count) {
    const auto index = loadOnce<std::uint32_t>(reinterpret_cast<const Byte*>(&entry.index));
    return std::min(index, count - 1);
}

inline Entry makeEntry(std::uint64_t digits, std::uint32_t index) {
    Entry entry;
    entry.setDigits(digits);
    entry.index = index;
    return entry;
}

}  // namespace tvsort
