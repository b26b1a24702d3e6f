// Rows in an order of chance: the key of a row is a number that its place and a seed give.

#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tools/formats/keyed_input.h"

namespace tvsort::tools {

class ShuffledInput : public KeyedInput {
  public:
    ShuffledInput(std::unique_ptr<KeyedInput> input, std::uint64_t seed)
        : input_(std::move(input)), seed_(seed) {}

    bool next(KeyedRow& row) override {
        if (!input_->next(row)) return false;
        row.hasNull = false;
        row.isKeyWhole = true;
        row.key = &key_;
        makeKey(row.place);
        return true;
    }
    void restart() override { input_->restart(); }
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override {
        makeKey(place);
        const std::size_t begin = std::min<std::uint64_t>(from, key_.size());
        const std::size_t count = std::min(bytesMax, key_.size() - begin);
        const auto first = key_.begin() + static_cast<std::ptrdiff_t>(begin);
        part.assign(first, first + static_cast<std::ptrdiff_t>(count));
        return {begin + count == key_.size(), false};
    }
    const InputPlaces& places() const override { return input_->places(); }
    std::string keysInWords() const override { return "chance"; }

  private:
    // SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators, 2014).
    static std::uint64_t scramble(std::uint64_t value) {
        value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
        value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
        return value ^ (value >> 31);
    }
    void makeKey(const RowPlace& place) {
        key_.clear();
        host::appendFixed(scramble(scramble(seed_ + 0x9e3779b97f4a7c15) + place.offset), key_);
    }

    std::unique_ptr<KeyedInput> input_;
    std::uint64_t seed_;
    host::KeyBytes key_;
};

}  // namespace tvsort::tools
