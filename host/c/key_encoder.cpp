#include "host/c/key_encoder.h"

#include <bit>
#include <cstring>
#include <limits>
#include <string>

#include "host/host_error.h"

namespace tvsort::capi {

namespace {

constexpr std::uint32_t kFlags =
    TVSORT_DESCENDING | TVSORT_NULLS_FIRST | TVSORT_BIG_ENDIAN | TVSORT_NULLABLE;
constexpr int kCodePointBytes = 4;
constexpr std::size_t kCodePointKeyBytes = 3;
constexpr std::uint32_t kCodePointsEnd = 0x110000;
constexpr std::size_t kRecordBytesMax = 65535;

template <typename Word>
constexpr int kBits = std::numeric_limits<Word>::digits;
template <typename Word>
constexpr Word kAllOnes = std::numeric_limits<Word>::max();
template <typename Word>
constexpr Word kSign = static_cast<Word>(Word{1} << (kBits<Word> - 1));

// Bits of the exponent of an infinity, where a float has so many bits.
template <typename Word>
constexpr Word infinityBits() {
    constexpr int kFractionBits = sizeof(Word) == 8 ? 52 : sizeof(Word) == 4 ? 23 : 10;
    return static_cast<Word>((kSign<Word> - 1) & ~((Word{1} << kFractionBits) - 1));
}

template <typename Word>
Word swapped(Word word) {
    if constexpr (sizeof(Word) == 8) return __builtin_bswap64(word);
    if constexpr (sizeof(Word) == 4) return __builtin_bswap32(word);
    if constexpr (sizeof(Word) == 2) return __builtin_bswap16(word);
    return word;
}

// `direction`: all ones turn the order around. `null`: what stands for one.
template <typename Word>
Word orderedFloat(Word bits, Word direction, Word null) {
    constexpr Word kMagnitude = static_cast<Word>(~kSign<Word>);
    const auto magnitude = static_cast<Word>(bits & kMagnitude);
    if (magnitude > infinityBits<Word>()) return null;
    const auto value = magnitude == 0 ? Word{0} : bits;
    const auto ordered =
        static_cast<Word>((value & kSign<Word>) != 0 ? ~value : value | kSign<Word>);
    return static_cast<Word>(ordered ^ direction);
}

template <typename Word>
Word orderedTime(Word bits, Word direction, Word null) {
    const auto ordered = static_cast<Word>(bits ^ kSign<Word>);  // 0: the null
    if (ordered == 0) return null;
    // From 1 up where nulls are 0, and from 0 up where they are all ones.
    const auto moved = static_cast<Word>(direction == 0 ? ordered - 1 : ~ordered);
    return static_cast<Word>(null == 0 ? moved + 1 : moved);
}

bool isWord(std::int64_t bytes) {
    return bytes == 2 || bytes == 4 || bytes == 8;
}

bool canBe(const tvsort_column& column) {
    switch (column.type) {
        case TVSORT_SIGNED:
        case TVSORT_UNSIGNED:
            return column.value_bytes == 1 || isWord(column.value_bytes);
        case TVSORT_FLOAT:
            return isWord(column.value_bytes);
        case TVSORT_BYTES:
            return column.value_bytes >= 0;
        case TVSORT_UCS4:
            return column.value_bytes >= 0 && column.value_bytes % kCodePointBytes == 0;
        case TVSORT_TIME:
            return column.value_bytes == 8;
        default:
            return false;
    }
}

}  // namespace

std::size_t KeyEncoder::fieldBytes(const Column& column) {
    return column.type == TVSORT_UCS4 ? column.valueBytes / kCodePointBytes * kCodePointKeyBytes
                                      : column.valueBytes;
}

void KeyEncoder::addColumn(const tvsort_column& column) {
    const std::string name = "column " + std::to_string(columns_.size());
    if (!canBe(column)) {
        throw host::badUse(name + " cannot be ordered: there is no type " +
                           std::to_string(column.type) + " of " +
                           std::to_string(column.value_bytes) + " bytes");
    }
    if ((column.flags & ~kFlags) != 0) {
        throw host::badUse(name + " has flags that mean nothing for a column");
    }
    Column made = {};
    made.type = column.type;
    made.flags = column.flags;
    made.valueBytes = static_cast<std::size_t>(column.value_bytes);
    const bool isNullable = made.has(TVSORT_NULLABLE);
    made.keyOffset = keyBytes_ + (isNullable ? 1 : 0);
    if (made.valueBytes > 2 * kRecordBytesMax ||
        made.keyOffset + fieldBytes(made) > kRecordBytesMax) {
        throw host::badUse(name + " makes the keys longer than " + std::to_string(kRecordBytesMax) +
                           " bytes; sort by fewer or shorter ones");
    }
    keyBytes_ = made.keyOffset + fieldBytes(made);
    columns_.push_back(made);
}

void KeyEncoder::setValues(std::int32_t columnIndex, const void* values, std::ptrdiff_t stride,
                           const void* nulls, std::ptrdiff_t nullsStride) {
    if (columnIndex < 0 || static_cast<std::size_t>(columnIndex) >= columns_.size()) {
        throw host::badUse("there is no column " + std::to_string(columnIndex) + "; there are " +
                           std::to_string(columns_.size()) + ", counted from 0");
    }
    Column& column = columns_[static_cast<std::size_t>(columnIndex)];
    if (column.has(TVSORT_NULLABLE) != (nulls != nullptr)) {
        throw host::badUse("column " + std::to_string(columnIndex) +
                           (nulls == nullptr ? " is nullable and has no nulls"
                                             : " is not nullable and has nulls"));
    }
    column.values = static_cast<const Byte*>(values);
    column.stride = stride;
    column.nulls = static_cast<const Byte*>(nulls);
    column.nullsStride = nullsStride;
}

void KeyEncoder::checkValues() const {
    if (columns_.empty()) throw host::badUse("there is no column to sort by; add one at least");
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (columns_[i].values == nullptr) {
            throw host::badUse("column " + std::to_string(i) + " has no values; set them");
        }
    }
}

template <typename Word>
void KeyEncoder::encodeWords(const Column& column, const Run& run) {
    const bool isBigEndian = column.has(TVSORT_BIG_ENDIAN);
    const Word direction = column.has(TVSORT_DESCENDING) ? kAllOnes<Word> : Word{0};
    const Word null = column.has(TVSORT_NULLS_FIRST) ? Word{0} : kAllOnes<Word>;
    // One loop for each way, without a question inside.
    const auto each = [&](auto&& ordered) {
        const Byte* value = run.values;
        Byte* target = run.target;
        for (std::size_t i = 0; i < run.rowCount; ++i) {
            const Word loaded = loadAs<Word>(value);
            storeAs<Word>(target, swapped(ordered(isBigEndian ? swapped(loaded) : loaded)));
            value += run.stride;
            target += run.recordBytes;
        }
    };
    if (column.type == TVSORT_FLOAT) {
        each([&](Word bits) { return orderedFloat(bits, direction, null); });
    } else if (column.type == TVSORT_TIME) {
        each([&](Word bits) { return orderedTime(bits, direction, null); });
    } else {
        const auto turned =
            static_cast<Word>(direction ^ (column.type == TVSORT_SIGNED ? kSign<Word> : Word{0}));
        each([&](Word bits) { return static_cast<Word>(bits ^ turned); });
    }
}

void KeyEncoder::encodeBytes(const Column& column, const Run& run) {
    const Byte* value = run.values;
    Byte* target = run.target;
    const bool isDescending = column.has(TVSORT_DESCENDING);
    for (std::size_t i = 0; i < run.rowCount; ++i) {
        if (isDescending) {
            for (std::size_t at = 0; at < column.valueBytes; ++at)
                target[at] = static_cast<Byte>(~value[at]);
        } else {
            std::memcpy(target, value, column.valueBytes);
        }
        value += run.stride;
        target += run.recordBytes;
    }
}

void KeyEncoder::encodeCodePoints(const Column& column, const Run& run) {
    const bool isBigEndian = column.has(TVSORT_BIG_ENDIAN);
    const std::uint32_t direction = column.has(TVSORT_DESCENDING) ? kAllOnes<std::uint32_t> : 0;
    const std::size_t units = column.valueBytes / kCodePointBytes;
    std::uint32_t greatest = 0;
    for (std::size_t i = 0; i < run.rowCount; ++i) {
        const Byte* value = run.values + static_cast<std::ptrdiff_t>(i) * run.stride;
        Byte* target = run.target + i * run.recordBytes;
        std::uint32_t greatestHere = 0;
        for (std::size_t unit = 0; unit < units; ++unit) {
            const std::uint32_t loaded = loadU32(value);
            const std::uint32_t point = isBigEndian ? swapped(loaded) : loaded;
            greatestHere = std::max(greatestHere, point);
            const std::uint32_t ordered = point ^ direction;
            target[0] = static_cast<Byte>(ordered >> 16);
            target[1] = static_cast<Byte>(ordered >> 8);
            target[2] = static_cast<Byte>(ordered);
            value += kCodePointBytes;
            target += kCodePointKeyBytes;
        }
        // What lies under a null is nobody's text.
        const bool isNull = run.nulls != nullptr &&
                            run.nulls[static_cast<std::ptrdiff_t>(i) * column.nullsStride] != 0;
        if (!isNull) greatest = std::max(greatest, greatestHere);
    }
    if (greatest >= kCodePointsEnd) {
        throw host::badUse("text holds the number " + std::to_string(greatest) +
                           ", which is no code point");
    }
}

void KeyEncoder::encodeNulls(const Column& column, const Run& run, std::size_t fieldBytes) {
    const Byte whenNull = column.has(TVSORT_NULLS_FIRST) ? 0 : 1;
    const Byte* null = run.nulls;
    Byte* target = run.target;
    for (std::size_t i = 0; i < run.rowCount; ++i) {
        const bool isNull = *null != 0;
        target[-1] = isNull ? whenNull : static_cast<Byte>(1 - whenNull);
        if (isNull) std::memset(target, 0, fieldBytes);
        null += column.nullsStride;
        target += run.recordBytes;
    }
}

void KeyEncoder::encode(std::int64_t firstRow, std::size_t rowCount, Byte* records,
                        std::size_t recordBytes) const {
    for (const Column& column : columns_) {
        const bool isNullable = column.has(TVSORT_NULLABLE);
        const Run run = {column.values + firstRow * column.stride,
                         column.stride,
                         rowCount,
                         records + column.keyOffset,
                         recordBytes,
                         isNullable ? column.nulls + firstRow * column.nullsStride : nullptr};
        if (column.type == TVSORT_BYTES) {
            encodeBytes(column, run);
        } else if (column.type == TVSORT_UCS4) {
            encodeCodePoints(column, run);
        } else if (column.valueBytes == 8) {
            encodeWords<std::uint64_t>(column, run);
        } else if (column.valueBytes == 4) {
            encodeWords<std::uint32_t>(column, run);
        } else if (column.valueBytes == 2) {
            encodeWords<std::uint16_t>(column, run);
        } else {
            encodeWords<std::uint8_t>(column, run);
        }
        if (isNullable) encodeNulls(column, run, fieldBytes(column));
    }
}

}  // namespace tvsort::capi
