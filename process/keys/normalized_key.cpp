#include "process/keys/normalized_key.h"

#include "process/job/sort_job.h"

namespace tvsort {

namespace {

constexpr std::uint64_t kAllBits = ~std::uint64_t{0};
constexpr Byte kDigitBits = 0x7f;  // of a digit up to 99
constexpr Byte kByteBits = 0xff;
constexpr std::uint32_t kWordBytes = 8;

class KeyWriter {
  public:
    explicit KeyWriter(NormalizedKey& key) : key_(key) {
        key_.segmentCount = 0;
        key_.checkCount = 0;
        key_.admitted = kNoDoubts;
        key_.hasTolerantFloats = false;
        key_.isWhole = true;
    }

    void startKey(const KeyRule& rule, bool nullable) {
        rule_ = &rule;
        common_ = {};
        common_.nullable = nullable;
        common_.ascending = rule.ascending;
        common_.nullOffset = rule.nullOffset;
        common_.offset = common_.lengthOffset = rule.fieldOffset;
        common_.turn = rule.ascending ? 0 : kAllBits;
        common_.bits = kAllBits;
    }
    void addNullMark() {
        KeyWord word = common_;
        word.kind = WordKind::kNullMark;
        word.nullable = false;
        word.offset = rule_->nullOffset;
        word.turn = rule_->nullsFirst ? kAllBits : 0;
        add(word, 1, kSignBit);
    }
    void addInteger(std::int32_t bytes, WordKind kind = WordKind::kInteger) {
        KeyWord word = common_;
        word.kind = kind;
        word.shift = static_cast<std::uint8_t>(64 - 8 * bytes);
        word.turn ^= kSignBit;
        add(word, 1, leadingBytes(bytes));
    }
    void addFloat(WordKind kind) {
        KeyWord word = common_;
        word.kind = kind;
        if (rule_->ascending) {
            key_.hasTolerantFloats = true;
        } else {
            addCheck(kind == WordKind::kSingle ? CheckKind::kNumber : CheckKind::kDouble);
        }
        add(word, 1, leadingBytes(kind == WordKind::kSingle ? 4 : 8));
    }
    // A field of fixed length.
    void addContent(WordKind kind, std::uint32_t bytes, std::uint32_t skipped = 0) {
        KeyWord word = common_;
        word.kind = kind;
        word.weights = rule_->weights;
        word.offset += skipped;
        addWords(word, bytes);
    }
    // A stored length and what it counts.
    void addString(WordKind kind) {
        addCheck(CheckKind::kLength);
        KeyWord word = common_;
        word.kind = kind;
        word.weights = rule_->weights;
        word.bounded = true;
        word.lengthMax = rule_->fieldLength;
        word.contentBytes = std::min<std::int32_t>(rule_->fieldLength, rule_->contentBytes);
        word.offset += kLengthPrefixBytes;
        const auto bytes = static_cast<std::uint32_t>(word.contentBytes);
        addWords(word, bytes);
        if (kind != WordKind::kCollated) return addInteger(kLengthPrefixBytes, WordKind::kLength);
        word.kind = WordKind::kUnitCount;
        add(word, 1, leadingBytes(kLengthPrefixBytes));
    }
    void addDecimal() {
        addCheck(CheckKind::kDecimal);
        KeyWord word = common_;
        word.kind = WordKind::kDecimalHigh;
        word.digitTurn = kDigitBits;
        add(word, 2, kAllBits);
    }

  private:
    void addWords(const KeyWord& first, std::uint32_t bytes) {
        if (bytes == 0) return;
        const auto last = static_cast<std::int32_t>((bytes - 1) % kWordBytes + 1);
        add(first, (bytes + kWordBytes - 1) / kWordBytes, leadingBytes(last));
    }
    void add(const KeyWord& first, std::uint32_t words, std::uint64_t lastBits) {
        key_.segments[key_.segmentCount++] = {first, words, lastBits, key_.checkCount};
    }
    void addCheck(CheckKind kind) {
        key_.checks[key_.checkCount++] = {kind,
                                          common_.nullable,
                                          rule_->ascending,
                                          rule_->fieldLength,
                                          rule_->fieldOffset,
                                          rule_->nullOffset};
    }

    NormalizedKey& key_;
    const KeyRule* rule_ = nullptr;
    KeyWord common_ = {};
};

void describeValue(KeyWriter& writer, const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kSkipped:
        case Comparison::kGeometry:
            return;
        case Comparison::kBytes:
            return writer.addContent(WordKind::kBytes, rule.fieldLength);
        case Comparison::kWeightedBytes:
            return writer.addContent(WordKind::kWeighted, rule.fieldLength);
        case Comparison::kSingleByte:
            return writer.addContent(WordKind::kBytes, 1);
        case Comparison::kFixedField:
            return writer.addContent(WordKind::kBytes, kFixedFieldComparedBytes,
                                     kFixedFieldSkippedBytes);
        case Comparison::kUnits:
            return writer.addContent(WordKind::kUnits, rule.fieldLength & ~1U);
        case Comparison::kCollatedUnits:
            return writer.addContent(WordKind::kCollated, rule.fieldLength & ~1U);
        case Comparison::kInteger2:
            return writer.addInteger(2);
        case Comparison::kInteger4:
        case Comparison::kUniqueInteger:
            return writer.addInteger(4);
        case Comparison::kInteger8:
            return writer.addInteger(8);
        case Comparison::kSingle:
            return writer.addFloat(WordKind::kSingle);
        case Comparison::kDouble:
            return writer.addFloat(WordKind::kDouble);
        case Comparison::kDecimal:
            return writer.addDecimal();
        case Comparison::kString:
            return writer.addString(WordKind::kBytes);
        case Comparison::kWeightedString:
            return writer.addString(WordKind::kWeighted);
        case Comparison::kUnitString:
            return writer.addString(WordKind::kUnits);
        case Comparison::kCollatedUnitString:
            return writer.addString(WordKind::kCollated);
    }
}

Doubts doubtsAboutDecimal(const ValueCheck& check, const Byte* value) {
    if (isDecimal(value)) return kNoDoubts;
    const bool isKnown = value[0] <= static_cast<Byte>(DecimalClass::kHighest);
    return isKnown && !check.ascending ? kWideDecimal : kNoDecimal;
}

Doubts doubtsAboutValue(const ValueCheck& check, const Byte* value) {
    switch (check.kind) {
        case CheckKind::kLength:
            return loadI16(value) > std::int32_t{check.lengthMax} ? kNotOrdered : kNoDoubts;
        case CheckKind::kDecimal:
            return doubtsAboutDecimal(check, value);
        case CheckKind::kNumber:
            return std::isnan(loadAs<float>(value)) ? kNotOrdered : kNoDoubts;
        case CheckKind::kDouble:
            return std::isnan(loadAs<double>(value)) ? kNotOrdered : kNoDoubts;
    }
    return kNotOrdered;
}

}  // namespace

void describeKey(const SortJob& job, NormalizedKey& key) {
    KeyWriter writer(key);
    const bool nullable = job.hasKind4Key != 0;
    KeyRule lastRule = {};
    lastRule.ascending = true;
    bool endsUnique = false;
    for (int k = 0; k < job.keyCount && key.isWhole; ++k) {
        lastRule = job.keyRules[k];
        writer.startKey(lastRule, nullable);
        key.isWhole = lastRule.comparison != Comparison::kGeometry;
        if (nullable && key.isWhole) writer.addNullMark();
        describeValue(writer, lastRule);
        endsUnique = lastRule.comparison == Comparison::kUniqueInteger;
    }
    if (job.modeFlag != 0 && key.isWhole) {
        lastRule.fieldOffset = kRecordFlagOffset;
        writer.startKey(lastRule, false);
        writer.addContent(WordKind::kBytes, 1);
    }
    key.uniqueSegment = key.segmentCount - (endsUnique ? 1 : 0);
}

Doubts findDoubts(const NormalizedKey& key, std::uint32_t checkCount, const Byte* record) {
    Doubts doubts = kNoDoubts;
    for (std::uint32_t i = 0; i < checkCount; ++i) {
        const ValueCheck& check = key.checks[i];
        if (check.nullable && record[check.nullOffset] == kNullIndicator) continue;
        doubts |= doubtsAboutValue(check, record + check.offset);
    }
    return doubts & ~key.admitted;
}

void admitWideDecimals(NormalizedKey& key) {
    key.admitted = kWideDecimal;
    for (std::uint32_t s = 0; s < key.segmentCount; ++s)
        key.segments[s].first.digitTurn = kByteBits;
}

std::uint64_t readWord(const KeyWord& word, const Byte* record) {
    if (word.nullable && record[word.nullOffset] == kNullIndicator) return 0;
    return readKnownWord(word, word.kind, word.bounded, record);
}

std::uint64_t readWeighted(const Byte* weights, const Byte* content, std::int32_t bytes) {
    std::uint64_t word = 0;
    for (std::int32_t i = 0; i < bytes && i < 8; ++i)
        word |= std::uint64_t{weights[content[i]]} << (56 - 8 * i);
    return word;
}

std::uint64_t readCollated(const Byte* content, std::int32_t bytes) {
    std::uint64_t word = 0;
    for (std::int32_t i = 0; i < bytes / 2 && i < 4; ++i)
        word |= std::uint64_t{unitWeight(*collationTable, loadU16(content + 2 * i))}
                << (48 - 16 * i);
    return word;
}

KeyOrder compareKeys(const NormalizedKey& key, const KeyPlace& place, const Byte* left,
                     const Byte* right) {
    std::uint32_t word = place.word;
    for (std::uint32_t s = place.segment; s < key.segmentCount; ++s) {
        const KeySegment& segment = key.segments[s];
        KeyWord at = wordAt(key, s, word);
        for (;;) {
            const std::uint64_t leftWord = readWord(at, left);
            const std::uint64_t unlike =
                (leftWord ^ readWord(at, right)) &
                (word + 1 == segment.words ? segment.lastBits : segment.first.bits);
            if (unlike != 0) {
                const bool rightHigher = (leftWord >> (std::bit_width(unlike) - 1) & 1) == 0;
                return {rightHigher ? -1 : 1, s};
            }
            if (++word == segment.words) break;
            if (at.kind == WordKind::kDecimalHigh) {
                at.kind = WordKind::kDecimalLow;
                continue;
            }
            at.offset += kWordBytes;
            at.skippedBytes += std::int32_t{kWordBytes};
        }
        word = 0;
    }
    return {0, key.segmentCount};
}

}  // namespace tvsort
