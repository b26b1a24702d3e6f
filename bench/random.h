// Random numbers that every machine draws alike: SplitMix64 (G. L. Steele, D. Lea, C. H. Flood,
// Fast splittable pseudorandom number generators, 2014).

#pragma once

#include <cstdint>

namespace tvsort::bench {

class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        state_ += 0x9e3779b97f4a7c15;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9;
        mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111eb;
        return mixed ^ mixed >> 31;
    }

    // 0 to `end` - 1.
    std::uint64_t below(std::uint64_t end) { return next() % end; }

  private:
    std::uint64_t state_;
};

}  // namespace tvsort::bench
