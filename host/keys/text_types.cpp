#include "host/keys/text_types.h"

#include <algorithm>
#include <charconv>

#include "host/keys/language_type.h"
#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isLetter(char character) {
    const int lower = character | 0x20;
    return lower >= 'a' && lower <= 'z';
}

class PlainText : public OrderedType {
  public:
    void append(std::string_view text, KeyBytes& key) override { appendText(text, key); }
    bool takesEmptyText() const override { return true; }
    bool isPlainText() const override { return true; }
};

class LimitedText : public OrderedType {
  public:
    explicit LimitedText(std::size_t bytesMax) : bytesMax_(bytesMax) {}
    void append(std::string_view text, KeyBytes& key) override {
        if (text.size() > bytesMax_) {
            throw badValue(text, "value of up to " + std::to_string(bytesMax_) + " bytes",
                           "it has " + std::to_string(text.size()) +
                               "; shorten it, or leave the LENGTH of its key out");
        }
        appendText(text, key);
    }
    bool takesEmptyText() const override { return true; }

  private:
    std::size_t bytesMax_;
};

class FoldedText : public OrderedType {
  public:
    void append(std::string_view text, KeyBytes& key) override {
        const bool isAscii = std::all_of(text.begin(), text.end(), [](char character) {
            return static_cast<unsigned char>(character) < 0x80;
        });
        if (isAscii) {
            folded_.assign(text);
            std::transform(folded_.begin(), folded_.end(), folded_.begin(), [](char character) {
                return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32)
                                                            : character;
            });
        } else {
            foldCase(text, folded_);
        }
        appendText(folded_, key);
    }
    bool takesEmptyText() const override { return true; }

  private:
    std::string folded_;
};

// The digits of a run, from its first one on, without leading zeros.
std::string_view digitsOf(std::string_view run) {
    return run.substr(std::min(run.find_first_not_of('0'), run.size()));
}

std::string_view runAt(std::string_view text, std::size_t begin) {
    std::size_t end = begin;
    while (end < text.size() && isDigit(text[end]))
        end += 1;
    return text.substr(begin, end - begin);
}

void appendDigits(std::string_view digits, KeyBytes& key) {
    appendCompact(static_cast<std::int64_t>(digits.size()), key);
    key.insert(key.end(), digits.begin(), digits.end());
}

class NaturalType : public OrderedType {
  public:
    void append(std::string_view text, KeyBytes& key) override {
        zeros_.clear();
        for (std::size_t i = 0; i < text.size();) {
            const std::string_view run = runAt(text, i);
            if (run.empty()) {
                appendTextBytes(text.substr(i, 1), key);
                i += 1;
                continue;
            }
            const std::string_view digits = digitsOf(run);
            key.push_back('0');
            appendDigits(digits, key);
            zeros_.push_back(static_cast<std::int64_t>(run.size() - digits.size()));
            i += run.size();
        }
        key.push_back(kTextEnd);
        for (const std::int64_t count : zeros_)
            appendCompact(count, key);
    }
    bool takesEmptyText() const override { return true; }

  private:
    std::vector<std::int64_t> zeros_;
};

enum class VersionMark : std::uint8_t {
    kTilde = 1,
    kZerosBeforeTilde,
    kEnd,
    kDigits,
    kOther = 0x80
};

class VersionType : public OrderedType {
  public:
    void append(std::string_view text, KeyBytes& key) override {
        key.push_back(classOf(text));
        const std::string_view stem = text.substr(0, stemLength(text));
        appendWalk(stem, key);
        const bool hasSuffix = stem.size() < text.size();
        key.push_back(hasSuffix ? 1 : 0);
        if (hasSuffix) appendWalk(text, key);
    }
    bool takesEmptyText() const override { return true; }

  private:
    static Byte classOf(std::string_view text) {
        if (text.empty()) return 0;
        if (text == ".") return 1;
        if (text == "..") return 2;
        return text[0] == '.' ? 3 : 4;
    }
    // Suffixes are a point, a letter or tilde, and letters, digits and tildes, at the end; a text
    // may be nothing else.
    static std::size_t stemLength(std::string_view text) {
        const auto isPart = [](char character) {
            return isLetter(character) || isDigit(character) || character == '~';
        };
        std::size_t stem = 0;
        for (std::size_t i = 0;;) {
            while (i + 1 < text.size() && text[i] == '.' &&
                   (isLetter(text[i + 1]) || text[i + 1] == '~')) {
                i += 2;
                while (i < text.size() && isPart(text[i]))
                    i += 1;
            }
            if (i == text.size()) return stem;
            i += 1;
            stem = i;
        }
    }
    static void mark(VersionMark mark, KeyBytes& key) { key.push_back(static_cast<Byte>(mark)); }
    static void appendWalk(std::string_view text, KeyBytes& key) {
        for (std::size_t i = 0; i < text.size();) {
            const std::string_view run = runAt(text, i);
            i += std::max<std::size_t>(run.size(), 1);
            const char character = text[i - 1];
            if (!run.empty()) {
                const std::string_view digits = digitsOf(run);
                if (digits.empty() && i == text.size()) break;
                if (digits.empty() && text[i] == '~') {
                    mark(VersionMark::kZerosBeforeTilde, key);
                    continue;
                }
                mark(VersionMark::kDigits, key);
                appendDigits(digits, key);
            } else if (character == '~') {
                mark(VersionMark::kTilde, key);
            } else {
                if (!isLetter(character)) mark(VersionMark::kOther, key);
                key.push_back(static_cast<Byte>(character));
            }
        }
        mark(VersionMark::kEnd, key);
    }
};

}  // namespace

std::unique_ptr<OrderedType> makeText(const TypeText& text) {
    if (text.arguments.empty()) return std::make_unique<PlainText>();
    const std::string& first = text.arguments.front();
    const bool isAlone = text.arguments.size() == 1;
    std::size_t length = 0;
    const char* const end = first.data() + first.size();
    const auto [stop, status] = std::from_chars(first.data(), end, length);
    if (isAlone && status == std::errc() && stop == end)
        return std::make_unique<LimitedText>(length);
    if (text.name != "text") throw badUse("\"" + first + "\" is not known");
    if (first == "nocase" && isAlone) return std::make_unique<FoldedText>();
    return makeLanguageText(text.arguments);
}

std::unique_ptr<OrderedType> makeNatural(const TypeText&) {
    return std::make_unique<NaturalType>();
}

std::unique_ptr<OrderedType> makeVersion(const TypeText&) {
    return std::make_unique<VersionType>();
}

}  // namespace tvsort::host
