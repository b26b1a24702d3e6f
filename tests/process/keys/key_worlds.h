// Records with random keys of every type that has a normalized form, in the frames of a job whose
// key rules are resolved. Some values are such as the comparator has something to say about.
//
//     0    12 bytes of few values: bytes, units and integers of any width
//     12   decimal
//     28   double
//     36   single
//     40   null indicators
//     56   fixed field
//     578  string of up to 13 bytes, of which the record has room for 11
//     4    recordFlag, where a world has operands

#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "process/keys/normalized_key.h"
#include "tests/support/collation_bytes.h"
#include "tests/support/served_job.h"

namespace tvsort::test {

class KeyWorld {
  public:
    KeyWorld(std::uint32_t seed, int count) : random_(seed) {
        alikeBytes_ = below(2) * below(12);
        Records records;
        for (int i = 0; i < count; ++i)
            records.push_back(randomRecord());
        Request request = served_.lay(records, {.blockPages = kPages, .recordLength = kLength});
        request.keys = randomKeys();
        request.items = {{7, 1, 0, {3, 2, 1}}};
        request.head.sortMode = static_cast<std::uint16_t>(below(4) == 0 ? 8 : 1);
        collationTable = below(2) == 0 ? &collation() : nullptr;
        served_.ask(request);  // whatever it answers, the rules are resolved
        collationTable = &collation();
        EXPECT_GT(job().keyCount, 0);
        job().modeFlag = request.head.sortMode == 1 && below(4) == 0 ? 1 : 0;
    }
    ~KeyWorld() { collationTable = nullptr; }
    KeyWorld(const KeyWorld&) = delete;
    KeyWorld& operator=(const KeyWorld&) = delete;

    SortJob& job() { return served_.job(); }
    static std::uint32_t place(int index) { return static_cast<std::uint32_t>(index) * kLength; }
    const Byte* record(int index) { return recordAt(job(), place(index)); }
    std::uint32_t below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(random_() % bound);
    }

  private:
    static constexpr std::uint16_t kLength = 591;
    static constexpr std::int32_t kPages = 16;

    static const CollationTable& collation() {
        static CollationBytes bytes;
        bytes.setWeight(0x7f7f, 1);
        bytes.setWeight(0x0101, 0x8000);
        bytes.setWeight(0x0180, 0x8000);
        static const CollationTable table = {bytes.table()};
        return table;
    }

    std::vector<KeyDescriptor> randomKeys() {
        std::vector<KeyDescriptor> keys = {
            key(DataType::kInteger, 0, 2),        key(DataType::kInteger, 0, 4),
            key(DataType::kInteger, 0, 8),        key(DataType::kBytes, 0, 11),
            key(DataType::kWeightedBytes, 0, 11), key(DataType::kSingleByte, 0, 1),
            key(DataType::kUnits, 0, 11),         key(DataType::kDecimal, 12, 16),
            key(DataType::kAlsoDecimal, 12, 0),   key(DataType::kFloat, 28, 8),
            key(DataType::kFloat, 36, 4),         key(DataType::kFixedField, 56, 0),
            key(DataType::kString, 578, 13),      key(DataType::kWeightedString, 578, 13),
            key(DataType::kUnitString, 578, 13),  key(DataType::kNone, 0, 0)};
        std::shuffle(keys.begin(), keys.end(), random_);
        keys.resize(1 + below(3));
        if (below(4) == 0) keys.push_back(ascendingKey(DataType::kInteger, 7, 4));
        for (std::size_t k = 0; k < keys.size(); ++k)
            keys[k].orderNumber = static_cast<std::uint8_t>(k + 1);
        if (below(2) == 0) keys.push_back(nullIndicators(40));
        return keys;
    }
    KeyDescriptor key(DataType type, std::uint16_t offset, std::uint16_t length) {
        constexpr std::uint8_t kPlacements[] = {0x00, 0x20, 0x40, 0x60};
        KeyDescriptor made = below(2) == 0 ? ascendingKey(type, offset, length)
                                           : descendingKey(type, offset, length);
        made.kindFlags |= kPlacements[below(4)];
        made.weightTableId = 7;
        return made;
    }
    // Bytes of few values, the borders among them.
    Byte anyByte() {
        constexpr Byte kBytes[] = {0, 0, 1, 0x7f, 0x80, 0xff};
        return kBytes[below(std::size(kBytes))];
    }
    // The borders of the type, and others; no two are different and count as equal.
    template <typename Float>
    Float anyFloat() {
        using Limits = std::numeric_limits<Float>;
        const Float values[] = {0,
                                Limits::denorm_min(),
                                Limits::min(),
                                Float{1},
                                Float{1.5},
                                Limits::max(),
                                Limits::infinity(),
                                Limits::quiet_NaN(),
                                static_cast<Float>(1 + 0x1p-16 * below(3))};
        return std::copysign(values[below(std::size(values))],
                             below(2) == 0 ? Float{1} : Float{-1});
    }
    void fillDecimal(Byte* value) {
        value[0] = static_cast<Byte>(below(5));
        const std::uint32_t digits = value[0] == 0 ? 0 : below(16);
        for (std::uint32_t i = 0; i < digits; ++i)
            value[1 + i] = static_cast<Byte>(below(3) == 0 ? 99 : below(2));
        if (below(40) == 0) value[below(16)] = anyByte();
    }
    void fillBytes(Byte* bytes, std::uint32_t count) {
        std::generate_n(bytes, count, [this] { return anyByte(); });
        std::fill_n(bytes, std::min(alikeBytes_, count), Byte{0x7f});
    }
    Bytes randomRecord() {
        Bytes record(kLength);
        fillBytes(record.data(), 12);
        fillDecimal(record.data() + 12);
        storeAs(record.data() + 28, anyFloat<double>());
        storeAs(record.data() + 36, anyFloat<float>());
        std::generate_n(record.begin() + 40, 16,
                        [this] { return below(4) == 0 ? Byte{1} : Byte{0}; });
        record[56 + below(9)] = anyByte();  // not compared
        for (const std::size_t place : {66U, 70U, 75U, 300U, 577U})
            record[place] = anyByte();
        storeAs(record.data() + 578,
                static_cast<std::int16_t>(below(40) == 0 ? anyByte() - 128 : below(14)));
        fillBytes(record.data() + 580, 11);
        return record;
    }

    std::mt19937 random_;
    std::uint32_t alikeBytes_ = 0;  // at the beginning of values
    ServedJob served_{{5, kPages}};
};

}  // namespace tvsort::test
