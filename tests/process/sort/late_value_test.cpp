// Values that nobody can order, met when a distribution has moved records already: the request ends
// with the code that the plain quicksort ends it with, and every record is still there.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/plain_sort.h"
#include "tests/support/served_job.h"

namespace tvsort::test {
namespace {

constexpr std::uint16_t kRecordBytes = 64;
constexpr std::uint16_t kPerBlock = 64;
constexpr std::uint16_t kKeyOffset = 8;
constexpr std::int32_t kFrames = 64;
constexpr std::uint32_t kCount = 3 * kFrames * kPerBlock - 7;

struct LateCase {
    const char* name;
    KeyDescriptor key;
    SortMode mode;
    ErrorCode code;
    std::function<void(Byte* value, std::uint32_t random)> good;
    std::function<void(Byte* value)> bad;
};

void setDecimal(Byte* value, std::uint32_t random) {
    value[0] = static_cast<Byte>(1 + random % 2);
    for (int digit = 9; digit < 16; ++digit, random /= 5)
        value[digit] = static_cast<Byte>(random % 100);
}

void setString(Byte* value, std::uint32_t random) {
    storeAs(value, std::uint16_t{4});
    storeAs(value + 2, random);
}

void setDouble(Byte* value, std::uint32_t random) {
    storeAs(value, static_cast<double>(random));
}

void setInteger(Byte* value, std::uint32_t random) {
    storeAs(value, static_cast<std::int32_t>(random));
}

void setClass(Byte* value) {
    value[0] = 5;
}

void setLength(Byte* value) {
    storeAs(value, std::uint16_t{9});
}

void setNan(Byte* value) {
    storeAs(value, std::numeric_limits<double>::quiet_NaN());
}

void setDigit(Byte* value) {
    value[15] = 100;
}

void setEqual(Byte* value) {
    setInteger(value, 77);
}

const LateCase kCases[] = {
    {"no class of decimals", ascendingKey(DataType::kDecimal, kKeyOffset, 16), SortMode::kOrder,
     ErrorCode::kDecimalInvalid, setDecimal, setClass},
    {"the same, downward", descendingKey(DataType::kDecimal, kKeyOffset, 16), SortMode::kOrder,
     ErrorCode::kSuccess, setDecimal, setClass},
    {"no digit", ascendingKey(DataType::kDecimal, kKeyOffset, 16), SortMode::kOrder,
     ErrorCode::kDecimalInvalid, setDecimal, setDigit},
    {"string longer than its field", ascendingKey(DataType::kString, kKeyOffset, 8),
     SortMode::kOrder, ErrorCode::kValueTooLong, setString, setLength},
    {"not a number, downward", descendingKey(DataType::kFloat, kKeyOffset, 8), SortMode::kOrder,
     ErrorCode::kSuccess, setDouble, setNan},
    {"not unique", ascendingKey(DataType::kInteger, kKeyOffset, 4), SortMode::kUnique,
     ErrorCode::kNotUnique, setInteger, setEqual},
};

Records recordsOf(const LateCase& c, const std::vector<std::uint32_t>& badOnes) {
    std::mt19937 random(5);
    Records records(kCount, Bytes(kRecordBytes));
    for (std::uint32_t i = 0; i < kCount; ++i) {
        storeAs(records[i].data(), i);
        c.good(records[i].data() + kKeyOffset, static_cast<std::uint32_t>(random()) / 2);
    }
    for (const std::uint32_t bad : badOnes)
        c.bad(records[bad].data() + kKeyOffset);
    return records;
}

struct Ending {
    ErrorCode code;
    Records records;  // where they stand, in the frames or else in the file, by their numbers
};

Ending serve(const LateCase& c, const Records& records) {
    ServedJob served({kFrames, 1});
    Request request = served.lay(records, {1, kPerBlock, kRecordBytes});
    request.keys = {c.key};
    request.head.sortMode = static_cast<std::uint16_t>(c.mode);
    srand(1);
    Ending ending = {served.ask(request).errorCode(), {}};
    Bytes data = served.workFile();
    for (std::int32_t f = 0; f < served.job().framesInUse; ++f) {
        const std::int32_t block = served.job().pageDescriptors[f].block;
        std::copy_n(served.frames() + f * kPageBytes, kPageBytes,
                    data.begin() + std::ptrdiff_t{block - 1} * kPageBytes);
    }
    for (std::uint32_t i = 0; i < kCount; ++i) {
        const Byte* const record =
            data.data() + i / kPerBlock * kPageBytes + std::size_t{i % kPerBlock} * kRecordBytes;
        ending.records.emplace_back(record, record + kRecordBytes);
    }
    std::sort(ending.records.begin(), ending.records.end(),
              [](const Bytes& left, const Bytes& right) {
                  return loadU32(left.data()) < loadU32(right.data());
              });
    return ending;
}

TEST(LateValue, EndsAsThePlainQuicksortEndsItAndLosesNothing) {
    constexpr std::uint32_t kFirstInFile = kFrames * kPerBlock;
    const std::vector<std::uint32_t> places[] = {{kFirstInFile + 3, kFirstInFile + 9},
                                                 {2 * kFirstInFile, 2 * kFirstInFile + 70},
                                                 {kCount - 2, kCount - 1}};
    for (const LateCase& c : kCases) {
        for (const auto& badOnes : places) {
            SCOPED_TRACE(std::string(c.name) + " at " + std::to_string(badOnes[0]));
            const Records records = recordsOf(c, badOnes);
            const Ending ending = serve(c, records);
            EXPECT_EQ(ending.code, c.code);
            EXPECT_EQ(ending.records, records);
            const PlainSort plain;
            EXPECT_EQ(serve(c, records).code, c.code);
        }
    }
}

}  // namespace
}  // namespace tvsort::test
