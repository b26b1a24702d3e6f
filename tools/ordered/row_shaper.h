// What comes out of rows in order: every row, one of each key, groups, what several inputs have in
// common or not, no two that are alike.
//
// Rows come in the order of their whole keys, each with whether it equals the one before it. So
// equality is that of whole values here, wherever keys were cut on the way, and of equal rows the
// one that was read first is the first. Of a set operation's rows with one key those of the first
// input come first, for the same reason.

#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/spool_reader.h"
#include "tools/formats/row_place.h"
#include "tools/formats/row_writer.h"
#include "tools/options/mode_options.h"

namespace tvsort::tools {

// A row in its final place.
struct SettledRow {
    RowPlace place = {};
    bool isEqual = false;  // to the row before it, in all keys
    bool hasNull = false;
    bool isHeld = false;
    std::string_view text;  // where it is held
};

// Places in the order in which they came, in memory or, of many, in a file.
class PlaceQueue {
  public:
    explicit PlaceQueue(std::filesystem::path directory) : directory_(std::move(directory)) {}

    void add(const RowPlace& place);
    std::uint64_t count() const { return count_; }
    // Hands the first so many to `take`, and forgets all.
    void drain(std::uint64_t wanted, const std::function<void(const RowPlace&)>& take);

  private:
    std::filesystem::path directory_;
    std::vector<RowPlace> first_;
    std::unique_ptr<SpoolFile> rest_;
    std::uint64_t count_ = 0;
};

class RowShaper {
  public:
    struct Form {
        ModeOptions mode;
        InputKind kind;
        char delimiter;  // of rows
        std::string lineEnd;
        std::filesystem::path tempDirectory;
    };

    RowShaper(Form form, RowWriter& writer);

    void take(const SettledRow& row);
    // No row follows.
    void finish();
    // Nothing that follows comes out.
    bool isFull() const { return isFull_; }

    std::int64_t writtenCount() const { return writtenCount_; }
    std::int64_t groupCount() const { return groupCount_; }

  private:
    // True while the limit allows for one more row, or lets a row that is equal to the last one in.
    bool isWithinLimit(bool isEqual);
    void write(const SettledRow& row);
    void markGroup(const SettledRow& row);
    void countGroup(const SettledRow& row);
    void endCountedGroup();
    void combine(const SettledRow& row);
    void endCombination();

    Form form_;
    Operation operation_;
    RowWriter& writer_;
    bool isFull_ = false;
    std::int64_t writtenCount_ = 0;
    std::int64_t groupCount_ = 0;
    // The group that is read.
    std::uint64_t groupRows_ = 0;
    SettledRow first_ = {};
    std::string firstText_;
    std::vector<std::uint64_t> inputRows_;  // of a set operation, by input
    PlaceQueue firstInputs_;
};

// Passes over rows in order and throws at the first two that are alike, with their names.
class UniqueCheck {
  public:
    UniqueCheck(const InputPlaces& places, bool nullsAreDistinct)
        : places_(places), nullsAreDistinct_(nullsAreDistinct) {}
    void take(const SettledRow& row);

  private:
    const InputPlaces& places_;
    bool nullsAreDistinct_;
    RowPlace before_ = {};
};

}  // namespace tvsort::tools
