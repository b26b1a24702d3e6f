// Exchanging two records.

#pragma once

#include <cstddef>
#include <cstring>

#include "protocol/bytes.h"

namespace tvsort {

template <std::size_t bytes>
inline void exchangeBytes(Byte*& left, Byte*& right) {
    Byte leftBytes[bytes];
    Byte rightBytes[bytes];
    std::memcpy(leftBytes, left, bytes);
    std::memcpy(rightBytes, right, bytes);
    std::memcpy(left, rightBytes, bytes);
    std::memcpy(right, leftBytes, bytes);
    left += bytes;
    right += bytes;
}

// Exchanges `length` bytes that do not overlap. In steps of fixed sizes, which are registers to the
// compiler: three calls of memcpy by way of a buffer take twice as long for records of some hundred
// bytes.
inline void exchangeRecords(Byte* left, Byte* right, std::size_t length) {
    for (std::size_t steps = length / 32; steps > 0; --steps)
        exchangeBytes<32>(left, right);
    if ((length & 16) != 0) exchangeBytes<16>(left, right);
    if ((length & 8) != 0) exchangeBytes<8>(left, right);
    if ((length & 4) != 0) exchangeBytes<4>(left, right);
    if ((length & 2) != 0) exchangeBytes<2>(left, right);
    if ((length & 1) != 0) exchangeBytes<1>(left, right);
}

}  // namespace tvsort
