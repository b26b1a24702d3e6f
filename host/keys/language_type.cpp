#include "host/keys/language_type.h"

#include <unicode/ucasemap.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>

#include "host/values/icu_locale.h"
#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

struct CloseIcu {
    void operator()(UCollator* collator) const { ucol_close(collator); }
    void operator()(UCaseMap* map) const { ucasemap_close(map); }
};

[[noreturn]] void refuseBytes(std::string_view text) {
    throw badValue(text, "text", "it is not UTF-8; order it by its bytes, as text");
}

class LanguageText : public OrderedType {
  public:
    explicit LanguageText(const std::vector<std::string>& arguments) {
        const std::string name = icuLocaleName(arguments.front());
        UErrorCode status = U_ZERO_ERROR;
        collator_.reset(ucol_open(name.c_str(), &status));
        for (std::size_t i = 1; i < arguments.size(); ++i)
            setAttribute(arguments[i], status);
        if (U_FAILURE(status)) {
            throw badUse("ICU cannot open the order of \"" + arguments.front() +
                         "\": " + u_errorName(status));
        }
    }

    void append(std::string_view text, KeyBytes& key) override {
        toUnits(text);
        const std::size_t begin = key.size();
        // Most keys are not longer than this.
        key.resize(begin + 3 * units_.size() + 32);
        std::size_t byteCount = sortKey(begin, key);
        if (byteCount > key.size() - begin) {
            key.resize(begin + byteCount);
            byteCount = sortKey(begin, key);
        }
        key.resize(begin + byteCount);
    }
    bool takesEmptyText() const override { return true; }

  private:
    void setAttribute(const std::string& word, UErrorCode& status) {
        if (word == "numeric") {
            ucol_setAttribute(collator_.get(), UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
        } else if (word == "primary") {
            ucol_setAttribute(collator_.get(), UCOL_STRENGTH, UCOL_PRIMARY, &status);
        } else if (word == "secondary") {
            ucol_setAttribute(collator_.get(), UCOL_STRENGTH, UCOL_SECONDARY, &status);
        } else if (word == "tertiary") {
            ucol_setAttribute(collator_.get(), UCOL_STRENGTH, UCOL_TERTIARY, &status);
        } else {
            throw badUse("\"" + word +
                         "\" is no word of a language's order: write primary, secondary, tertiary "
                         "or numeric");
        }
    }
    void toUnits(std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        int32_t count = 0;
        units_.resize(text.size());
        u_strFromUTF8(units_.data(), static_cast<int32_t>(units_.size()), &count, text.data(),
                      static_cast<int32_t>(text.size()), &status);
        if (U_FAILURE(status)) refuseBytes(text);
        units_.resize(static_cast<std::size_t>(count));
    }
    std::size_t sortKey(std::size_t begin, KeyBytes& key) const {
        return static_cast<std::size_t>(
            ucol_getSortKey(collator_.get(), units_.data(), static_cast<int32_t>(units_.size()),
                            key.data() + begin, static_cast<int32_t>(key.size() - begin)));
    }

    std::unique_ptr<UCollator, CloseIcu> collator_;
    std::u16string units_;
};

}  // namespace

std::unique_ptr<OrderedType> makeLanguageText(const std::vector<std::string>& arguments) {
    return std::make_unique<LanguageText>(arguments);
}

void foldCase(std::string_view text, std::string& folded) {
    UErrorCode status = U_ZERO_ERROR;
    thread_local const std::unique_ptr<UCaseMap, CloseIcu> map(ucasemap_open("", 0, &status));
    int32_t unitCount = 0;
    u_strFromUTF8(nullptr, 0, &unitCount, text.data(), static_cast<int32_t>(text.size()), &status);
    if (status == U_INVALID_CHAR_FOUND) refuseBytes(text);
    status = U_ZERO_ERROR;
    // Folding makes three characters of one at most.
    folded.resize(3 * text.size());
    const int32_t byteCount =
        ucasemap_utf8FoldCase(map.get(), folded.data(), static_cast<int32_t>(folded.size()),
                              text.data(), static_cast<int32_t>(text.size()), &status);
    if (U_FAILURE(status)) throw badValue(text, "text", "its case cannot be folded");
    folded.resize(static_cast<std::size_t>(byteCount));
}

}  // namespace tvsort::host
