#include "tools/formats/lines/line_record.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "tools/formats/stored_length.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPrefix = sizeof(std::uint16_t);

KeyDescriptor partKey(std::size_t offset, std::size_t lengthMax) {
    return host::ascendingKey(DataType::kString, static_cast<std::uint16_t>(offset),
                              static_cast<std::uint16_t>(kPrefix + lengthMax));
}

// What the part does not fill is cleared: equal lines make equal records.
void encodePart(std::string_view part, std::size_t partMax, Byte* target) {
    storeAs(target, static_cast<std::uint16_t>(part.size()));
    std::copy(part.begin(), part.end(), target + kPrefix);
    std::fill(target + kPrefix + part.size(), target + kPrefix + partMax, Byte{0});
}

std::size_t decodePart(const Byte* part, std::size_t partMax, Byte* target) {
    const std::size_t byteCount = storedLength(part, partMax);
    std::copy_n(part + kPrefix, byteCount, target);
    return byteCount;
}

}  // namespace

LineRecord::LineRecord(std::size_t lineBytesMax)
    : firstPartMax_(std::min(lineBytesMax, kLinePartBytesMax)),
      secondPartMax_(lineBytesMax - firstPartMax_),
      recordLength_(static_cast<std::uint16_t>(
          kPrefix + firstPartMax_ + (secondPartMax_ > 0 ? kPrefix + secondPartMax_ : 0))) {
    assert(lineBytesMax <= kLineBytesMax);
}

host::RequestBuilder LineRecord::request() const {
    host::RequestBuilder request;
    request.addKey(partKey(0, firstPartMax_));
    if (secondPartMax_ > 0) request.addKey(partKey(kPrefix + firstPartMax_, secondPartMax_));
    return request;
}

std::vector<RecordField> LineRecord::fields() const {
    const std::size_t first = kPrefix + firstPartMax_;
    if (secondPartMax_ == 0) return {{0, first, "line"}};
    return {{0, first, "line, first part"}, {first, kPrefix + secondPartMax_, "line, rest"}};
}

void LineRecord::encode(std::string_view line, Byte* target) const {
    const std::string_view first = line.substr(0, firstPartMax_);
    encodePart(first, firstPartMax_, target);
    if (secondPartMax_ > 0) {
        encodePart(line.substr(first.size()), secondPartMax_, target + kPrefix + firstPartMax_);
    }
}

std::string_view LineRecord::firstPart(const Byte* record) {
    return {reinterpret_cast<const char*>(record + kPrefix), loadU16(record)};
}

std::size_t LineRecord::decode(const Byte* record, Byte* target) const {
    const std::size_t first = decodePart(record, firstPartMax_, target);
    if (secondPartMax_ == 0) return first;
    return first + decodePart(record + kPrefix + firstPartMax_, secondPartMax_, target + first);
}

}  // namespace tvsort::tools
