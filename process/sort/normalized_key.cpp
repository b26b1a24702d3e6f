#include "process/sort/normalized_key.h"

#include <algorithm>

#include "process/job/sort_job.h"
#include "process/storage/record_address.h"

namespace tvsort {

namespace {

constexpr std::uint64_t kAllBits = ~std::uint64_t{0};
constexpr std::uint64_t kTopBit = std::uint64_t{1} << 63;
constexpr Byte kDigitBits = 0x7f;  // of a digit up to 99
constexpr Byte kByteBits = 0xff;

// The first `bytes` bytes of a word, 1 to 8.
std::uint64_t leadingBytes(std::uint32_t bytes) {
    return kAllBits << (64 - 8 * bytes);
}

class KeyWriter {
  public:
    explicit KeyWriter(NormalizedKey& key) : key_(key) { key_.segmentCount = 0; }

    void startKey(const KeyRule& rule, bool nullable) {
        common_ = {};
        common_.nullable = nullable;
        common_.nullOffset = rule.nullOffset;
        common_.turn = rule.ascending ? 0 : kAllBits;
        common_.bits = kAllBits;
    }
    void addNullMark(const KeyRule& rule) {
        KeyWord word = common_;
        word.kind = WordKind::kNullMark;
        word.nullable = false;
        word.offset = rule.nullOffset;
        word.turn = rule.nullsFirst ? kAllBits : 0;
        add(word, 1, kTopBit);
    }
    void addInteger(std::uint32_t offset, std::uint32_t bytes, std::uint64_t signBit) {
        KeyWord word = common_;
        word.kind = WordKind::kInteger;
        word.offset = offset;
        word.shift = static_cast<std::uint8_t>(64 - 8 * bytes);
        word.turn ^= signBit;
        add(word, 1, leadingBytes(bytes));
    }
    void addBytes(std::uint32_t offset, std::uint32_t bytes) {
        if (bytes == 0) return;
        KeyWord word = common_;
        word.kind = WordKind::kBytes;
        word.offset = offset;
        add(word, (bytes + 7) / 8, leadingBytes((bytes - 1) % 8 + 1));
    }
    void addDecimal(std::uint32_t offset) {
        KeyWord word = common_;
        word.kind = WordKind::kDecimalHigh;
        word.offset = offset;
        word.digitTurn = kDigitBits;
        add(word, 2, kAllBits);
    }

  private:
    void add(const KeyWord& first, std::uint32_t words, std::uint64_t lastBits) {
        key_.segments[key_.segmentCount++] = {first, words, lastBits};
    }

    NormalizedKey& key_;
    KeyWord common_ = {};
};

void describeValue(KeyWriter& writer, const KeyRule& rule) {
    const std::uint32_t offset = rule.fieldOffset;
    switch (rule.comparison) {
        case Comparison::kInteger2:
            return writer.addInteger(offset, 2, kTopBit);
        case Comparison::kInteger4:
        case Comparison::kUniqueInteger:
            return writer.addInteger(offset, 4, kTopBit);
        case Comparison::kInteger8:
            return writer.addInteger(offset, 8, kTopBit);
        case Comparison::kDecimal:
            return writer.addDecimal(offset);
        case Comparison::kString:
            writer.addBytes(offset + kLengthPrefixBytes, rule.fieldLength - kLengthPrefixBytes);
            return writer.addInteger(offset, kLengthPrefixBytes, 0);
        default:
            return writer.addBytes(offset, rule.fieldLength);
    }
}

// Calls `visit` with each record in order, as long as it answers true.
template <typename Visit>
bool allRecords(const SortJob& job, Visit visit) {
    std::int32_t left = job.recordCount;
    for (std::int32_t frame = 0; left > 0; ++frame) {
        const std::int32_t here = std::min<std::int32_t>(left, job.recordsPerBlock);
        const Byte* record = recordAt(job, frameOffset(job, frame));
        for (std::int32_t i = 0; i < here; ++i, record += job.recordLength) {
            if (!visit(record)) return false;
        }
        left -= here;
    }
    return true;
}

// `digitsAboveMax` becomes true when there are any.
bool segmentHasPlaces(const SortJob& job, const KeyWord& word, bool ascending,
                      bool& digitsAboveMax) {
    return allRecords(job, [&, word](const Byte* record) {
        if (word.nullable && record[word.nullOffset] == kNullIndicator) return true;
        const Byte* const value = record + word.offset;
        if (decimalClass(value) != DecimalClass::kInvalid) return true;
        if (hasDigitAboveMax(decimalMagnitude(value))) digitsAboveMax = true;
        return !ascending && value[0] <= static_cast<Byte>(DecimalClass::kHighest);
    });
}

}  // namespace

void describeKey(const SortJob& job, NormalizedKey& key) {
    KeyWriter writer(key);
    const bool nullable = job.hasKind4Key != 0;
    KeyRule lastRule = {};
    lastRule.ascending = true;
    for (int k = 0; k < job.keyCount; ++k) {
        lastRule = job.keyRules[k];
        writer.startKey(lastRule, nullable);
        if (nullable) writer.addNullMark(lastRule);
        describeValue(writer, lastRule);
    }
    if (job.modeFlag == 0) return;
    writer.startKey(lastRule, false);
    writer.addBytes(kRecordFlagOffset, 1);
}

bool decimalsHavePlaces(const SortJob& job, NormalizedKey& key) {
    for (std::uint32_t s = 0; s < key.segmentCount; ++s) {
        KeyWord& word = key.segments[s].first;
        if (word.kind != WordKind::kDecimalHigh) continue;
        bool digitsAboveMax = false;
        if (!segmentHasPlaces(job, word, word.turn == 0, digitsAboveMax)) return false;
        if (digitsAboveMax) word.digitTurn = kByteBits;
    }
    return true;
}

int compareKeys(const NormalizedKey& key, const KeyPlace& place, const Byte* left,
                const Byte* right) {
    std::uint32_t word = place.word;
    for (std::uint32_t s = place.segment; s < key.segmentCount; ++s) {
        const std::uint32_t words = key.segments[s].words;
        for (; word < words; ++word) {
            const KeyWord at = wordAt(key, s, word);
            const std::uint64_t leftWord = readWord(at, left) & at.bits;
            const std::uint64_t rightWord = readWord(at, right) & at.bits;
            if (leftWord != rightWord) return leftWord < rightWord ? -1 : 1;
        }
        word = 0;
    }
    return 0;
}

}  // namespace tvsort
