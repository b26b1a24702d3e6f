// Rows with their levels in a hierarchy, which is checked as they are read.
//
// Each input is a hierarchy of its own. A row whose level cannot be read goes where the errors of
// rows go, and has none where it is kept; a level that does not follow the one before it is bad
// use, which leaving rows out would not mend.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tools/formats/keyed_input.h"
#include "tools/formats/ordered_flow.h"
#include "tools/formats/outline_level.h"
#include "tools/options/row_errors.h"

namespace tvsort::tools {

class LevelledInput : public KeyedInput {
  public:
    LevelledInput(std::unique_ptr<KeyedInput> input, RowLevelReader readLevel, RowErrors& errors)
        : input_(std::move(input)), readLevel_(std::move(readLevel)), errors_(errors) {}

    bool next(KeyedRow& row) override;
    void restart() override;
    // Of the row that came last; none of one that is kept behind all others.
    std::optional<std::int32_t> level() const { return level_; }

    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override {
        return input_->keyPart(place, from, bytesMax, part);
    }
    const InputPlaces& places() const override { return input_->places(); }
    std::string keysInWords() const override { return input_->keysInWords(); }

  private:
    std::unique_ptr<KeyedInput> input_;
    RowLevelReader readLevel_;
    RowErrors& errors_;
    LevelCheck check_;
    std::size_t inputIndex_ = 0;
    std::optional<std::int32_t> level_;
};

}  // namespace tvsort::tools
