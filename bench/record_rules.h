// What the records of the workloads look like, as somebody knows them who sorts them without the
// process: at compile time, with every comparison inlined.
//
//     KeyedRecord<64, IntegerKey<std::int32_t, 100>, Descending<DecimalKey<5000>>>
//
//     [ key 1 ][ key 2 ] ... [ null indicators ][ number ][ filling ]
//
// The record's number makes every record another one. Null indicators are there if a key is
// Nullable. Each key says
//
//     kType, kFieldBytes   what its field is for the process
//     fill()               a random value
//     order()              how two values stand to one another, written for their type
//     prefix()             a number of kPrefixBits bits that orders as the values do or, if it has
//                          64 bits, as their beginnings do: of two values with different prefixes
//                          the one with the smaller prefix comes first
//
// and the record makes of them what peers and process need: the request, `precedes`, and a prefix
// of 64 bits at most, which goes on with the next key where a key has few values.
//
// The peers sort by `precedes` and `prefix`, and every result, the process's as well, is checked
// with `precedes`: it shares no code with the process's comparator.

#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>
#include <utility>

#include "bench/random.h"
#include "host/request_builder.h"
#include "protocol/bytes.h"

namespace tvsort::bench {

using host::RequestBuilder;

inline constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

inline std::uint64_t loadBig64(const Byte* bytes) {
    return __builtin_bswap64(loadAs<std::uint64_t>(bytes));
}

inline Byte randomLetter(Random& random) {
    return static_cast<Byte>('a' + random.below(26));
}

// What a key is unless it says otherwise.
struct KeyDefaults {
    static constexpr bool kDescending = false;
    static constexpr bool kNullable = false;
};

template <typename Base>
struct Descending : Base {
    static constexpr bool kDescending = true;
};

// One value in ten is null.
template <typename Base>
struct Nullable : Base {
    static constexpr bool kNullable = true;
};

// Letters, without a length.
template <std::uint16_t bytes>
struct BytesKey : KeyDefaults {
    static_assert(bytes >= 8);
    static constexpr DataType kType = DataType::kBytes;
    static constexpr std::uint16_t kFieldBytes = bytes;
    static constexpr int kPrefixBits = 64;

    static void fill(Byte* field, Random& random) {
        std::generate_n(field, bytes, [&] { return randomLetter(random); });
    }
    static std::uint64_t prefix(const Byte* field) { return loadBig64(field); }
    static std::strong_ordering order(const Byte* left, const Byte* right) {
        const std::uint64_t leftPrefix = prefix(left);
        const std::uint64_t rightPrefix = prefix(right);
        if (leftPrefix != rightPrefix) return leftPrefix <=> rightPrefix;
        return std::memcmp(left + 8, right + 8, bytes - 8) <=> 0;
    }
};

// A signed integer: one of `distinct` values around zero, or any of the type for 0.
template <typename Integer, std::uint64_t distinct = 0>
struct IntegerKey : KeyDefaults {
    static constexpr DataType kType = DataType::kInteger;
    static constexpr std::uint16_t kFieldBytes = sizeof(Integer);
    static constexpr int kPrefixBits =
        distinct == 0 ? 8 * int{sizeof(Integer)} : int{std::bit_width(distinct - 1)};
    static constexpr std::int64_t kLowest = distinct == 0
                                                ? std::int64_t{std::numeric_limits<Integer>::min()}
                                                : -static_cast<std::int64_t>(distinct / 2);

    static void fill(Byte* field, Random& random) {
        store(field, distinct == 0 ? random.next() : random.below(distinct));
    }
    static void store(Byte* field, std::uint64_t aboveLowest) {
        storeAs<Integer>(field, static_cast<Integer>(aboveLowest + std::uint64_t(kLowest)));
    }
    static std::uint64_t prefix(const Byte* field) {
        return static_cast<std::uint64_t>(std::int64_t{loadAs<Integer>(field)}) -
               static_cast<std::uint64_t>(kLowest);
    }
    static std::strong_ordering order(const Byte* left, const Byte* right) {
        return loadAs<Integer>(left) <=> loadAs<Integer>(right);
    }
};

// Values of which the n-th most frequent one is about n times as rare as the first, as words and
// customers are; which ones are frequent has nothing to do with their order.
template <int distinctBits>
struct ZipfKey : IntegerKey<std::int32_t, std::uint64_t{1} << distinctBits> {
    static void fill(Byte* field, Random& random) {
        constexpr std::uint64_t kDistinct = std::uint64_t{1} << distinctBits;
        const std::uint64_t rank = random.below(std::uint64_t{1} << random.below(distinctBits + 1));
        ZipfKey::store(field, rank * 0x9e3779b97f4a7c15 % kDistinct);
    }
};

// 2^(bits + 1) values around zero in steps of 1/16. Two values are equal or further apart than the
// tolerance by which the process compares.
template <typename Float, int bits>
struct FloatKey : KeyDefaults {
    static constexpr DataType kType = DataType::kFloat;
    static constexpr std::uint16_t kFieldBytes = sizeof(Float);
    static constexpr int kPrefixBits = 8 * sizeof(Float);

    static void fill(Byte* field, Random& random) {
        const auto steps = static_cast<std::int64_t>(random.below(std::uint64_t{2} << bits));
        storeAs<Float>(field, static_cast<Float>(steps - (std::int64_t{1} << bits)) / 16);
    }
    static std::uint64_t prefix(const Byte* field) {
        if constexpr (sizeof(Float) == 8) {
            const auto pattern = loadAs<std::uint64_t>(field);
            return (pattern & kSignBit) != 0 ? ~pattern : pattern | kSignBit;
        } else {
            const auto pattern = loadAs<std::uint32_t>(field);
            return pattern >> 31 != 0 ? ~pattern : pattern | std::uint32_t{1} << 31;
        }
    }
    static std::partial_ordering order(const Byte* left, const Byte* right) {
        return loadAs<Float>(left) <=> loadAs<Float>(right);
    }
};

// A decimal of up to twelve digits, as amounts of money are, of either sign.
template <std::int64_t magnitudeMax>
struct DecimalKey : KeyDefaults {
    static_assert(magnitudeMax < 1'000'000'000'000);
    static constexpr DataType kType = DataType::kDecimal;
    static constexpr std::uint16_t kFieldBytes = kDecimalBytes;
    static constexpr int kPrefixBits = std::bit_width(2 * std::uint64_t{magnitudeMax});

    static void fill(Byte* field, Random& random) {
        constexpr Byte kNegative = 1;
        constexpr Byte kPositive = 2;
        const auto value =
            static_cast<std::int64_t>(random.below(2 * magnitudeMax + 1)) - magnitudeMax;
        std::memset(field, 0, kFieldBytes);
        if (value != 0) field[0] = value < 0 ? kNegative : kPositive;
        auto magnitude = static_cast<std::uint64_t>(value < 0 ? -value : value);
        for (int i = 1; magnitude != 0; ++i, magnitude /= 100)
            field[i] = static_cast<Byte>(magnitude % 100);
    }
    static std::int64_t load(const Byte* field) {
        std::int64_t magnitude = 0;
        for (int i = 6; i >= 1; --i)
            magnitude = magnitude * 100 + field[i];
        return field[0] == 1 ? -magnitude : magnitude;
    }
    static std::uint64_t prefix(const Byte* field) {
        return static_cast<std::uint64_t>(load(field) + magnitudeMax);
    }
    static std::strong_ordering order(const Byte* left, const Byte* right) {
        return load(left) <=> load(right);
    }
};

// Beginnings of strings: the same `length` letters in all of them.
template <std::size_t length>
struct SameBeginning {
    static constexpr std::size_t kLengthMax = length;
    static std::size_t write(Byte* text, Random&) {
        for (std::size_t i = 0; i < length; ++i)
            text[i] = static_cast<Byte>('a' + i % 26);
        return length;
    }
};

// None for a quarter of the strings, and one of 48 texts of 20 to 60 letters for the others.
struct LongBeginnings {
    static constexpr std::size_t kLengthMax = 60;
    static std::size_t write(Byte* text, Random& random) {
        const std::uint64_t group = random.below(64);
        if (group % 4 == 0) return 0;
        Random letters(group);
        const std::size_t length = 20 + letters.below(41);
        std::generate_n(text, length, [&] { return randomLetter(letters); });
        return length;
    }
};

// A length and letters: a beginning, then lengthMin to lengthMax random ones. `distinct` different
// strings, or any number for 0. Behind the letters the field is zero.
template <typename Beginning, std::size_t lengthMin, std::size_t lengthMax,
          std::uint64_t distinct = 0>
struct StringKey : KeyDefaults {
    static_assert(Beginning::kLengthMax + lengthMax >= 8);
    static constexpr DataType kType = DataType::kString;
    static constexpr std::uint16_t kFieldBytes =
        kLengthPrefixBytes + Beginning::kLengthMax + lengthMax;
    static constexpr int kPrefixBits = 64;

    static void fill(Byte* field, Random& random) {
        Random own(distinct == 0 ? random.next() : random.below(distinct));
        std::memset(field, 0, kFieldBytes);
        Byte* const text = field + kLengthPrefixBytes;
        const std::size_t begun = Beginning::write(text, own);
        const std::size_t length = begun + lengthMin + own.below(lengthMax - lengthMin + 1);
        storeAs<std::uint16_t>(field, static_cast<std::uint16_t>(length));
        std::generate(text + begun, text + length, [&] { return randomLetter(own); });
    }
    static std::uint64_t prefix(const Byte* field) { return loadBig64(field + kLengthPrefixBytes); }
    static std::strong_ordering order(const Byte* left, const Byte* right) {
        const std::uint16_t leftLength = loadU16(left);
        const std::uint16_t rightLength = loadU16(right);
        const int order = std::memcmp(left + kLengthPrefixBytes, right + kLengthPrefixBytes,
                                      std::min(leftLength, rightLength));
        return order != 0 ? order <=> 0 : leftLength <=> rightLength;
    }
};

// A length in bytes and 4 to `unitsMax` UCS-2 letters of two alphabets.
template <std::size_t unitsMax>
struct UnitStringKey : KeyDefaults {
    static constexpr DataType kType = DataType::kUnitString;
    static constexpr std::uint16_t kFieldBytes = kLengthPrefixBytes + 2 * unitsMax;
    static constexpr int kPrefixBits = 64;

    static std::uint16_t unitAt(const Byte* field, std::size_t index) {
        return loadU16(field + kLengthPrefixBytes + 2 * index);
    }
    static void fill(Byte* field, Random& random) {
        std::memset(field, 0, kFieldBytes);
        const std::size_t units = 4 + random.below(unitsMax - 3);
        storeAs<std::uint16_t>(field, static_cast<std::uint16_t>(2 * units));
        for (std::size_t i = 0; i < units; ++i) {
            const std::uint64_t alphabet = random.below(2) == 0 ? 'a' : 0x0430;
            storeAs<std::uint16_t>(field + kLengthPrefixBytes + 2 * i,
                                   static_cast<std::uint16_t>(alphabet + random.below(26)));
        }
    }
    static std::uint64_t prefix(const Byte* field) {
        return std::uint64_t{unitAt(field, 0)} << 48 | std::uint64_t{unitAt(field, 1)} << 32 |
               std::uint64_t{unitAt(field, 2)} << 16 | unitAt(field, 3);
    }
    static std::strong_ordering order(const Byte* left, const Byte* right) {
        const std::uint16_t leftLength = loadU16(left);
        const std::uint16_t rightLength = loadU16(right);
        for (std::size_t i = 0; i < std::min(leftLength, rightLength) / 2U; ++i) {
            if (unitAt(left, i) != unitAt(right, i)) return unitAt(left, i) <=> unitAt(right, i);
        }
        return leftLength <=> rightLength;
    }
};

template <std::uint16_t recordLength, typename... Keys>
struct KeyedRecord {
    static constexpr std::uint16_t kRecordLength = recordLength;
    static constexpr std::size_t kKeyCount = sizeof...(Keys);
    template <std::size_t index>
    using KeyAt = std::tuple_element_t<index, std::tuple<Keys...>>;

    // Where each key's field starts, and where the last one ends.
    static constexpr std::array<std::uint16_t, kKeyCount + 1> kOffsets = [] {
        std::array<std::uint16_t, kKeyCount + 1> offsets = {};
        std::size_t i = 0;
        ((++i, offsets[i] = static_cast<std::uint16_t>(offsets[i - 1] + Keys::kFieldBytes)), ...);
        return offsets;
    }();
    static constexpr bool kHasNulls = (Keys::kNullable || ...);
    static constexpr std::size_t kNumberOffset = kOffsets[kKeyCount] + (kHasNulls ? kKeyCount : 0);
    static_assert(kNumberOffset < recordLength);

    static RequestBuilder request() {
        RequestBuilder request;
        const std::uint16_t* offset = kOffsets.data();
        (request.addKey((Keys::kDescending ? host::descendingKey : host::ascendingKey)(
             Keys::kType, *offset++, Keys::kFieldBytes)),
         ...);
        if (kHasNulls) request.setNullIndicators(kOffsets[kKeyCount]);
        return request;
    }

    static void fill(Byte* record, std::uint64_t number, Random& random) {
        const std::uint16_t* offset = kOffsets.data();
        (Keys::fill(record + *offset++, random), ...);
        if constexpr (kHasNulls) {
            Byte* indicator = record + kOffsets[kKeyCount];
            ((*indicator++ = Keys::kNullable && random.below(10) == 0 ? 1 : 0), ...);
        }
        const std::size_t room = recordLength - kNumberOffset;
        const std::size_t numberBytes = std::min(room, sizeof number);
        std::memcpy(record + kNumberOffset, &number, numberBytes);
        std::memset(record + kNumberOffset + numberBytes, static_cast<int>(number % 251),
                    room - numberBytes);
    }

    static bool precedes(const Byte* left, const Byte* right) {
        return precedesFrom<0>(left, right);
    }

    static std::uint64_t prefix(const Byte* record) {
        return prefixOf(record, std::make_index_sequence<kKeyCount>());
    }

  private:
    template <std::size_t index>
    static bool isNull(const Byte* record) {
        return KeyAt<index>::kNullable && record[kOffsets[kKeyCount] + index] == 1;
    }

    // By the keys from `index` on. Nulls are greater than all values.
    template <std::size_t index>
    static bool precedesFrom(const Byte* left, const Byte* right) {
        if constexpr (index == kKeyCount) {
            return false;
        } else {
            using Key = KeyAt<index>;
            const bool leftNull = isNull<index>(left);
            if (leftNull != isNull<index>(right)) return leftNull == Key::kDescending;
            if (!leftNull) {
                const auto order = Key::order(left + kOffsets[index], right + kOffsets[index]);
                if (order != 0) return Key::kDescending ? order > 0 : order < 0;
            }
            return precedesFrom<index + 1>(left, right);
        }
    }

    template <std::size_t... index>
    static std::uint64_t prefixOf(const Byte* record, std::index_sequence<index...>) {
        std::uint64_t prefix = 0;
        int room = 64;
        (appendPrefix<index>(record, prefix, room), ...);
        return prefix;
    }

    // What of the key's prefix `room` bits hold, its upper end, behind the others.
    template <std::size_t index>
    static void appendPrefix(const Byte* record, std::uint64_t& prefix, int& room) {
        using Key = KeyAt<index>;
        int bits = Key::kPrefixBits;
        std::uint64_t own = Key::prefix(record + kOffsets[index]);
        if constexpr (Key::kNullable) {
            // A bit above the others says null.
            if (bits == 64) own >>= 1;
            bits = std::min(bits + 1, 64);
            if (isNull<index>(record)) own = std::uint64_t{1} << (bits - 1);
        }
        if (Key::kDescending) own = ~own & ~std::uint64_t{0} >> (64 - bits);
        const int taken = std::min(bits, room);
        if (taken == 0) return;
        prefix = taken == 64 ? own : prefix << taken | own >> (bits - taken);
        room -= taken;
    }
};

// A line of text: ten letters of key, a blank, the number in 20 digits, filling, and the line's
// end. Programs that sort lines or load tables can take it as it is.
struct TextLine : KeyedRecord<100, BytesKey<10>> {
    static constexpr std::uint16_t kKeyBytes = 10;

    static void fill(Byte* record, std::uint64_t number, Random& random) {
        BytesKey<kKeyBytes>::fill(record, random);
        record[kKeyBytes] = ' ';
        for (int i = kKeyBytes + 20; i > kKeyBytes; --i, number /= 10)
            record[i] = static_cast<Byte>('0' + number % 10);
        std::memset(record + kKeyBytes + 21, '.', kRecordLength - kKeyBytes - 22);
        record[kRecordLength - 1] = '\n';
    }
};

}  // namespace tvsort::bench
