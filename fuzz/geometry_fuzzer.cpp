// Two geometry values against each other, whatever their bytes are.
//
//     0   u8    geometry type of the key
//     1   u8    1: the values are stored envelopes
//     2   u8    length of the left value; what is left is the right one
//     3   ...   the values

#include <cstdlib>
#include <vector>

#include "process/keys/geometry_envelope.h"

using namespace tvsort;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// Memory of just the value's size, so that the address sanitizer sees a step beyond it.
std::vector<Byte> takeValue(const Byte*& next, std::size_t& left, std::size_t length) {
    const std::size_t taken = length < left ? length : left;
    std::vector<Byte> value(next, next + taken);
    next += taken;
    left -= taken;
    return value;
}

void checkEnvelope(std::uint8_t type, const std::vector<Byte>& value) {
    const auto length = static_cast<std::uint32_t>(value.size());
    std::uint32_t position = 0;
    Envelope envelope = {};
    if (!geometryEnvelope(type, value.data(), length, position, envelope)) return;
    require(position > 0 && position <= length);
    // The end of a geometry is where it would have to be cut to become unreadable.
    std::uint32_t again = 0;
    require(geometryEnvelope(type, value.data(), position, again, envelope));
    require(again == position);
    again = 0;
    require(!geometryEnvelope(type, value.data(), position - 1, again, envelope));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const Byte* data, std::size_t size) {
    constexpr std::size_t kHeadBytes = 3;
    if (size < kHeadBytes) return 0;
    const std::uint8_t type = data[0];
    const bool storedEnvelope = data[1] == 1;
    const std::size_t leftLength = data[2];
    const Byte* next = data + kHeadBytes;
    std::size_t remaining = size - kHeadBytes;
    const std::vector<Byte> left = takeValue(next, remaining, leftLength);
    const std::vector<Byte> right = takeValue(next, remaining, remaining);
    const auto compare = [&](const std::vector<Byte>& first, const std::vector<Byte>& second,
                             int& order) {
        return compareGeometryKeys(type, storedEnvelope, first.data(),
                                   static_cast<std::int32_t>(first.size()), second.data(),
                                   static_cast<std::int32_t>(second.size()), order);
    };
    int forward = 0;
    int backward = 0;
    const bool readable = compare(left, right, forward);
    require(compare(right, left, backward) == readable);
    if (readable) {
        require(forward == -backward && forward >= -1 && forward <= 1);
        require(compare(left, left, forward) && forward == 0);
    }
    checkEnvelope(type, left);
    checkEnvelope(type, right);
    return 0;
}
