#include "host/values/collation_order.h"

#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/ulocdata.h>
#include <unicode/unorm2.h>
#include <unicode/uset.h>

#include <algorithm>
#include <memory>
#include <numeric>

#include "host/host_error.h"
#include "host/values/icu_locale.h"

namespace tvsort::host {

namespace {

struct CloseIcu {
    void operator()(UCollator* collator) const { ucol_close(collator); }
    void operator()(ULocaleData* data) const { ulocdata_close(data); }
    void operator()(USet* set) const { uset_close(set); }
};
template <typename Object>
using IcuHandle = std::unique_ptr<Object, CloseIcu>;

void checkIcu(UErrorCode status, const std::string& what) {
    if (U_SUCCESS(status)) return;
    throw badUse("ICU could not " + what + ": " + u_errorName(status));
}

UCollationStrength icuStrength(CollationStrength strength) {
    switch (strength) {
        case CollationStrength::kPrimary:
            return UCOL_PRIMARY;
        case CollationStrength::kSecondary:
            return UCOL_SECONDARY;
        case CollationStrength::kTertiary:
            break;
    }
    return UCOL_TERTIARY;
}

IcuHandle<UCollator> openCollator(const std::string& icuName) {
    UErrorCode status = U_ZERO_ERROR;
    IcuHandle<UCollator> collator(ucol_open(icuName.c_str(), &status));
    checkIcu(status, "open the collation of the locale \"" + icuName + "\"");
    const int32_t rootOrder = UCOL_REORDER_CODE_NONE;
    ucol_setReorderCodes(collator.get(), &rootOrder, 1, &status);
    checkIcu(status, "set the order of scripts");
    return collator;
}

std::string sortKey(const UCollator* collator, UChar unit) {
    std::vector<std::uint8_t> key(64);
    const auto capacity = static_cast<int32_t>(key.size());
    int32_t length = ucol_getSortKey(collator, &unit, 1, key.data(), capacity);
    if (length > capacity) {
        key.resize(static_cast<std::size_t>(length));
        length = ucol_getSortKey(collator, &unit, 1, key.data(), length);
    }
    return std::string(key.begin(), key.begin() + length);
}

// Sort keys compare as their strings do, and are the same exactly for strings that are equal.
std::vector<std::uint32_t> placesOf(UCollator* collator, CollationStrength strength) {
    ucol_setStrength(collator, icuStrength(strength));
    std::vector<std::string> keys;
    keys.reserve(kUnitCount);
    for (std::uint32_t unit = 0; unit < kUnitCount; ++unit) {
        keys.push_back(sortKey(collator, static_cast<UChar>(unit)));
    }
    std::vector<std::uint32_t> units(kUnitCount);
    std::iota(units.begin(), units.end(), 0U);
    std::sort(units.begin(), units.end(), [&keys](std::uint32_t left, std::uint32_t right) {
        return keys[left] < keys[right];
    });
    std::vector<std::uint32_t> places(kUnitCount);
    std::uint32_t place = 0;
    for (std::uint32_t i = 0; i < kUnitCount; ++i) {
        if (i > 0 && keys[units[i]] != keys[units[i - 1]]) place += 1;
        places[units[i]] = place;
    }
    return places;
}

bool standsForOne(const UNormalizer2* compatibility, UChar unit) {
    if (u_isdefined(unit) == 0) return false;
    UChar form[32];
    UErrorCode status = U_ZERO_ERROR;
    return unorm2_normalize(compatibility, &unit, 1, form, 32, &status) == 1;
}

UnitKind kindOf(UChar32 character) {
    if (u_hasBinaryProperty(character, UCHAR_UNIFIED_IDEOGRAPH) != 0) return UnitKind::kIdeograph;
    const int32_t syllable = u_getIntPropertyValue(character, UCHAR_HANGUL_SYLLABLE_TYPE);
    const bool isSyllable = syllable == U_HST_LV_SYLLABLE || syllable == U_HST_LVT_SYLLABLE;
    return isSyllable ? UnitKind::kSyllable : UnitKind::kOther;
}

void addProperties(CollationOrder& order) {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* const compatibility = unorm2_getNFKCInstance(&status);
    checkIcu(status, "load its normalization data");
    for (std::uint32_t unit = 0; unit < kUnitCount; ++unit) {
        order.kinds.push_back(kindOf(static_cast<UChar32>(unit)));
        order.standsForOne.push_back(standsForOne(compatibility, static_cast<UChar>(unit)));
    }
}

void addOwnLetters(const std::string& icuName, CollationOrder& order) {
    UErrorCode status = U_ZERO_ERROR;
    const IcuHandle<ULocaleData> data(ulocdata_open(icuName.c_str(), &status));
    const IcuHandle<USet> letters(uset_openEmpty());
    for (const auto kind : {ULOCDATA_ES_STANDARD, ULOCDATA_ES_AUXILIARY, ULOCDATA_ES_PUNCTUATION}) {
        const IcuHandle<USet> some(ulocdata_getExemplarSet(data.get(), nullptr, 0, kind, &status));
        checkIcu(status, "list the letters of the locale \"" + icuName + "\"");
        uset_addAll(letters.get(), some.get());
    }
    for (std::uint32_t unit = 0; unit < kUnitCount; ++unit) {
        if (uset_contains(letters.get(), static_cast<UChar32>(unit)) == 0) continue;
        order.ownLetters[unit >> 8] = true;
    }
}

}  // namespace

CollationOrder collationOrder(const std::string& locale, CollationStrength strength) {
    const std::string icuName = icuLocaleName(locale);
    const IcuHandle<UCollator> collator = openCollator(icuName);
    CollationOrder order;
    order.places = placesOf(collator.get(), strength);
    order.primaryPlaces = placesOf(collator.get(), CollationStrength::kPrimary);
    addProperties(order);
    addOwnLetters(icuName, order);
    return order;
}

}  // namespace tvsort::host
