// The bytes of a fuzz input as numbers, one after the other. Behind its end everything is 0, so
// that every input means something and a longer one means the same and more.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "protocol/bytes.h"

namespace tvsort::fuzz {

class FuzzInput {
  public:
    FuzzInput(const Byte* data, std::size_t size) : next_(data), left_(size) {}

    bool atEnd() const { return left_ == 0; }

    template <typename Value>
    Value take() {
        Value value = {};
        const std::size_t taken = std::min(sizeof value, left_);
        std::memcpy(&value, next_, taken);
        next_ += taken;
        left_ -= taken;
        return value;
    }

    // 0 to `bound` - 1.
    std::uint32_t below(std::uint32_t bound) {
        return bound <= 256 ? take<std::uint8_t>() % bound : take<std::uint16_t>() % bound;
    }

    // True for one value of `oneIn` bytes.
    bool rarely(std::uint32_t oneIn) { return below(oneIn) == oneIn - 1; }

  private:
    const Byte* next_;
    std::size_t left_;
};

// A quick generator for record bytes (G. Marsaglia, Xorshift RNGs, 2003): a few bytes of input
// decide thousands.
class Xorshift {
  public:
    explicit Xorshift(std::uint32_t seed) : state_(seed == 0 ? 1 : seed) {}

    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    std::uint32_t below(std::uint32_t bound) { return next() % bound; }

  private:
    std::uint32_t state_;
};

}  // namespace tvsort::fuzz
