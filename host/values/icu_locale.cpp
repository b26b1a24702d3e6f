#include "host/values/icu_locale.h"

#include <unicode/uloc.h>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

bool isKnownLanguage(const std::string& icuName) {
    char wanted[ULOC_LANG_CAPACITY] = "";
    UErrorCode status = U_ZERO_ERROR;
    uloc_getLanguage(icuName.c_str(), wanted, sizeof wanted, &status);
    const std::string language = wanted;
    if (U_FAILURE(status)) return false;
    if (language.empty()) return icuName.empty() || icuName[0] == '@';
    for (int32_t i = 0; i < uloc_countAvailable(); ++i) {
        char known[ULOC_LANG_CAPACITY] = "";
        uloc_getLanguage(uloc_getAvailable(i), known, sizeof known, &status);
        if (language == known) return true;
    }
    return false;
}

}  // namespace

std::string icuLocaleName(const std::string& locale) {
    if (locale == "root") return "";
    char name[ULOC_FULLNAME_CAPACITY] = "";
    UErrorCode status = U_ZERO_ERROR;
    int32_t parsed = 0;
    uloc_forLanguageTag(locale.c_str(), name, sizeof name, &parsed, &status);
    const bool isTag = U_SUCCESS(status) && static_cast<std::size_t>(parsed) == locale.size();
    std::string icuName = isTag ? name : locale;
    if (locale.empty() || !isKnownLanguage(icuName)) {
        throw badUse("ICU knows no locale \"" + locale +
                     "\"; name one such as fr, de or de-u-co-phonebk, or root");
    }
    return icuName;
}

}  // namespace tvsort::host
