// Records with random keys of every kind that has a normalized form, in the frames of a job whose
// key rules are resolved.
//
//     0   i64   11 bytes of few values: also read as integers of 2 and 4 bytes
//     12  16    decimal
//     28  13    string of up to 11 bytes, zero-filled
//     44  8     null indicators
//     4         recordFlag, where a world has operands

#pragma once

#include <algorithm>
#include <random>

#include "tests/support/served_job.h"

namespace tvsort::test {

class KeyWorld {
  public:
    KeyWorld(std::uint32_t seed, int count) : random_(seed) {
        Records records;
        for (int i = 0; i < count; ++i)
            records.push_back(randomRecord());
        std::vector<KeyDescriptor> keys = {
            key(DataType::kInteger, 0, 2),   key(DataType::kInteger, 0, 4),
            key(DataType::kInteger, 0, 8),   key(DataType::kBytes, 0, 11),
            key(DataType::kDecimal, 12, 16), key(DataType::kString, 28, 13)};
        std::shuffle(keys.begin(), keys.end(), random_);
        keys.resize(1 + below(3));
        for (std::size_t k = 0; k < keys.size(); ++k)
            keys[k].orderNumber = static_cast<std::uint8_t>(k + 1);
        if (below(2) == 0) keys.push_back(nullIndicators(44));
        served_.sort(records, {.recordLength = kLength}, keys);
        served_.job().modeFlag = below(4) == 0 ? 1 : 0;
    }

    SortJob& job() { return served_.job(); }
    static std::uint32_t place(int index) { return static_cast<std::uint32_t>(index) * kLength; }
    const Byte* record(int index) { return recordAt(job(), place(index)); }
    std::uint32_t below(std::uint32_t bound) {
        return static_cast<std::uint32_t>(random_() % bound);
    }

  private:
    static constexpr std::uint16_t kLength = 52;

    KeyDescriptor key(DataType type, std::uint16_t offset, std::uint16_t length) {
        constexpr std::uint8_t kPlacements[] = {0x00, 0x20, 0x40, 0x60};
        KeyDescriptor made = below(2) == 0 ? ascendingKey(type, offset, length)
                                           : descendingKey(type, offset, length);
        made.kindFlags |= kPlacements[below(4)];
        return made;
    }
    // Bytes of few values, the borders among them.
    Byte anyByte() {
        constexpr Byte kBytes[] = {0, 0, 1, 0x7f, 0x80, 0xff};
        return kBytes[below(std::size(kBytes))];
    }
    Bytes randomRecord() {
        Bytes record(kLength);
        std::generate_n(record.begin(), 11, [this] { return anyByte(); });
        record[12] = static_cast<Byte>(below(5));
        if (record[12] != 0) {
            const std::uint32_t digits = below(16);
            for (std::uint32_t i = 0; i < digits; ++i)
                record[13 + i] = static_cast<Byte>(below(3) == 0 ? 99 : below(2));
        }
        record[28] = static_cast<Byte>(below(12));
        std::generate_n(record.begin() + 30, record[28], [this] { return anyByte(); });
        std::generate_n(record.begin() + 44, 8,
                        [this] { return below(4) == 0 ? Byte{1} : Byte{0}; });
        return record;
    }

    std::mt19937 random_;
    ServedJob served_;
};

}  // namespace tvsort::test
