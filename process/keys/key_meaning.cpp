#include "process/keys/key_meaning.h"

#include <algorithm>

#include "process/collation/collation_table.h"
#include "process/keys/byte_weights.h"
#include "protocol/data_type.h"

namespace tvsort {

namespace {

Comparison integerComparison(std::uint16_t fieldLength) {
    switch (fieldLength) {
        case 2:
            return Comparison::kInteger2;
        case 4:
            return Comparison::kInteger4;
        default:
            return Comparison::kInteger8;
    }
}

Comparison stringComparison(const KeyDescriptor& key) {
    return key.geometryType == kGeometryTypeNone ? Comparison::kString : Comparison::kGeometry;
}

Comparison comparisonOf(const KeyDescriptor& key, bool weighted) {
    const bool collated = collationTable != nullptr;
    switch (static_cast<DataType>(key.dataType)) {
        case DataType::kWeightedBytes:
            return weighted ? Comparison::kWeightedBytes : Comparison::kBytes;
        case DataType::kInteger:
            return integerComparison(key.fieldLength);
        case DataType::kFloat:
            return key.fieldLength == 4 ? Comparison::kSingle : Comparison::kDouble;
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
            return Comparison::kDecimal;
        case DataType::kBytes:
            return Comparison::kBytes;
        case DataType::kWeightedString:
            return weighted ? Comparison::kWeightedString : stringComparison(key);
        case DataType::kString:
            return stringComparison(key);
        case DataType::kSingleByte:
            return Comparison::kSingleByte;
        case DataType::kUnits:
            return collated ? Comparison::kCollatedUnits : Comparison::kUnits;
        case DataType::kUnitString:
            return collated ? Comparison::kCollatedUnitString : Comparison::kUnitString;
        case DataType::kFixedField:
            return Comparison::kFixedField;
        case DataType::kNone:
        case DataType::kAlsoNone:
            break;
    }
    return Comparison::kSkipped;
}

bool usesWeights(const KeyDescriptor& key) {
    const auto type = static_cast<DataType>(key.dataType);
    return type == DataType::kWeightedBytes || type == DataType::kWeightedString;
}

// With both placement bits set, nulls stand first. With neither, a null is greater than every
// value.
bool nullsStandFirst(const KeyDescriptor& key, bool ascending) {
    if ((key.kindFlags & kNullsFirstBit) != 0) return true;
    if ((key.kindFlags & kNullsLastBit) != 0) return false;
    return !ascending;
}

}  // namespace

void resolveKeyRules(SortJob& job) {
    for (int k = 0; k < job.keyCount; ++k) {
        const KeyDescriptor& key = *job.keyOrder[k];
        const Byte* weights = usesWeights(key) ? findWeights(job, key.weightTableId) : nullptr;
        const bool ascending =
            (key.kindFlags & kKeyKindMask) == static_cast<std::uint8_t>(KeyKind::kAscending);

        KeyRule& rule = job.keyRules[k];
        rule.comparison = comparisonOf(key, weights != nullptr);
        rule.ascending = ascending;
        rule.nullsFirst = nullsStandFirst(key, ascending);
        rule.storedEnvelope = (key.kindFlags & kEnvelopeBit) != 0;
        rule.geometryType = key.geometryType;
        rule.groupKey = key.groupKey;
        rule.fieldOffset = key.fieldOffset;
        rule.fieldLength = key.fieldLength;
        rule.nullOffset = std::uint32_t{job.kind4Key.fieldOffset} + job.keyPositions[k] - 1;
        rule.contentBytes = std::max(
            0, job.recordLength - key.fieldOffset - static_cast<std::int32_t>(kLengthPrefixBytes));
        rule.weights = weights;

        const bool checkedForUniqueness =
            job.sortMode == SortMode::kUnique || job.sortMode == SortMode::kUniqueUnlessNull;
        if (checkedForUniqueness && k == job.keyCount - 1 && ascending &&
            rule.comparison == Comparison::kInteger4) {
            rule.comparison = Comparison::kUniqueInteger;
        }
    }
}

}  // namespace tvsort
