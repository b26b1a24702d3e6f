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

bool OrderCheck::mayFollow(const KeyedRow& row) {
    bool mayFollow = true;
    before_ = last_;
    last_ = row.place;
    if (before_.has_value()) {
        const bool areWhole = isKeyBeforeWhole_ && row.isKeyWhole;
        mayFollow = keyBefore_ == *row.key && !areWhole ? !standsBefore(*last_, *before_)
                                                        : keyBefore_ <= *row.key;
    }
    keyBefore_ = *row.key;
    isKeyBeforeWhole_ = row.isKeyWhole;
    return mayFollow;
}

bool OrderCheck::standsBefore(const RowPlace& left, const RowPlace& right) {
    host::KeyBytes leftPart;
    host::KeyBytes rightPart;
    for (std::uint64_t from = 0;; from += kPieceBytes) {
        const KeyPart leftRead = input_.keyPart(left, from, kPieceBytes, leftPart);
        const KeyPart rightRead = input_.keyPart(right, from, kPieceBytes, rightPart);
        if (leftPart != rightPart) return leftPart < rightPart;
        if (leftRead.endsKey || rightRead.endsKey) return false;
    }
}

std::string OrderCheck::fault() const {
    const InputPlaces& places = input_.places();
    return fmt::format("{} must not stand behind {}", named(places, last_.value()),
                       named(places, before_.value()));
}

}  // namespace tvsort::tools
