#include "tools/ordered/order_check.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/values/value_text.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{32} * 1024;
constexpr std::size_t kShownBytesMax = 200;

std::string named(const InputPlaces& places, const RowPlace& place) {
    const std::size_t byteCount = std::min<std::size_t>(place.byteCount, kShownBytesMax);
    std::vector<Byte> bytes(byteCount);
    places.readAt(place.offset, bytes.data(), bytes.size());
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    while (text.ends_with('\n') || text.ends_with('\r'))
        text.remove_suffix(1);
    return fmt::format("{}, \"{}\",", places.nameOf(place.offset), host::shownText(text));
}

}  // namespace

int compareKeys(const RowOfInput& left, const RowOfInput& right) {
    const auto order = [](const host::KeyBytes& one, const host::KeyBytes& other) {
        return one < other ? -1 : one == other ? 0 : 1;
    };
    const int held = order(*left.row.key, *right.row.key);
    const bool areWhole = left.row.isKeyWhole && right.row.isKeyWhole;
    if (held != 0 || areWhole) return held;
    host::KeyBytes leftPart;
    host::KeyBytes rightPart;
    for (std::uint64_t from = 0;; from += kPieceBytes) {
        const KeyPart leftRead =
            left.input.reader().keyPart(left.row.place, from, kPieceBytes, leftPart);
        const KeyPart rightRead =
            right.input.reader().keyPart(right.row.place, from, kPieceBytes, rightPart);
        const int part = order(leftPart, rightPart);
        if (part != 0 || leftRead.endsKey || rightRead.endsKey) return part;
    }
}

bool OrderCheck::mayFollow(const KeyedRow& row) {
    before_ = last_;
    last_ = row.place;
    rowBefore_.key = &keyBefore_;
    const bool mayFollow =
        !before_.has_value() || compareKeys({input_, rowBefore_}, {input_, row}) <= 0;
    rowBefore_ = row;
    keyBefore_ = *row.key;
    return mayFollow;
}

std::string OrderCheck::fault() const {
    const InputPlaces& places = input_.input().places();
    return fmt::format("{} must not stand behind {}", named(places, last_.value()),
                       named(places, before_.value()));
}

}  // namespace tvsort::tools
