#include "host/values/ucs2_text.h"

#include <errno.h>
#include <iconv.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

class Converter {
  public:
    Converter() : handle_(iconv_open("UCS-2LE", "UTF-8")) {
        if (reinterpret_cast<std::intptr_t>(handle_) == -1) {
            throw systemFailure("converting UTF-8 to UCS-2", errno,
                                "the C library's character conversions are not installed");
        }
    }
    ~Converter() { iconv_close(handle_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // What could be converted, and the units that it gave. The text must not be empty, and the
    // target must have room for a unit per byte.
    struct Progress {
        std::size_t textBytes;
        std::size_t targetBytes;
    };
    Progress convert(std::string_view text, Byte* target) {
        // The interface is older than const; nothing is written there.
        char* from = const_cast<char*>(text.data());
        char* to = reinterpret_cast<char*>(target);
        std::size_t textLeft = text.size();
        std::size_t targetLeft = 2 * text.size();
        iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        iconv(handle_, &from, &textLeft, &to, &targetLeft);
        return {text.size() - textLeft, 2 * text.size() - targetLeft};
    }

  private:
    iconv_t handle_;
};

bool startsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
}

// The character behind the lead byte of a sequence of four, or 0 when that is not what it is.
std::uint32_t characterBeyondPlane(std::string_view rest) {
    if (rest.size() < 4 || (static_cast<unsigned char>(rest[0]) & 0xf8) != 0xf0) return 0;
    std::uint32_t character = static_cast<unsigned char>(rest[0]) & 0x07U;
    for (std::size_t i = 1; i < 4; ++i) {
        if (startsCharacter(rest[i])) return 0;
        character = character << 6 | (static_cast<unsigned char>(rest[i]) & 0x3fU);
    }
    return character >= 0x10000 && character <= 0x10ffff ? character : 0;
}

[[noreturn]] void bad(std::string_view text, std::size_t converted) {
    const auto before = std::count_if(
        text.begin(), text.begin() + static_cast<std::ptrdiff_t>(converted), startsCharacter);
    const std::string number = "character " + std::to_string(before + 1);
    const std::uint32_t character = characterBeyondPlane(text.substr(converted));
    if (character == 0) throw badValue(text, "text", number + " is not UTF-8");
    char name[16];
    std::snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(character));
    throw badValue(text, "UCS-2 text",
                   number + ", " + name + ", lies beyond the basic plane, which ends at U+FFFF");
}

}  // namespace

void appendUcs2(std::string_view text, std::vector<Byte>& target) {
    thread_local Converter converter;
    if (text.empty()) return;
    const std::size_t start = target.size();
    target.resize(start + 2 * text.size());
    const Converter::Progress done = converter.convert(text, target.data() + start);
    if (done.textBytes < text.size()) {
        target.resize(start);
        bad(text, done.textBytes);
    }
    target.resize(start + done.targetBytes);
}

}  // namespace tvsort::host
