#include "host/record_order.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "host/host_error.h"

namespace tvsort::host {

namespace {

constexpr Byte kNullMark = 1;

using Units = std::vector<std::uint16_t>;
using Values = std::vector<Byte>;
using Weights = std::array<std::uint8_t, 256>;

Values wholeField(const Byte* field, std::size_t byteCount) {
    return {field, field + byteCount};
}

Values prefixedField(const Byte* field, std::uint16_t lengthMax) {
    const int length = loadI16(field);
    if (length > lengthMax) {
        throw badUse("a length-prefixed key value states " + std::to_string(length) +
                     " bytes where its key allows " + std::to_string(lengthMax) +
                     "; check the key's offset and length");
    }
    const Byte* const content = field + sizeof(std::uint16_t);
    return {content, content + std::max(length, 0)};
}

Units unitsOf(const Values& bytes) {
    Units units(bytes.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = loadU16(bytes.data() + 2 * i);
    return units;
}

// A decimal as numbers that compare one by one: the rank of its class, then its digits, the most
// significant first, counting downward where the number is negative. Nothing for what is no
// decimal.
std::optional<std::vector<int>> decimalRank(const Byte* field) {
    constexpr int kDigitCount = 15;
    constexpr int kDigitMax = 99;
    // By class byte: zero, negative, positive, lowest, highest.
    constexpr std::array kRanks = {2, 1, 3, 0, 4};
    constexpr int kZero = 0;
    constexpr int kNegative = 1;
    constexpr int kPositive = 2;

    std::vector<int> digits;
    for (int i = kDigitCount; i >= 1; --i)
        digits.push_back(field[i]);
    const int greatest = *std::max_element(digits.begin(), digits.end());
    int classByte = field[0];
    if (classByte >= static_cast<int>(kRanks.size()) || greatest > kDigitMax) return std::nullopt;
    if (classByte == kZero && greatest > 0) return std::nullopt;
    // A zero may be written with a sign.
    if ((classByte == kNegative || classByte == kPositive) && greatest == 0) classByte = kZero;

    std::vector<int> rank = {kRanks[static_cast<std::size_t>(classByte)]};
    if (classByte == kNegative || classByte == kPositive) {
        const int sign = classByte == kNegative ? -1 : 1;
        for (const int digit : digits)
            rank.push_back(sign * digit);
    }
    return rank;
}

Values weighed(Values values, const std::optional<Weights>& weights) {
    if (weights.has_value()) {
        for (Byte& value : values)
            value = (*weights)[value];
    }
    return values;
}

template <typename Value>
RecordOrder::Verdict order(const Value& left, const Value& right) {
    if (left < right) return RecordOrder::Verdict::kBefore;
    return right < left ? RecordOrder::Verdict::kAfter : RecordOrder::Verdict::kEqual;
}

// All values that are no finite number are equal to one another and above every finite one.
RecordOrder::Verdict orderTolerantly(double left, double right, double tolerance) {
    if (!std::isfinite(left) || !std::isfinite(right)) {
        return order(!std::isfinite(left), !std::isfinite(right));
    }
    const double apart = std::fabs(left - right);
    const double magnitude = std::max(std::fabs(left), std::fabs(right));
    if (left != right && apart <= 2 * tolerance * magnitude) {
        return RecordOrder::Verdict::kUndecided;
    }
    return order(left, right);
}

RecordOrder::Verdict orderFloats(const RecordOrder::Key& key, const Byte* left, const Byte* right) {
    const bool single = key.descriptor.fieldLength == sizeof(float);
    const double leftValue = single ? double{loadAs<float>(left)} : loadAs<double>(left);
    const double rightValue = single ? double{loadAs<float>(right)} : loadAs<double>(right);
    if (key.ascending) return orderTolerantly(leftValue, rightValue, single ? 0x1p-19 : 0x1p-48);
    // A descending key holds what is no number equal to everything: such an order says nothing.
    if (std::isnan(leftValue) || std::isnan(rightValue)) return RecordOrder::Verdict::kUndecided;
    return order(leftValue, rightValue);
}

RecordOrder::Verdict orderStrings(const RecordOrder::Key& key, const Byte* left,
                                  const Byte* right) {
    const std::uint16_t lengthMax = key.descriptor.fieldLength;
    const auto verdict = order(weighed(prefixedField(left, lengthMax), key.weights),
                               weighed(prefixedField(right, lengthMax), key.weights));
    // Stated lengths below zero have no content, but an order.
    return verdict == RecordOrder::Verdict::kEqual ? order(loadI16(left), loadI16(right)) : verdict;
}

RecordOrder::Verdict orderUnitStrings(const RecordOrder::Key& key, const Byte* left,
                                      const Byte* right) {
    Values leftBytes = prefixedField(left, key.descriptor.fieldLength);
    Values rightBytes = prefixedField(right, key.descriptor.fieldLength);
    const std::size_t common = std::min(leftBytes.size(), rightBytes.size());
    leftBytes.resize(common);
    rightBytes.resize(common);
    const auto verdict = order(unitsOf(leftBytes), unitsOf(rightBytes));
    return verdict == RecordOrder::Verdict::kEqual ? order(loadI16(left), loadI16(right)) : verdict;
}

RecordOrder::Verdict orderIntegers(const RecordOrder::Key& key, const Byte* left,
                                   const Byte* right) {
    switch (key.descriptor.fieldLength) {
        case 2:
            return order(loadI16(left), loadI16(right));
        case 4:
            return order(loadI32(left), loadI32(right));
        default:
            return order(loadAs<std::int64_t>(left), loadAs<std::int64_t>(right));
    }
}

RecordOrder::Verdict orderDecimals(const RecordOrder::Key& key, const Byte* left,
                                   const Byte* right) {
    const auto leftRank = decimalRank(left);
    const auto rightRank = decimalRank(right);
    if (leftRank.has_value() && rightRank.has_value()) return order(*leftRank, *rightRank);
    if (key.ascending) throw badUse("a decimal key value is no decimal; check the key's offset");
    // A descending key holds it equal to everything.
    return RecordOrder::Verdict::kUndecided;
}

RecordOrder::Verdict orderValues(const RecordOrder::Key& key, const Byte* left, const Byte* right) {
    const std::uint16_t length = key.descriptor.fieldLength;
    switch (static_cast<DataType>(key.descriptor.dataType)) {
        case DataType::kInteger:
            return orderIntegers(key, left, right);
        case DataType::kFloat:
            return orderFloats(key, left, right);
        case DataType::kDecimal:
        case DataType::kAlsoDecimal:
            return orderDecimals(key, left, right);
        case DataType::kBytes:
        case DataType::kWeightedBytes:
            return order(weighed(wholeField(left, length), key.weights),
                         weighed(wholeField(right, length), key.weights));
        case DataType::kString:
        case DataType::kWeightedString:
            return orderStrings(key, left, right);
        case DataType::kSingleByte:
            return order(*left, *right);
        case DataType::kUnits:
            return order(unitsOf(wholeField(left, length)), unitsOf(wholeField(right, length)));
        case DataType::kUnitString:
            return orderUnitStrings(key, left, right);
        case DataType::kFixedField:
            left += kFixedFieldSkippedBytes;
            right += kFixedFieldSkippedBytes;
            return order(wholeField(left, kFixedFieldComparedBytes),
                         wholeField(right, kFixedFieldComparedBytes));
        case DataType::kNone:
        case DataType::kAlsoNone:
            break;
    }
    return RecordOrder::Verdict::kEqual;
}

// The first table with the key's identifier decides, and applies only when its switch says so.
std::optional<Weights> weightsFor(const RequestBuilder& request, const KeyDescriptor& key) {
    const auto type = static_cast<DataType>(key.dataType);
    if (type != DataType::kWeightedBytes && type != DataType::kWeightedString) return std::nullopt;
    for (const ByteWeightTable& table : request.weightTables()) {
        if (table.identifier != key.weightTableId) continue;
        if (table.applies == 1) return std::to_array(table.weights);
        break;
    }
    return std::nullopt;
}

}  // namespace

RecordOrder::RecordOrder(const RequestBuilder& request)
    : nullIndicatorsOffset_(request.nullIndicatorsOffset()) {
    for (const KeyDescriptor& descriptor : request.keys()) {
        if (descriptor.geometryType != kGeometryTypeNone) {
            throw badUse("the order of geometry keys cannot be verified; leave such keys out");
        }
        const bool ascending =
            (descriptor.kindFlags & kKeyKindMask) == static_cast<std::uint8_t>(KeyKind::kAscending);
        keys_.push_back({descriptor, ascending, weightsFor(request, descriptor)});
    }
}

bool RecordOrder::mayFollow(const Byte* previous, const Byte* next) const {
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        switch (compareKey(i, previous, next)) {
            case Verdict::kEqual:
                continue;
            case Verdict::kAfter:
                return false;
            case Verdict::kBefore:
            case Verdict::kUndecided:
                return true;
        }
    }
    return true;
}

RecordOrder::Verdict RecordOrder::compareKey(std::size_t keyIndex, const Byte* left,
                                             const Byte* right) const {
    const Key& key = keys_[keyIndex];
    if (nullIndicatorsOffset_.has_value()) {
        const bool leftNull = left[*nullIndicatorsOffset_ + keyIndex] == kNullMark;
        const bool rightNull = right[*nullIndicatorsOffset_ + keyIndex] == kNullMark;
        if (leftNull && rightNull) return Verdict::kEqual;
        if (leftNull || rightNull) {
            const std::uint8_t flags = key.descriptor.kindFlags;
            const bool first =
                (flags & kNullsFirstBit) != 0 || ((flags & kNullsLastBit) == 0 && !key.ascending);
            return leftNull == first ? Verdict::kBefore : Verdict::kAfter;
        }
    }
    const Verdict verdict =
        orderValues(key, left + key.descriptor.fieldOffset, right + key.descriptor.fieldOffset);
    if (key.ascending || verdict == Verdict::kEqual || verdict == Verdict::kUndecided) {
        return verdict;
    }
    return verdict == Verdict::kBefore ? Verdict::kAfter : Verdict::kBefore;
}

}  // namespace tvsort::host
