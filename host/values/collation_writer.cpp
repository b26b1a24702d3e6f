#include "host/values/collation_writer.h"

#include <algorithm>
#include <numeric>
#include <unordered_map>

#include "protocol/collation_layout.h"

namespace tvsort::host {

namespace {

// Pages that 16-bit offsets can reach, one after the other, and those left beside the page of the
// units that weigh their own value.
constexpr std::uint32_t kPagesMax = (0xffff - kCollationPageOffsetsBytes) / kCollationPageBytes + 1;
constexpr std::uint32_t kExactPagesMax = kPagesMax - 1;
static_assert(kPagesMax == 43);

constexpr std::uint32_t kUnitsPerPage = 256;
// A page with this many ideographs or syllables belongs to their block.
constexpr std::uint32_t kBlockUnitsMin = 128;

using Pages = std::array<bool, kUnitPageCount>;

std::uint32_t pageOf(std::uint32_t unit) {
    return unit / kUnitsPerPage;
}

std::vector<std::uint32_t> unitsByPlace(const CollationOrder& order) {
    std::vector<std::uint32_t> units(kUnitCount);
    std::iota(units.begin(), units.end(), 0U);
    std::stable_sort(units.begin(), units.end(), [&order](std::uint32_t left, std::uint32_t right) {
        return order.places[left] < order.places[right];
    });
    return units;
}

// What is lost when the units of each page weigh their own value: the units that do not have a
// place of their own, right behind their predecessor's. Units that stand for several in a row do
// not count: no table can put them where they belong.
std::array<std::uint32_t, kUnitPageCount> pageMerits(const CollationOrder& order) {
    std::vector<std::uint32_t> unitsAtPlace(kUnitCount, 0);
    for (const std::uint32_t place : order.places)
        unitsAtPlace[place] += 1;
    std::array<std::uint32_t, kUnitPageCount> merits = {};
    for (std::uint32_t unit = 0; unit < kUnitCount; ++unit) {
        const bool follows = unit > 0 && order.places[unit] == order.places[unit - 1] + 1 &&
                             unitsAtPlace[order.places[unit]] == 1;
        if (!follows && order.standsForOne[unit]) merits[pageOf(unit)] += 1;
    }
    return merits;
}

bool belongsToBlock(const CollationOrder& order, std::uint32_t page) {
    const auto first = order.kinds.begin() + page * kUnitsPerPage;
    const auto others = std::count(first, first + kUnitsPerPage, UnitKind::kOther);
    return kUnitsPerPage - static_cast<std::uint32_t>(others) >= kBlockUnitsMin;
}

// The pages of the locale's own letters, then those that gain most.
Pages chooseExactPages(const CollationOrder& order) {
    const auto merits = pageMerits(order);
    std::vector<std::uint32_t> candidates;
    for (std::uint32_t page = 0; page < kUnitPageCount; ++page) {
        if (merits[page] > 0 && !belongsToBlock(order, page)) candidates.push_back(page);
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](std::uint32_t left, std::uint32_t right) {
                         if (order.ownLetters[left] != order.ownLetters[right]) {
                             return static_cast<bool>(order.ownLetters[left]);
                         }
                         return merits[left] > merits[right];
                     });
    if (candidates.size() > kExactPagesMax) candidates.resize(kExactPagesMax);
    Pages exact = {};
    for (const std::uint32_t page : candidates)
        exact[page] = true;
    return exact;
}

// Deals out the weights of the units on exact pages, place by place in ICU's order.
class WeightDealer {
  public:
    WeightDealer(const CollationOrder& order, CollationFile& file) : order_(order), file_(file) {
        for (std::uint32_t unit = 0; unit < kUnitCount; ++unit) {
            if (isFixedInBlock(unit)) blockUnits_.emplace(order.primaryPlaces[unit], unit);
        }
    }

    std::vector<std::uint16_t> deal() {
        std::vector<std::uint32_t> units = unitsByPlace(order_);
        for (auto first = units.begin(); first != units.end();) {
            const std::uint32_t place = order_.places[*first];
            const auto last = std::find_if(first, units.end(), [&](std::uint32_t unit) {
                return order_.places[unit] != place;
            });
            dealPlace(std::vector<std::uint32_t>(first, last));
            first = last;
        }
        return std::move(weights_);
    }

  private:
    bool isExact(std::uint32_t unit) const { return file_.exactPages[pageOf(unit)]; }
    bool isFixedInBlock(std::uint32_t unit) const {
        return order_.kinds[unit] != UnitKind::kOther && !isExact(unit);
    }

    void dealPlace(const std::vector<std::uint32_t>& equals) {
        std::uint32_t exactCount = 0;
        bool equalsBlockUnit = false;
        for (const std::uint32_t unit : equals) {
            exactCount += isExact(unit) ? 1 : 0;
            equalsBlockUnit = equalsBlockUnit || isFixedInBlock(unit);
            passFixed(unit);
        }
        if (exactCount == 0) return;
        std::uint32_t weight = 0;
        const auto blockUnit = blockUnits_.find(order_.primaryPlaces[equals.front()]);
        if (blockUnit != blockUnits_.end()) {
            weight = blockUnit->second;
            if (!equalsBlockUnit) file_.mergedUnits += exactCount;
        } else {
            weight = nextFree(exactCount);
        }
        for (const std::uint32_t unit : equals)
            weights_[unit] = static_cast<std::uint16_t>(weight);
    }

    // From the first ideograph on the fixed weights grow with ICU's order, and what comes behind
    // them has to weigh more; before, they are out of that order and nothing follows from them.
    void passFixed(std::uint32_t unit) {
        if (isExact(unit)) return;
        ideographsMet_ = ideographsMet_ || order_.kinds[unit] == UnitKind::kIdeograph;
        if (ideographsMet_) next_ = std::max(next_, unit + 1);
    }

    // The number of a unit that does not weigh its own value is free.
    std::uint32_t nextFree(std::uint32_t unitCount) {
        while (next_ < kUnmappedWeight && !isExact(next_)) {
            passedBlock_ = passedBlock_ || order_.kinds[next_] != UnitKind::kOther;
            next_ += 1;
        }
        if (next_ >= kUnmappedWeight) {
            file_.unmappedUnits += unitCount;
            return kUnmappedWeight;
        }
        if (passedBlock_ && !ideographsMet_) file_.displacedUnits += unitCount;
        return next_++;
    }

    const CollationOrder& order_;
    CollationFile& file_;
    std::unordered_map<std::uint32_t, std::uint32_t> blockUnits_;  // by primary place
    std::vector<std::uint16_t> weights_ = std::vector<std::uint16_t>(kUnitCount);
    std::uint32_t next_ = 0;
    bool ideographsMet_ = false;
    bool passedBlock_ = false;
};

void appendEntry(std::vector<Byte>& page, std::uint16_t flags, std::uint16_t low,
                 std::uint16_t weight) {
    for (const std::uint16_t field : {flags, low, weight}) {
        page.push_back(static_cast<Byte>(field & 0xff));
        page.push_back(static_cast<Byte>(field >> 8));
    }
}

std::vector<Byte> pageBytes(std::uint32_t page, bool exact,
                            const std::vector<std::uint16_t>& weights) {
    std::vector<Byte> bytes;
    for (std::uint32_t i = 0; i < kUnitsPerPage; ++i) {
        if (exact) {
            appendEntry(bytes, 0, 0, weights[page * kUnitsPerPage + i]);
        } else {
            appendEntry(bytes, kRangeEntry | kOwnWeight, 0, 0xffff);
        }
    }
    return bytes;
}

void layFile(const std::vector<std::uint16_t>& weights, CollationFile& file) {
    file.bytes.assign(kCollationHeaderBytes + kCollationPageOffsetsBytes, 0);
    storeAs(file.bytes.data() + kCollationMagicOffset, kCollationMagic);
    std::vector<std::size_t> laid;  // offsets of the pages so far
    for (std::uint32_t page = 0; page < kUnitPageCount; ++page) {
        const std::vector<Byte> bytes = pageBytes(page, file.exactPages[page], weights);
        auto offset = std::find_if(laid.begin(), laid.end(), [&](std::size_t other) {
            return std::equal(bytes.begin(), bytes.end(),
                              file.bytes.data() + kCollationHeaderBytes + other);
        });
        if (offset == laid.end()) {
            offset = laid.insert(offset, file.bytes.size() - kCollationHeaderBytes);
            file.bytes.insert(file.bytes.end(), bytes.begin(), bytes.end());
        }
        storeAs(file.bytes.data() + kCollationHeaderBytes + 2 * page,
                static_cast<std::uint16_t>(*offset));
    }
}

}  // namespace

std::uint32_t CollationFile::exactUnits() const {
    const auto count = std::count(exactPages.begin(), exactPages.end(), true);
    return static_cast<std::uint32_t>(count) * kUnitsPerPage;
}

CollationFile makeCollationFile(const CollationOrder& order) {
    CollationFile file;
    file.exactPages = chooseExactPages(order);
    const std::vector<std::uint16_t> weights = WeightDealer(order, file).deal();
    layFile(weights, file);
    return file;
}

}  // namespace tvsort::host
