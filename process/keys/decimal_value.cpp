#include "process/keys/decimal_value.h"

namespace tvsort {

namespace {

DecimalOrder compareMagnitudes(const Byte* left, const Byte* right) {
    const DecimalMagnitude leftMagnitude = decimalMagnitude(left);
    const DecimalMagnitude rightMagnitude = decimalMagnitude(right);
    if (leftMagnitude == rightMagnitude) return DecimalOrder::kEqual;
    return leftMagnitude.isBelow(rightMagnitude) ? DecimalOrder::kSmaller : DecimalOrder::kLarger;
}

}  // namespace

DecimalOrder compareDecimals(const Byte* left, const Byte* right) {
    const DecimalClass leftClass = decimalClass(left);
    const DecimalClass rightClass = decimalClass(right);
    if (leftClass == DecimalClass::kInvalid || rightClass == DecimalClass::kInvalid) {
        return DecimalOrder::kInvalid;
    }
    if (leftClass != rightClass) {
        return decimalClassRank(leftClass) < decimalClassRank(rightClass) ? DecimalOrder::kSmaller
                                                                          : DecimalOrder::kLarger;
    }
    if (leftClass == DecimalClass::kPositive) return compareMagnitudes(left, right);
    if (leftClass == DecimalClass::kNegative) return compareMagnitudes(right, left);
    return DecimalOrder::kEqual;
}

}  // namespace tvsort
