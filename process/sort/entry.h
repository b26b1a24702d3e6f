// What stands for a record while its place is looked for: digits of its key and its number.
//
//     0   u64   digits: a window on the key (keys/key_window.h)
//     8   u32   the record's index in the data set, from 0
//
// Twelve bytes, unaligned: fewer bytes to move pay more than an aligned load.

#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

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

// The bits in which the digits of entries differ.
inline std::uint64_t varyingBits(const Entry* entries, std::uint32_t count) {
    std::uint64_t varying = 0;
    const std::uint64_t first = entries[0].digits();
    for (std::uint32_t i = 1; i < count; ++i)
        varying |= entries[i].digits() ^ first;
    return varying;
}

// Moves `count` entries to `target`, stably, by the `bits` bits of their digits from `shift` on.
// Entry e of `ends` becomes the end of those with the value e.
template <std::uint32_t bits>
void distributeEntries(const Entry* source, Entry* target, std::uint32_t count, std::uint32_t shift,
                       std::uint32_t (&ends)[1U << bits]) {
    constexpr std::uint32_t kWriteAhead = 12;  // entries of a part that are asked for
    const auto partOf = [shift](const Entry& entry) {
        return static_cast<std::uint32_t>(entry.digits() >> shift) % (1U << bits);
    };
    std::fill_n(ends, 1U << bits, 0U);
    for (std::uint32_t i = 0; i < count; ++i)
        ends[partOf(source[i])] += 1;
    std::uint32_t before = 0;
    for (std::uint32_t& end : ends)
        before += std::exchange(end, before);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t place = ends[partOf(source[i])]++;
        // Out of bounds only where digits in the slot have changed since they were counted.
        if (place >= count) continue;
        target[place] = source[i];
        __builtin_prefetch(target + place + kWriteAhead, 1);
    }
}

}  // namespace tvsort
