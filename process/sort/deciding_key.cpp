#include "process/sort/deciding_key.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace tvsort {

namespace {

// The three records that a key is chosen by.
struct Samples {
    const Byte* reference;
    const Byte* first;
    const Byte* last;

    bool alikeIn(std::uint32_t offset, std::size_t bytes) const {
        return std::memcmp(reference + offset, first + offset, bytes) == 0 &&
               std::memcmp(reference + offset, last + offset, bytes) == 0;
    }
};

// Adds the bytes to what a record must have in common with the reference. False when the samples
// differ in them, or when there are too many.
bool addAlikeBytes(DecidingKey& key, const Samples& samples, std::uint32_t offset,
                   std::uint32_t bytes) {
    if (!samples.alikeIn(offset, bytes)) return false;
    for (; bytes > 0; offset += 8) {
        if (key.alikeWordCount == kAlikeWordsMax) return false;
        const std::uint32_t here = std::min(bytes, std::uint32_t{sizeof(std::uint64_t)});
        const std::uint64_t mask = std::numeric_limits<std::uint64_t>::max() >> 8 * (8 - here);
        const std::uint64_t value = loadAs<std::uint64_t>(samples.reference + offset) & mask;
        key.alikeWords[key.alikeWordCount++] = {offset, mask, value};
        bytes -= here;
    }
    return true;
}

// Bytes of the reference's value; of strings, of its content.
std::int32_t valueBytes(const DigitSource& source, const Byte* reference) {
    switch (source.kind) {
        case LeadingKind::kInteger2:
            return 2;
        case LeadingKind::kInteger4:
        case LeadingKind::kSingle:
            return 4;
        case LeadingKind::kDecimal:
            return kDecimalBytes;
        case LeadingKind::kBytes:
            return source.fieldLength;
        case LeadingKind::kString:
            return std::clamp<std::int32_t>(loadOnce<std::int16_t>(reference + source.fieldOffset),
                                            0, source.contentBytes);
        default:
            return 8;
    }
}

// Whether the value of bytes or of a string goes on behind the digits.
bool goesOn(const DigitSource& source, const Byte* reference) {
    return (source.kind == LeadingKind::kBytes || source.kind == LeadingKind::kString) &&
           valueBytes(source, reference) > source.skippedBytes + kDigitBytes;
}

// Whether equal digits mean equal values.
bool holdsValue(const DigitSource& source) {
    switch (source.kind) {
        case LeadingKind::kInteger2:
        case LeadingKind::kInteger4:
        case LeadingKind::kInteger8:
            return true;
        case LeadingKind::kBytes:
            return source.fieldLength - source.skippedBytes <= kDigitBytes;
        default:
            return false;
    }
}

// The highest digit of the decimal at `field` that is not zero.
int topDigit(const Byte* field) {
    int top = kDecimalDigitCount;
    while (top > 1 && field[top] == 0)
        top -= 1;
    return top;
}

DigitSource sourceFor(const KeyRule& rule, const Samples& samples) {
    DigitSource source = digitSource(rule, 0);
    if (source.kind == LeadingKind::kDecimal) {
        takeDecimalDigits(source, std::max({topDigit(samples.reference + rule.fieldOffset),
                                            topDigit(samples.first + rule.fieldOffset),
                                            topDigit(samples.last + rule.fieldOffset)}));
    }
    return source;
}

// What follows the reference's digits, for records that have the same.
template <LeadingKind kind>
void lookAhead(DecidingKey& key, const Byte* reference) {
    key.goesOn = goesOn(key.source, reference);
    if (!key.goesOn) return;
    key.nextSource = digitSource(*key.rule, key.source.skippedBytes + kDigitBytes);
    ascendingDigits<kind>(key.nextSource, reference, key.nextDigits);
    key.nextDigits ^= key.turn;
}

// Fills `low` and `high` around the reference's digits. False when it has none.
template <LeadingKind kind>
bool encloseReference(DecidingKey& key, const Byte* reference) {
    std::uint64_t digits = 0;
    if (key.checksNulls && isNull(reference, *key.rule)) return false;
    if (!ascendingDigits<kind>(key.source, reference, digits)) return false;
    const DigitRange alike = alikeDigits<kind>(key, digits ^ key.turn);
    key.low = alike.low;
    key.high = alike.high;
    lookAhead<kind>(key, reference);
    return true;
}

bool enclose(DecidingKey& key, const Byte* reference) {
    return withDecidingKey(
        key, [&]<LeadingKind kind, bool>() { return encloseReference<kind>(key, reference); });
}

// Moves on to the next digits of bytes or of a string. False when the samples differ in these.
bool passDigits(DecidingKey& key, const Samples& samples) {
    if (!addAlikeBytes(key, samples, key.source.offset, kDigitBytes)) return false;
    key.source = key.nextSource;
    return true;
}

// Requires of the records all that is left of the reference's value. False when the samples differ
// there.
bool passValue(DecidingKey& key, const Samples& samples) {
    const DigitSource& source = key.source;
    if (key.checksNulls && !addAlikeBytes(key, samples, key.nullOffset, 1)) return false;
    if (source.kind == LeadingKind::kString &&
        !addAlikeBytes(key, samples, source.fieldOffset, kLengthPrefixBytes)) {
        return false;
    }
    const bool isDecimal = source.kind == LeadingKind::kDecimal;
    const std::uint32_t offset = isDecimal ? source.fieldOffset : source.offset;
    const std::int32_t left = valueBytes(source, samples.reference) - source.skippedBytes;
    // Below 0 only where the value has become shorter since its digits were skipped.
    return left >= 0 && addAlikeBytes(key, samples, offset, static_cast<std::uint32_t>(left));
}

bool isOrderly(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kSingle:
        case Comparison::kDouble:
        case Comparison::kDecimal:
        case Comparison::kGeometry:
            return false;
        default:
            return true;
    }
}

bool mayRaise(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kDecimal:
            return rule.ascending;
        case Comparison::kUniqueInteger:
        case Comparison::kString:
        case Comparison::kWeightedString:
        case Comparison::kGeometry:
        case Comparison::kUnitString:
        case Comparison::kCollatedUnitString:
            return true;
        default:
            return false;
    }
}

}  // namespace

DecidingKey chooseDecidingKey(const SortJob& job, const Byte* reference, const Byte* first,
                              const Byte* last) {
    const Samples samples = {reference, first, last};
    DecidingKey chosen = {};
    DecidingKey next = {};
    next.checksNulls = job.hasKind4Key != 0;
    for (int k = 0; k < job.keyCount; ++k) {
        const KeyRule& rule = job.keyRules[k];
        next.rule = &rule;
        next.source = sourceFor(rule, samples);
        next.isExact = !rule.ascending;
        next.nullOffset = rule.nullOffset;
        next.turn = rule.ascending ? 0 : std::numeric_limits<std::uint64_t>::max();
        const bool isLast = k == job.keyCount - 1 && job.modeFlag == 0;
        for (;;) {
            if (!enclose(next, reference)) return chosen;
            chosen = next;
            chosen.isComplete = isLast && holdsValue(next.source);
            if (!next.goesOn) break;
            if (!passDigits(next, samples)) return chosen;
        }
        if (!passValue(next, samples)) return chosen;
    }
    return chosen;
}

FreeComparisons freeComparisons(const SortJob& job, const DecidingKey& key) {
    FreeComparisons free = {true, true, true};
    for (int k = 0; k < job.keyCount; ++k) {
        const KeyRule& rule = job.keyRules[k];
        const bool isOther = &rule != key.rule;
        if (isOther && !isOrderly(rule)) free.areOrderly = false;
        if (!mayRaise(rule)) continue;
        free.ofAll = false;
        if (isOther) free.ofComparable = false;
    }
    return free;
}

}  // namespace tvsort
