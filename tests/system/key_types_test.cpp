// Every key type through the running process: values of ascending rank, shuffled, in both
// directions, with every null placement, in data sets that fit into the memory and that do not.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "host/collation_directory.h"
#include "host/sort_server.h"
#include "host/values/collation_writer.h"
#include "host/values/value_text.h"

namespace tvsort::host {
namespace {

struct TypeCase {
    const char* format;
    DataType dataType;
    // From the smallest on.
    std::vector<const char*> texts;
};

void PrintTo(const TypeCase& type, std::ostream* stream) {
    *stream << type.format << " as type " << int(type.dataType);
}

const TypeCase kTypes[] = {
    {"int16", DataType::kInteger, {"-32768", "-1", "0", "255", "256"}},
    {"int32", DataType::kInteger, {"-70000", "-1", "1", "2147483647"}},
    {"int64",
     DataType::kInteger,
     {"-9223372036854775808", "-4294967296", "-1", "4294967295", "4294967296"}},
    {"float", DataType::kFloat, {"-1e30", "-1", "0", "0.5", "1.0000001e20", "inf"}},
    {"double", DataType::kFloat, {"-1e300", "-1e-300", "0", "1", "1.000000001", "inf"}},
    {"decimal:3", DataType::kDecimal, {"lowest", "-12.5", "-12.499", "0", ".001", "7", "99"}},
    {"decimal:0", DataType::kAlsoDecimal, {"-100", "-99", "0", "99", "100", "10000", "highest"}},
    {"byte", DataType::kSingleByte, {"0", "1", "127", "128", "255"}},
    {"string", DataType::kString, {"", "a", "a\x01", "b", "\xff"}},
    {"string", DataType::kWeightedString, {"", "A", "Ab", "Ac", "Z"}},
    {"string", DataType::kBytes, {"abc", "abd", "b__"}},
    {"ucs2", DataType::kUnitString, {"", "z", "zz", "å", "ä", "öl"}},
    {"ucs2", DataType::kUnits, {"zz", "åå", "ää", "ö!"}},
    {"wkt",
     DataType::kString,
     {"POINT (-5 7)", "LINESTRING (1 2, 0 0)", "POLYGON ((0 0, 3 0, 0 3, 0 0))", "POINT (1 1)",
      "GEOMETRYCOLLECTION (GEOMETRYCOLLECTION (POINT (1 2), POINT EMPTY))", "POINT EMPTY"}},
    {"wkt", DataType::kWeightedString, {"POINT (0 0)", "POINT (0 1)", "MULTIPOINT (1 1, 2 2)"}},
    {"wkt-envelope",
     DataType::kString,
     {"POINT (0 0)", "LINESTRING (0 0, 1 1)", "LINESTRING (1 0, 0 2)", "POINT (1 0)"}},
    {"wkt-envelope", DataType::kWeightedString, {"POINT (0 0)", "POINT (0 1)", "POLYGON EMPTY"}},
};

// A record: 5 bytes of which the sort modes use the last, the key's field, its null indicator, the
// value's rank.
constexpr std::uint16_t kFieldOffset = 5;
constexpr std::uint16_t kValueBytesMax = 120;
constexpr std::uint16_t kNullOffset = kFieldOffset + kLengthPrefixBytes + kValueBytesMax;
constexpr std::uint16_t kRankOffset = kNullOffset + 1;
constexpr std::uint16_t kRecordLength = kRankOffset + 2;
// Above every value's rank.
constexpr std::uint16_t kNullRank = 100;

using Records = std::vector<std::vector<Byte>>;

int rankOf(const Byte* record) {
    return loadU16(record + kRankOffset);
}

KeyDescriptor keyOf(const TypeCase& type) {
    KeyDescriptor key = valueFormat(type.format).key(kFieldOffset, kValueBytesMax);
    key.dataType = static_cast<std::uint8_t>(type.dataType);
    key.groupKey = kStartsGroup;
    // Without a length prefix all values have one length.
    if (type.dataType == DataType::kBytes) key.fieldLength = 3;
    if (type.dataType == DataType::kUnits) key.fieldLength = 4;
    return key;
}

bool isPrefixed(DataType type) {
    return type == DataType::kString || type == DataType::kWeightedString ||
           type == DataType::kUnitString;
}

// Records of random rank, every eighth a null.
Records makeRecords(const TypeCase& type) {
    std::mt19937 random(20561);
    ValueEncoder encoder(valueFormat(type.format));
    Records records;
    for (int i = 0; i < 3000; ++i) {
        const bool null = random() % 8 == 0;
        const auto rank = static_cast<std::uint16_t>(random() % type.texts.size());
        const std::vector<Byte>& value = encoder.encode(type.texts[rank]);
        std::vector<Byte> record(kRecordLength, 0);
        Byte* field = record.data() + kFieldOffset;
        if (isPrefixed(type.dataType)) {
            storeAs(field, static_cast<std::uint16_t>(value.size()));
            field += kLengthPrefixBytes;
        }
        std::copy(value.begin(), value.end(), field);
        record[kNullOffset] = null ? 1 : 0;
        storeAs(record.data() + kRankOffset, null ? kNullRank : rank);
        records.push_back(record);
    }
    return records;
}

class KeyTypes : public testing::TestWithParam<TypeCase> {
  protected:
    // Two servers, one with ample memory and one with the smallest, and a Swedish collation.
    static void SetUpTestSuite() {
        const CollationOrder order = collationOrder("sv", CollationStrength::kPrimary);
        collation_.emplace(defaultTempDirectory(), 20561, makeCollationFile(order).bytes);
        for (const std::int32_t memoryPages : {400, 10}) {
            ServerOptions options;
            options.processPath = TVSORT_PROGRAM;
            options.memoryPages = memoryPages;
            options.pagesPerBlock = 2;
            options.requestTimeout = Timeout{60000};
            options.directoryPrefix = collation_->prefix();
            servers_.push_back(std::make_unique<SortServer>(options));
        }
    }
    static void TearDownTestSuite() {
        servers_.clear();
        collation_.reset();
    }

    static SortResult sort(bool fits, const Records& records, const RequestBuilder& request) {
        std::size_t next = 0;
        const SortResult result = servers_[fits ? 0 : 1]->slot(1).sort(
            request, chooseGeometry(kRecordLength, 2),
            [&](Byte* target, std::size_t) -> std::size_t {
                if (next == records.size()) return 0;
                std::copy(records[next].begin(), records[next].end(), target);
                next += 1;
                return 1;
            });
        EXPECT_EQ(result.loaded.fitted, fits);
        return result;
    }

    static inline std::optional<CollationDirectory> collation_;
    static inline std::vector<std::unique_ptr<SortServer>> servers_;
};

std::vector<int> expectedRanks(const Records& records, bool ascending, bool nullsFirst) {
    std::vector<int> ranks;
    for (const auto& record : records)
        ranks.push_back(rankOf(record.data()));
    std::sort(ranks.begin(), ranks.end(), [=](int left, int right) {
        if ((left == kNullRank) != (right == kNullRank)) return (left == kNullRank) == nullsFirst;
        return ascending ? left < right : left > right;
    });
    return ranks;
}

TEST_P(KeyTypes, StandInOrderInBothDirectionsWithEveryNullPlacement) {
    const Records records = makeRecords(GetParam());
    KeyDescriptor key = keyOf(GetParam());
    for (const Byte direction : {Byte{1}, Byte{0}}) {
        for (const Byte placement : {Byte{0}, kNullsFirstBit, kNullsLastBit}) {
            key.kindFlags =
                static_cast<Byte>((key.kindFlags & kEnvelopeBit) | direction | placement);
            // By default a null is greater than every value.
            const bool nullsFirst =
                placement == kNullsFirstBit || (placement == 0 && direction == 0);
            const std::vector<int> expected = expectedRanks(records, direction == 1, nullsFirst);
            for (const bool fits : {true, false}) {
                SCOPED_TRACE(testing::Message() << "kind byte " << int{key.kindFlags}
                                                << (fits ? ", fits" : ", spills"));
                const SortResult result = sort(
                    fits, records, RequestBuilder().addKey(key).setNullIndicators(kNullOffset));
                std::vector<int> ranks;
                result.read([&ranks](const Byte* first, std::size_t count) {
                    for (std::size_t i = 0; i < count; ++i) {
                        ranks.push_back(rankOf(first + i * kRecordLength));
                    }
                });
                EXPECT_EQ(ranks, expected);
            }
        }
    }
}

TEST_P(KeyTypes, AreEqualWhereTheirRanksAre) {
    const auto values = static_cast<std::int32_t>(GetParam().texts.size());
    for (const bool fits : {true, false}) {
        const SortResult result = sort(fits, makeRecords(GetParam()),
                                       RequestBuilder()
                                           .addKey(keyOf(GetParam()))
                                           .setNullIndicators(kNullOffset)
                                           .setMode(SortMode::kGroups));
        EXPECT_EQ(result.reply.groupCount, values + 1);
    }
}

INSTANTIATE_TEST_SUITE_P(All, KeyTypes, testing::ValuesIn(kTypes), [](const auto& tested) {
    std::string name = tested.param.format;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
    return name + "_as_type_" + std::to_string(int(tested.param.dataType));
});

}  // namespace
}  // namespace tvsort::host
