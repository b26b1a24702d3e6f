// Writes collation files (protocol/collation_layout.h), made from an order of the units
// (host/values/collation_order.h).
//
// A table has room for less than the units ask for. Page offsets are 16 bits, so 43 pages of 256
// entries can be told apart, and the units fill 256. One page serves all units that weigh their own
// value, which leaves 42 exact pages:
//
//     exact pages     each unit has a weight from ICU's order
//     all other units weigh their own value: each block of ideographs, syllables, private use or
//                     surrogates, and the scripts and symbols whose code order is ICU's order or
//                     nearly so, where a page of weights would say the least
//
// Own values are fixed numbers; the weights of the exact pages are dealt out around them. No two
// units that ICU tells apart get the same weight, as long as there are numbers left:
//
//     0 .. 0x33ff   what ICU puts before the ideographs: marks, symbols, digits, letters, kana;
//                   in between, out of ICU's order, scripts and symbols that weigh their own value
//     .. 0x9fff     ideographs, each of its own value
//     .. 0xffff     what ICU puts behind them; Hangul syllables and Yi, out of ICU's order
//
// There are no numbers between ideographs, so a unit that differs from an ideograph or syllable in
// form only (a radical, a circled one) weighs what that one weighs.

#pragma once

#include <cstdint>
#include <vector>

#include "host/values/collation_order.h"
#include "protocol/bytes.h"

namespace tvsort::host {

struct CollationFile {
    std::vector<Byte> bytes;
    // By high byte: whether the 256 units have an exact page.
    std::array<bool, kUnitPageCount> exactPages = {};
    // Units on exact pages that ICU tells from an ideograph or syllable and the table does not.
    std::uint32_t mergedUnits = 0;
    // Units on exact pages for which there was no number left in ICU's order: they weigh more than
    // the ideographs although ICU puts them before, or count as unmapped, all equal and last.
    std::uint32_t displacedUnits = 0;
    std::uint32_t unmappedUnits = 0;

    std::uint32_t exactUnits() const;
};

CollationFile makeCollationFile(const CollationOrder& order);

}  // namespace tvsort::host
