// The locales that ICU knows.

#pragma once

#include <string>

namespace tvsort::host {

// ICU's own name of a locale that came as a name ("de_AT") or as a tag ("de-u-co-phonebk"); empty
// for "root", the order that all languages start from. ICU itself would take any text and fall back
// to its root order without a word; here a language that it does not know is bad use.
std::string icuLocaleName(const std::string& locale);

}  // namespace tvsort::host
