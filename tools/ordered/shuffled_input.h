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

    std::unique_ptr<RowReader> reader(std::size_t keyBytes) const override {
        return std::make_unique<Reader>(input_->reader(keyBytes), seed_);
    }
    const InputPlaces& places() const override { return input_->places(); }
    std::uint64_t firstRowOf(std::size_t inputIndex) const override {
        return input_->firstRowOf(inputIndex);
    }
    bool isKeyOfStart() const override { return false; }
    std::size_t rowBytesMax() const override { return input_->rowBytesMax(); }
    LineName lineName(std::size_t inputIndex) const override {
        return input_->lineName(inputIndex);
    }
    std::string keysInWords() const override { return "chance"; }

  private:
    // Keys are whole in their first bytes, so none is asked for again.
    class Reader : public RowReader {
      public:
        Reader(std::unique_ptr<RowReader> reader, std::uint64_t seed)
            : reader_(std::move(reader)), seed_(seed) {}

        Found next(const TextPart& part, KeyedRow& row) override {
            const Found found = reader_->next(part, row);
            row.hasNull = false;
            row.isKeyWhole = true;
            row.key = &key_;
            if (found.outcome == Outcome::kRow) makeKey(row.place);
            return found;
        }
        const std::string& problem() const override { return reader_->problem(); }
        std::size_t guessStart(const TextPart& part) override { return reader_->guessStart(part); }
        void hold(const TextPart& part) override { reader_->hold(part); }
        void keyOf(std::string_view, host::KeyBytes& key) override { key = key_; }
        KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                        host::KeyBytes& part) override {
            makeKey(place);
            return {copyPart(key_, from, bytesMax, part), false};
        }

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

        std::unique_ptr<RowReader> reader_;
        std::uint64_t seed_;
        host::KeyBytes key_;
    };

    std::unique_ptr<KeyedInput> input_;
    std::uint64_t seed_;
};

}  // namespace tvsort::tools
