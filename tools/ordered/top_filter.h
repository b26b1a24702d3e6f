// Leaves rows out that cannot be among the first N: a small limit takes memory for N keys, and the
// process no more records than could still be wanted.
//
//     kept     the N least keys so far, or parts of keys of the record's width
//     out      a key behind the last of them: N rows stand before it already
//
// Of keys as great as the last one, a whole one that was read later stands behind it and goes too,
// unless ties are wanted; of parts nobody knows yet.

#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace tvsort::tools {

class TopFilter {
  public:
    enum class Counts : std::uint8_t { kRows, kRowsAndTies, kKeys, kKeysWithTheirRows };

    TopFilter(std::size_t rowCount, Counts counts) : rowCount_(rowCount), counts_(counts) {}

    // Whether a row with this key, or part of it, has to be sorted.
    bool admits(std::string_view key, bool isWhole) {
        const bool countsKeys = counts_ == Counts::kKeys || counts_ == Counts::kKeysWithTheirRows;
        if (kept_.size() == rowCount_ && key > *kept_.rbegin()) return false;
        const auto found = kept_.find(key);
        const bool isKnown = found != kept_.end();
        if (countsKeys && isKnown) return !isWhole || counts_ != Counts::kKeys;
        if (kept_.size() == rowCount_ && key == *kept_.rbegin())
            return !isWhole || counts_ == Counts::kRowsAndTies;
        kept_.emplace(key);
        if (kept_.size() > rowCount_) kept_.erase(std::prev(kept_.end()));
        return true;
    }

  private:
    std::size_t rowCount_;
    Counts counts_;
    std::multiset<std::string, std::less<>> kept_;
};

}  // namespace tvsort::tools
