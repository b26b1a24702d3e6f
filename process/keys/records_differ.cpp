#include "process/keys/records_differ.h"

#include "process/keys/null_indicator.h"
#include "process/keys/value_compare.h"

namespace tvsort {

Difference recordsDiffer(SortJob& job, std::uint32_t leftOffset, std::uint32_t rightOffset) {
    const Byte* const left = recordAt(job, leftOffset);
    const Byte* const right = recordAt(job, rightOffset);
    const KeyRule* const rulesEnd = job.keyRules + job.keyCount;
    for (const KeyRule* rule = job.keyRules; rule != rulesEnd; ++rule) {
        if (job.limitCount == 0 && rule->groupKey == 0) return Difference::kSame;
        const Difference difference =
            rule->groupKey == kStartsGroup ? Difference::kNewGroup : Difference::kDifferent;
        if (job.hasKind4Key != 0) {
            const bool leftNull = isNull(left, *rule);
            if (leftNull != isNull(right, *rule)) return difference;
            if (leftNull) continue;
        }
        switch (compareValues(*rule, left + rule->fieldOffset, right + rule->fieldOffset,
                              FloatRule::kTolerant)) {
            case ValueOrder::kEqual:
                continue;
            case ValueOrder::kLess:
            case ValueOrder::kGreater:
            case ValueOrder::kInvalidDecimal:
                return difference;
            case ValueOrder::kUnreadableGeometry:
                raise(job, ErrorCode::kGeometryUnreadable);
                continue;
            case ValueOrder::kTooLong:
                raise(job, ErrorCode::kValueTooLong);
                return Difference::kSame;
        }
    }
    return Difference::kSame;
}

}  // namespace tvsort
