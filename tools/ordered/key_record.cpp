#include "tools/ordered/key_record.h"

#include <fmt/format.h>

#include <algorithm>

namespace tvsort::tools {

namespace {

constexpr std::size_t kGroupBytes = 5;
constexpr std::size_t kPlaceBytes = 6;
constexpr std::size_t kLengthBytes = 4;
constexpr std::uint64_t kGoesOnBit = std::uint64_t{1} << 47;
constexpr std::uint64_t kNullBit = std::uint64_t{1} << 46;

template <std::size_t kByteCount>
void storeBig(Byte* target, std::uint64_t number) {
    for (std::size_t i = kByteCount; i-- > 0; number >>= 8)
        target[i] = static_cast<Byte>(number);
}

template <std::size_t kByteCount>
std::uint64_t loadBig(const Byte* source) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < kByteCount; ++i)
        number = number << 8 | source[i];
    return number;
}

}  // namespace

KeyRecord::KeyRecord(const Form& form)
    : form_(form),
      placeOffset_((form.hasGroups ? kGroupBytes : 0) + form.keyBytes),
      length_(placeOffset_ + kPlaceBytes + kLengthBytes) {}

host::RequestBuilder KeyRecord::request() const {
    host::RequestBuilder request;
    request.addKey(host::ascendingKey(DataType::kBytes, 0,
                                      static_cast<std::uint16_t>(placeOffset_ + kPlaceBytes)));
    return request;
}

std::vector<RecordField> KeyRecord::fields(const std::string& keysInWords) const {
    return {{0, placeOffset_ + kPlaceBytes,
             fmt::format("{} bytes of {}; place", form_.keyBytes, keysInWords)},
            {placeOffset_ + kPlaceBytes, kLengthBytes, "length of the row"}};
}

void KeyRecord::encode(const RecordRow& row, std::string_view key, Byte* target) const {
    Byte* const keyBytes = target + placeOffset_ - form_.keyBytes;
    if (form_.hasGroups) storeBig<kGroupBytes>(target, row.group);
    std::fill(std::copy(key.begin(), key.end(), keyBytes), target + placeOffset_, Byte{0});
    setRow(target, row);
}

void KeyRecord::setRow(Byte* record, const RecordRow& row) const {
    storeBig<kPlaceBytes>(record + placeOffset_, row.place.offset |
                                                     (row.keyGoesOn ? kGoesOnBit : 0) |
                                                     (row.hasNull ? kNullBit : 0));
    storeAs(record + placeOffset_ + kPlaceBytes, row.place.byteCount);
}

RecordRow KeyRecord::decode(const Byte* record) const {
    RecordRow row;
    if (form_.hasGroups) row.group = loadBig<kGroupBytes>(record);
    const std::uint64_t place = loadBig<kPlaceBytes>(record + placeOffset_);
    row.keyGoesOn = (place & kGoesOnBit) != 0;
    row.hasNull = (place & kNullBit) != 0;
    row.place = {place & kPlaceMax, loadAs<std::uint32_t>(record + placeOffset_ + kPlaceBytes)};
    return row;
}

}  // namespace tvsort::tools
