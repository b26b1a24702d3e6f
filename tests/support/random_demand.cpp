#include "tests/support/random_demand.h"

#include <algorithm>
#include <limits>
#include <random>

namespace tvsort::test {

namespace {

int below(std::mt19937& random, unsigned bound) {
    return static_cast<int>(random() % bound);
}

constexpr std::uint16_t kFirstOffset = 6;
constexpr std::uint16_t kLaterOffset = 32;
constexpr std::uint16_t kNullsAt = 54;
constexpr std::uint16_t kBytes = 60;

struct KeyCase {
    DataType type;
    std::uint16_t length;
    std::uint8_t geometryType = 0;
};

constexpr KeyCase kTypes[] = {
    {DataType::kInteger, 2},        {DataType::kInteger, 4},    {DataType::kInteger, 8},
    {DataType::kBytes, 3},          {DataType::kBytes, 17},     {DataType::kString, 18},
    {DataType::kFloat, 4},          {DataType::kFloat, 8},      {DataType::kDecimal, 16},
    {DataType::kWeightedBytes, 9},  {DataType::kUnits, 7},      {DataType::kUnitString, 18},
    {DataType::kWeightedString, 9}, {DataType::kSingleByte, 1}, {DataType::kNone, 0},
    {DataType::kString, 18, 1},
};

// How much the values of a world have in common.
enum class Likeness { kFewValues, kSharedPrefix, kAllDifferent };

// A value of `c`; one in `spoiledOf` is none.
void fillField(std::mt19937& random, const KeyCase& c, Likeness likeness, unsigned spoiledOf,
               Byte* field) {
    const int from = likeness == Likeness::kSharedPrefix && c.type != DataType::kDecimal ? 10 : 0;
    const bool spoiled = random() % spoiledOf == 0;
    std::fill_n(field, 20, Byte{2});
    for (int b = from; b < 20; ++b)
        field[b] = static_cast<Byte>(likeness == Likeness::kFewValues ? below(random, 3) * 49
                                                                      : below(random, 100));
    switch (c.type) {
        case DataType::kString:
        case DataType::kWeightedString:
        case DataType::kUnitString: {
            const int length = c.geometryType != 0 ? 16 : below(random, c.length) - 1;
            storeAs(field, static_cast<std::int16_t>(spoiled ? c.length + 1 : length));
            break;
        }
        case DataType::kDecimal:
            std::fill(field + 16 - below(random, 9), field + 16, Byte{0});
            field[0] = static_cast<Byte>(spoiled ? 7 : below(random, 3));
            if (field[0] == 0) std::fill_n(field, 16, Byte{0});
            break;
        case DataType::kFloat: {
            const double spread = likeness == Likeness::kFewValues ? 0x1p-49 : 0x1p-20;
            double value = (below(random, 5) - 2) * (1 + below(random, 2000) % 9 * spread);
            if (likeness == Likeness::kAllDifferent) value = below(random, 1 << 30) * 0x1p-15 - 9e3;
            if (spoiled)
                value = below(random, 2) == 0 ? std::numeric_limits<double>::quiet_NaN()
                                              : -std::numeric_limits<double>::infinity();
            if (c.length == 8) storeAs(field, value);
            if (c.length == 4) storeAs(field, static_cast<float>(value));
            break;
        }
        default:
            break;
    }
}

KeyDescriptor keyOf(std::mt19937& random, const KeyCase& c, std::uint16_t offset,
                    std::uint8_t orderNumber) {
    constexpr std::uint8_t kPlacements[] = {0x00, 0x20, 0x40, 0x60};
    KeyDescriptor key = random() % 2 == 0 ? ascendingKey(c.type, offset, c.length, orderNumber)
                                          : descendingKey(c.type, offset, c.length, orderNumber);
    key.kindFlags |= kPlacements[random() % 4];
    key.geometryType = c.geometryType;
    key.weightTableId = 7;
    return key;
}

// Fills `demand` with `count` records and the keys for them.
void fillDemand(std::mt19937& random, std::uint32_t seed, std::size_t count, unsigned spoiledOf,
                unsigned spoiledFirstOf, Demand& demand) {
    const KeyCase& first = kTypes[seed % std::size(kTypes)];
    const KeyCase& later = kTypes[random() % std::size(kTypes)];
    const auto likeness = static_cast<Likeness>(random() % 3);
    demand.records.assign(count, Bytes(kBytes));
    for (std::size_t i = 0; i < demand.records.size(); ++i) {
        Byte* const record = demand.records[i].data();
        storeAs(record, static_cast<std::uint32_t>(i));
        fillField(random, first, likeness, spoiledFirstOf, record + kFirstOffset);
        fillField(random, later, static_cast<Likeness>(random() % 3), spoiledOf,
                  record + kLaterOffset);
        record[kNullsAt] = random() % 50 == 0 ? 1 : 0;
        record[kNullsAt + 1] = random() % 50 == 0 ? 1 : 0;
        storeAs(record + kNullsAt + 2, static_cast<std::int32_t>(random() % 3));
    }
    demand.keys = {keyOf(random, first, kFirstOffset, 1), keyOf(random, later, kLaterOffset, 2)};
    if (random() % 4 == 0) {
        demand.keys.push_back(ascendingKey(DataType::kInteger, kNullsAt + 2, 4, 3));
        demand.mode = random() % 2 == 0 ? SortMode::kUnique : SortMode::kUniqueUnlessNull;
    }
    if (random() % 3 == 0) demand.keys.push_back(nullIndicators(kNullsAt));
}

std::int32_t blocksOf(const Demand& demand) {
    const std::size_t perBlock = demand.geometry.recordsPerBlock;
    return static_cast<std::int32_t>((demand.records.size() + perBlock - 1) / perBlock);
}

}  // namespace

std::uint32_t numberOf(const Bytes& record) {
    return loadAs<std::uint32_t>(record.data());
}

Demand randomDemand(std::uint32_t seed) {
    std::mt19937 random(seed);
    const unsigned spoiledOf = random() % 3 == 0 ? ~0U : 1U << (4 + random() % 9);
    const unsigned spoiledFirstOf = random() % 3 == 0 ? spoiledOf : ~0U;
    const unsigned count = random() % 3 == 0 ? 4000 : random() % 2 == 0 ? 25 : 400;
    Demand demand;
    fillDemand(random, seed, 2 + random() % count, spoiledOf, spoiledFirstOf, demand);
    constexpr std::uint16_t kPerBlock[] = {1, 7, 20, 30, 68};
    demand.geometry = {1, kPerBlock[random() % 5], kBytes};
    const std::int32_t blocks = blocksOf(demand);
    // Spilled to different degrees, or just held. There is no room for the entries of 200 records.
    demand.frames = random() % 2 == 0 ? blocks : 5 + blocks / (1 + below(random, 30));
    demand.frames = std::clamp(demand.frames, 5, std::max(blocks, 5));
    if (blocks < 5) demand.records.resize(std::min<std::size_t>(demand.records.size(), 199));
    return demand;
}

Demand randomLargeDemand(std::uint32_t seed, unsigned spoiledOf) {
    std::mt19937 random(seed);
    Demand demand;
    const std::size_t count = 10000 + random() % 10000;
    fillDemand(random, seed, count, spoiledOf, spoiledOf, demand);
    constexpr std::uint16_t kPerBlock[] = {1, 7, 20, 68};
    demand.geometry = {1, kPerBlock[random() % 4], kBytes};
    demand.frames = std::clamp(blocksOf(demand) / (2 + below(random, 19)), 64, 200);
    return demand;
}

}  // namespace tvsort::test
