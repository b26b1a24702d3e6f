#include "sort/normalized_key.h"

#include <algorithm>
#include <cstring>

#include "keys/null_indicator.h"

namespace tvsort {

namespace {

constexpr Byte kAllBits = 0xff;

void turnBytes(Byte* bytes, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i)
        bytes[i] ^= kAllBits;
}

std::uint32_t valueBytes(const KeyRule& rule) {
    switch (rule.comparison) {
        case Comparison::kInteger2:
            return 2;
        case Comparison::kInteger4:
        case Comparison::kUniqueInteger:
            return 4;
        case Comparison::kInteger8:
            return 8;
        case Comparison::kDecimal:
            return kDecimalBytes;
        default:
            return rule.fieldLength;
    }
}

void normalizeInteger(const Byte* field, std::uint32_t bytes, Byte* target) {
    std::reverse_copy(field, field + bytes, target);
    target[0] ^= 0x80;
}

void normalizeString(const KeyRule& rule, const Byte* field, Byte* target) {
    const std::uint32_t contentBytes = rule.fieldLength - kLengthPrefixBytes;
    std::memcpy(target, field + kLengthPrefixBytes, contentBytes);
    target[contentBytes] = field[1];
    target[contentBytes + 1] = field[0];
}

bool normalizeDecimal(const KeyRule& rule, const Byte* field, Byte* target) {
    // By DecimalClass: the place in 3 < 1 < 0 < 2 < 4.
    constexpr Byte kClassRank[] = {2, 1, 3, 0, 4};
    const DecimalClass valueClass = distributedClass(field, rule.ascending);
    if (valueClass == DecimalClass::kInvalid) return false;
    target[0] = kClassRank[static_cast<int>(valueClass)];
    Byte* const digits = target + kDecimalDigitsOffset;
    if (valueClass == DecimalClass::kPositive || valueClass == DecimalClass::kNegative) {
        std::reverse_copy(field + kDecimalDigitsOffset, field + kDecimalBytes, digits);
        if (valueClass == DecimalClass::kNegative) turnBytes(digits, kDecimalDigitCount);
    } else {
        std::memset(digits, 0, kDecimalDigitCount);
    }
    return true;
}

bool normalizeValue(const KeyRule& rule, const Byte* field, Byte* target) {
    switch (rule.comparison) {
        case Comparison::kBytes:
            std::memcpy(target, field, rule.fieldLength);
            return true;
        case Comparison::kString:
            normalizeString(rule, field, target);
            return true;
        case Comparison::kDecimal:
            return normalizeDecimal(rule, field, target);
        default:
            normalizeInteger(field, valueBytes(rule), target);
            return true;
    }
}

}  // namespace

std::uint32_t normalizedKeyBytes(const SortJob& job) {
    std::uint32_t bytes = job.modeFlag != 0 ? 1 : 0;
    for (int k = 0; k < job.keyCount; ++k) {
        bytes += valueBytes(job.keyRules[k]) + (job.hasKind4Key != 0 ? 1 : 0);
    }
    return bytes;
}

DecimalClass distributedClass(const Byte* value, bool ascending) {
    const DecimalClass valueClass = decimalClass(value);
    if (valueClass != DecimalClass::kInvalid || ascending ||
        value[0] > static_cast<Byte>(DecimalClass::kHighest)) {
        return valueClass;
    }
    return static_cast<DecimalClass>(value[0]);
}

bool normalizeKey(const SortJob& job, const Byte* record, Byte* target) {
    const KeyRule* const rulesEnd = job.keyRules + job.keyCount;
    bool ascending = true;
    for (const KeyRule* rule = job.keyRules; rule != rulesEnd; ++rule) {
        const std::uint32_t bytes = valueBytes(*rule);
        ascending = rule->ascending;
        if (job.hasKind4Key != 0) {
            const bool null = isNull(record, *rule);
            *target++ = null == rule->nullsFirst ? 0 : 1;
            if (null) {
                std::memset(target, 0, bytes);
                target += bytes;
                continue;
            }
        }
        if (!normalizeValue(*rule, record + rule->fieldOffset, target)) return false;
        if (!ascending) turnBytes(target, bytes);
        target += bytes;
    }
    if (job.modeFlag != 0) {
        const Byte flag = record[kRecordFlagOffset];
        *target = ascending ? flag : flag ^ kAllBits;
    }
    return true;
}

}  // namespace tvsort
