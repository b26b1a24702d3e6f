// What the records of the workloads look like, as somebody knows them who sorts them without the
// process: at compile time, with every comparison inlined.
//
// Each struct of rules says
//
//     kRecordLength   bytes of a record
//     request()       the keys, for the process
//     fill()          a record with a random key; its number goes behind the key, so that no two
//                     records are equal
//     precedes()      the order of two records, written for their types
//     prefix()        a number that orders as the first eight bytes of the key do: of two records
//                     with different prefixes the one with the smaller prefix comes first
//
// The peers sort by `precedes` and `prefix`, and every result, the process's as well, is checked
// with `precedes`: it shares no code with the process's comparator.

#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "bench/random.h"
#include "host/request_builder.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

using host::ascendingKey;
using host::descendingKey;
using host::RequestBuilder;

inline constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

inline std::uint64_t loadBig64(const Byte* bytes) {
    return __builtin_bswap64(loadAs<std::uint64_t>(bytes));
}

// Puts the record's number and a filling that depends on it behind a key that ends at `keyEnd`.
inline void fillBehindKey(Byte* record, std::uint16_t keyEnd, std::uint16_t recordLength,
                          std::uint64_t number) {
    const std::size_t room = std::size_t{recordLength} - keyEnd;
    const std::size_t numberBytes = std::min(room, sizeof number);
    std::memcpy(record + keyEnd, &number, numberBytes);
    std::memset(record + keyEnd + numberBytes, static_cast<int>(number % 251), room - numberBytes);
}

// A line of text: ten letters of key, a blank, the number in 20 digits, filling, and the line's
// end. Programs that sort lines or load tables can take it as it is.
struct TextLine {
    static constexpr std::uint16_t kRecordLength = 100;
    static constexpr std::uint16_t kKeyBytes = 10;

    static RequestBuilder request() {
        return RequestBuilder().addKey(ascendingKey(DataType::kBytes, 0, kKeyBytes));
    }
    static void fill(Byte* record, std::uint64_t number, Random& random) {
        std::uint64_t bits = random.next();
        for (int i = 0; i < kKeyBytes; ++i, bits /= 26)
            record[i] = static_cast<Byte>('a' + bits % 26);
        record[kKeyBytes] = ' ';
        for (int i = kKeyBytes + 20; i > kKeyBytes; --i, number /= 10)
            record[i] = static_cast<Byte>('0' + number % 10);
        std::memset(record + kKeyBytes + 21, '.', kRecordLength - kKeyBytes - 22);
        record[kRecordLength - 1] = '\n';
    }
    static std::uint64_t prefix(const Byte* record) { return loadBig64(record); }
    static bool precedes(const Byte* left, const Byte* right) {
        const std::uint64_t leftPrefix = prefix(left);
        const std::uint64_t rightPrefix = prefix(right);
        if (leftPrefix != rightPrefix) return leftPrefix < rightPrefix;
        return std::memcmp(left + 8, right + 8, kKeyBytes - 8) < 0;
    }
};

// A signed integer and a payload. `distinct` values, or any of the type for 0.
template <typename Integer, std::uint16_t recordLength, std::uint64_t distinct = 0>
struct IntegerRecord {
    static constexpr std::uint16_t kRecordLength = recordLength;

    static RequestBuilder request() {
        return RequestBuilder().addKey(ascendingKey(DataType::kInteger, 0, sizeof(Integer)));
    }
    static void fill(Byte* record, std::uint64_t number, Random& random) {
        const std::uint64_t value = distinct == 0 ? random.next() : random.below(distinct);
        storeAs<Integer>(record, static_cast<Integer>(value));
        fillBehindKey(record, sizeof(Integer), recordLength, number);
    }
    static std::uint64_t prefix(const Byte* record) {
        return static_cast<std::uint64_t>(std::int64_t{loadAs<Integer>(record)}) ^ kSignBit;
    }
    static bool precedes(const Byte* left, const Byte* right) {
        return loadAs<Integer>(left) < loadAs<Integer>(right);
    }
};

// A double between -2^30 and 2^30 in steps of 2^-10: two values are equal or further apart than
// the tolerance by which the process compares.
struct DoubleRecord {
    static constexpr std::uint16_t kRecordLength = 32;

    static RequestBuilder request() {
        return RequestBuilder().addKey(ascendingKey(DataType::kFloat, 0, sizeof(double)));
    }
    static void fill(Byte* record, std::uint64_t number, Random& random) {
        const auto steps = static_cast<std::int64_t>(random.below(std::uint64_t{1} << 41));
        storeAs<double>(record, static_cast<double>(steps - (std::int64_t{1} << 40)) / 1024);
        fillBehindKey(record, sizeof(double), kRecordLength, number);
    }
    static std::uint64_t prefix(const Byte* record) {
        const auto bits = loadAs<std::uint64_t>(record);
        return (bits & kSignBit) != 0 ? ~bits : bits | kSignBit;
    }
    static bool precedes(const Byte* left, const Byte* right) {
        return loadAs<double>(left) < loadAs<double>(right);
    }
};

// Decimals of up to twelve digits, as amounts of money are.
inline void storeDecimal(Byte* field, std::int64_t value) {
    constexpr Byte kZero = 0;
    constexpr Byte kNegative = 1;
    constexpr Byte kPositive = 2;
    std::memset(field, 0, 16);
    if (value != 0) field[0] = value < 0 ? kNegative : kPositive;
    if (value == 0) field[0] = kZero;
    auto magnitude = static_cast<std::uint64_t>(value < 0 ? -value : value);
    for (int i = 1; magnitude != 0; ++i, magnitude /= 100)
        field[i] = static_cast<Byte>(magnitude % 100);
}

inline std::int64_t loadDecimal(const Byte* field) {
    std::int64_t magnitude = 0;
    for (int i = 6; i >= 1; --i)
        magnitude = magnitude * 100 + field[i];
    return field[0] == 1 ? -magnitude : magnitude;
}

struct DecimalRecord {
    static constexpr std::uint16_t kRecordLength = 40;

    static RequestBuilder request() {
        return RequestBuilder().addKey(ascendingKey(DataType::kDecimal, 0, 16));
    }
    static void fill(Byte* record, std::uint64_t number, Random& random) {
        constexpr std::int64_t kMagnitudeMax = 999'999'999'999;
        const std::uint64_t drawn = random.below(2 * std::uint64_t{kMagnitudeMax} + 1);
        storeDecimal(record, static_cast<std::int64_t>(drawn) - kMagnitudeMax);
        fillBehindKey(record, 16, kRecordLength, number);
    }
    static std::uint64_t prefix(const Byte* record) {
        return static_cast<std::uint64_t>(loadDecimal(record)) ^ kSignBit;
    }
    static bool precedes(const Byte* left, const Byte* right) {
        return loadDecimal(left) < loadDecimal(right);
    }
};

// A length-prefixed string of up to 30 bytes. It starts with one of 64 prefixes of twelve bytes, so
// that the first eight tell little.
struct StringRecord {
    static constexpr std::uint16_t kRecordLength = 64;
    static constexpr std::uint16_t kFieldBytes = 32;

    static RequestBuilder request() {
        return RequestBuilder().addKey(ascendingKey(DataType::kString, 0, kFieldBytes));
    }
    static void fill(Byte* record, std::uint64_t number, Random& random) {
        constexpr std::size_t kSharedBytes = 12;
        std::memset(record, 0, kFieldBytes);
        const std::size_t length = kSharedBytes + 4 + random.below(15);
        storeAs<std::uint16_t>(record, static_cast<std::uint16_t>(length));
        std::memcpy(record + 2, "aaaa/orders/", kSharedBytes);
        const std::uint64_t group = random.below(64);
        record[4] = static_cast<Byte>('a' + group / 8);
        record[5] = static_cast<Byte>('a' + group % 8);
        for (std::size_t i = kSharedBytes; i < length; ++i)
            record[2 + i] = static_cast<Byte>('a' + random.below(26));
        fillBehindKey(record, kFieldBytes, kRecordLength, number);
    }
    static std::uint64_t prefix(const Byte* record) { return loadBig64(record + 2); }
    static bool precedes(const Byte* left, const Byte* right) {
        const std::uint16_t leftLength = loadU16(left);
        const std::uint16_t rightLength = loadU16(right);
        const int order = std::memcmp(left + 2, right + 2, std::min(leftLength, rightLength));
        return order != 0 ? order < 0 : leftLength < rightLength;
    }
};

// Three keys: an integer of 100 values, a descending decimal of 10000 values, eight bytes.
struct MixedRecord {
    static constexpr std::uint16_t kRecordLength = 48;
    static constexpr std::uint16_t kDecimalOffset = 4;
    static constexpr std::uint16_t kBytesOffset = 20;

    static RequestBuilder request() {
        return RequestBuilder()
            .addKey(ascendingKey(DataType::kInteger, 0, 4))
            .addKey(descendingKey(DataType::kDecimal, kDecimalOffset, 16))
            .addKey(ascendingKey(DataType::kBytes, kBytesOffset, 8));
    }
    static void fill(Byte* record, std::uint64_t number, Random& random) {
        storeAs<std::int32_t>(record, static_cast<std::int32_t>(random.below(100)) - 50);
        storeDecimal(record + kDecimalOffset,
                     static_cast<std::int64_t>(random.below(10000)) - 5000);
        storeAs<std::uint64_t>(record + kBytesOffset, random.next());
        fillBehindKey(record, kBytesOffset + 8, kRecordLength, number);
    }
    // The integer, and the decimal counted downward: both have 32 bits at most.
    static std::uint64_t prefix(const Byte* record) {
        const std::int64_t downward = -loadDecimal(record + kDecimalOffset);
        const auto high = static_cast<std::uint64_t>(loadI32(record) + (std::int64_t{1} << 31));
        return high << 32 | static_cast<std::uint64_t>(downward + (std::int64_t{1} << 31));
    }
    static bool precedes(const Byte* left, const Byte* right) {
        const std::uint64_t leftPrefix = prefix(left);
        const std::uint64_t rightPrefix = prefix(right);
        if (leftPrefix != rightPrefix) return leftPrefix < rightPrefix;
        return loadBig64(left + kBytesOffset) < loadBig64(right + kBytesOffset);
    }
};

}  // namespace tvsort::bench
