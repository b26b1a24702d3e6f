#include "process/keys/record_precedes.h"

#include <algorithm>

#include "process/keys/null_indicator.h"
#include "process/keys/value_compare.h"

namespace tvsort {

namespace {

// Whether an indicator is set for any key that stands before the last key in the request, sort key
// or not. Any value but 0 excuses the record here.
bool hasEarlierNull(const SortJob& job, const Byte* left) {
    if (job.hasKind4Key == 0) return false;
    const Byte* const indicators = left + job.kind4Key.fieldOffset;
    const Byte* const last = indicators + job.keyPositions[job.keyCount - 1] - 1;
    return std::any_of(indicators, last, [](Byte indicator) { return indicator != 0; });
}

// Records that are equal in every key, in the set-operation modes. Without any key the smaller flag
// comes first.
bool flagPrecedes(const SortJob& job, Byte left, Byte right) {
    const bool ascending = job.keyCount == 0 || job.keyRules[job.keyCount - 1].ascending;
    return ascending ? left < right : left > right;
}

}  // namespace

bool isExcused(const SortJob& job, const Byte* left) {
    return job.sortMode == SortMode::kUniqueUnlessNull && hasEarlierNull(job, left);
}

bool recordPrecedes(SortJob& job, std::uint32_t leftOffset, std::uint32_t rightOffset) {
    const Byte* const left = recordAt(job, leftOffset);
    const Byte* const right = recordAt(job, rightOffset);
    const std::uint8_t stateBefore = job.compareState;
    job.compareState = 1;
    const KeyRule* const rulesEnd = job.keyRules + job.keyCount;
    for (const KeyRule* rule = job.keyRules; rule != rulesEnd; ++rule) {
        if (job.hasKind4Key != 0) {
            const bool leftNull = isNull(left, *rule);
            if (leftNull != isNull(right, *rule)) return leftNull == rule->nullsFirst;
            if (leftNull) continue;
        }
        const ValueOrder order =
            compareValues(*rule, left + rule->fieldOffset, right + rule->fieldOffset,
                          rule->ascending ? FloatRule::kTolerant : FloatRule::kExact);
        switch (order) {
            case ValueOrder::kEqual:
                continue;
            case ValueOrder::kLess:
            case ValueOrder::kGreater:
                if (rule->comparison == Comparison::kUniqueInteger && !isExcused(job, left)) {
                    raise(job, ErrorCode::kNotUnique);
                    return false;
                }
                return (order == ValueOrder::kLess) == rule->ascending;
            case ValueOrder::kInvalidDecimal:
                if (rule->ascending) raise(job, ErrorCode::kDecimalInvalid);
                continue;
            case ValueOrder::kUnreadableGeometry:
                raise(job, ErrorCode::kGeometryUnreadable);
                continue;
            case ValueOrder::kTooLong:
                raise(job, ErrorCode::kValueTooLong);
                return false;
        }
    }
    if (job.modeFlag != 0 && left[kRecordFlagOffset] != right[kRecordFlagOffset]) {
        return flagPrecedes(job, left[kRecordFlagOffset], right[kRecordFlagOffset]);
    }
    job.compareState = stateBefore;
    return false;
}

}  // namespace tvsort
