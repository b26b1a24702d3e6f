#include "host/random_name.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdint>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

constexpr std::string_view kLetters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

}  // namespace

std::string randomName() {
    unsigned char drawn[4 * kRandomNameChars];
    ssize_t got = 0;
    do {
        got = getrandom(drawn, sizeof drawn, 0);
    } while (got < 0 && errno == EINTR);
    // So few bytes come whole or not at all.
    if (got != static_cast<ssize_t>(sizeof drawn)) {
        throw systemFailure("cannot draw a random name", errno);
    }
    std::string name;
    for (std::size_t i = 0; i < kRandomNameChars; ++i) {
        std::uint32_t number = 0;
        for (std::size_t byte = 0; byte < 4; ++byte)
            number = number << 8 | drawn[4 * i + byte];
        name += kLetters[number % kLetters.size()];
    }
    return name;
}

bool isRandomName(std::string_view text) {
    return text.size() == kRandomNameChars && text.find_first_not_of(kLetters) == text.npos;
}

}  // namespace tvsort::host
