// The order of the 65,536 UCS-2 code units in a locale, as ICU has it.
//
// ICU orders strings; the order of units is that of the strings of one unit each. Units that ICU
// calls equal at the chosen strength share a place:
//
//     primary     letters count: a = A = á < b
//     secondary   accents count as well: a = A < á < b
//     tertiary    case and other variants count as well: a < A < á < Á < b
//
// The order of scripts is ICU's root order in every locale: the languages that ICU sorts behind
// their own ideographs or syllables could not be expressed (host/values/collation_writer.h says
// why). Surrogates count as units without a character.
//
// This header and its source, host/values/icu_locale.h and host/keys/language_type.h are all that
// knows ICU.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tvsort::host {

inline constexpr std::uint32_t kUnitCount = 65536;
inline constexpr std::uint32_t kUnitPageCount = 256;

enum class CollationStrength : std::uint8_t { kPrimary, kSecondary, kTertiary };

// Ideographs and syllables make up long blocks in which ICU's order is, or nearly is, code order.
enum class UnitKind : std::uint8_t { kOther, kIdeograph, kSyllable };

struct CollationOrder {
    // By unit: its place in the order, from 0; equal units share one, and no place is left out.
    std::vector<std::uint32_t> places;
    // The same at primary strength: units that differ in accent, case or form only share a place.
    std::vector<std::uint32_t> primaryPlaces;
    std::vector<UnitKind> kinds;
    // By unit: whether it stands for itself or one other unit, and not for several in a row.
    std::vector<bool> standsForOne;
    // By high byte: whether letters or marks of the locale's own are among the 256 units.
    std::array<bool, kUnitPageCount> ownLetters = {};
};

// Asks ICU. `locale` is a language tag ("fr", "de-u-co-phonebk") or an ICU name ("de_AT"), "root"
// for the order that all locales start from. A locale that ICU does not know is bad use.
CollationOrder collationOrder(const std::string& locale, CollationStrength strength);

}  // namespace tvsort::host
