// Rows with their levels in a hierarchy.
//
// A row whose level cannot be read goes where the errors of rows go, and has none where it is kept.
// Whether a level may follow the one before it is for whoever reads the rows in order.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/formats/keyed_input.h"
#include "tools/formats/ordered_flow.h"

namespace tvsort::tools {

class LevelledReader : public RowReader {
  public:
    LevelledReader(std::unique_ptr<RowReader> reader, const RowLevelReader& readLevel,
                   bool keepsUnreadable)
        : reader_(std::move(reader)), readLevel_(readLevel), keepsUnreadable_(keepsUnreadable) {}

    // Of the row that was found last; none of one that is kept behind all others.
    std::optional<std::int32_t> level() const { return level_.level; }

    Found next(const TextPart& part, KeyedRow& row) override;
    // A row that is kept although its key cannot be read counts once.
    const std::string& problem() const override {
        return reader_->problem().empty() ? level_.problem : reader_->problem();
    }
    std::size_t guessStart(const TextPart& part) override { return reader_->guessStart(part); }
    void hold(const TextPart& part) override { reader_->hold(part); }
    void keyOf(std::string_view text, host::KeyBytes& key) override { reader_->keyOf(text, key); }
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override {
        return reader_->keyPart(place, from, bytesMax, part);
    }

  private:
    std::unique_ptr<RowReader> reader_;
    const RowLevelReader& readLevel_;
    bool keepsUnreadable_;
    RowLevel level_;
};

class LevelledInput : public KeyedInput {
  public:
    LevelledInput(std::unique_ptr<KeyedInput> input, RowLevelReader readLevel, bool keepsUnreadable)
        : input_(std::move(input)),
          readLevel_(std::move(readLevel)),
          keepsUnreadable_(keepsUnreadable) {}

    std::unique_ptr<RowReader> reader(std::size_t keyBytes) const override {
        return std::make_unique<LevelledReader>(input_->reader(keyBytes), readLevel_,
                                                keepsUnreadable_);
    }
    const InputPlaces& places() const override { return input_->places(); }
    std::uint64_t firstRowOf(std::size_t inputIndex) const override {
        return input_->firstRowOf(inputIndex);
    }
    bool isKeyOfStart() const override { return input_->isKeyOfStart(); }
    std::size_t rowBytesMax() const override { return input_->rowBytesMax(); }
    LineName lineName(std::size_t inputIndex) const override {
        return input_->lineName(inputIndex);
    }
    std::string keysInWords() const override { return input_->keysInWords(); }

  private:
    std::unique_ptr<KeyedInput> input_;
    RowLevelReader readLevel_;
    bool keepsUnreadable_;
};

}  // namespace tvsort::tools
