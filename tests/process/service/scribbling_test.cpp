// Requests during which another thread writes over all of the slot. What they answer is of no
// account; each is answered, in bounded time, nothing outside the slot is touched, and the process
// goes on.
//
// TVSORT_SCRIBBLED_REQUESTS sets another number of requests.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "process/collation/collation_table.h"
#include "process/service/request_loop.h"
#include "tests/support/collation_bytes.h"
#include "tests/support/scribbler.h"
#include "tests/support/small_world.h"

namespace tvsort::test {
namespace {

constexpr int kRequestsDefault = 2000;
constexpr unsigned kSecondsMax = 20;

// Behind the fields of a small world's record: a value of each type in turn.
constexpr std::uint16_t kValueOffset = kWorldRecordLength;
constexpr std::uint16_t kValueBytes = 48;
constexpr std::uint16_t kRecordLength = kValueOffset + kValueBytes;

// A data set, and the way in which it is sorted.
struct Way {
    const char* name;
    SlotLayout layout;
    int recordCount;
    std::uint16_t recordsPerBlock;
    int distinct;   // values of a key, about
    int ofHundred;  // requests
    std::vector<KeyDescriptor> values;
};

KeyDescriptor value(DataType type, std::uint16_t length, std::uint8_t geometryType = 0) {
    KeyDescriptor key = ascendingKey(type, kValueOffset, length, 1);
    key.geometryType = geometryType;
    return key;
}

std::vector<KeyDescriptor> valuesOfAllTypes() {
    return {value(DataType::kInteger, 8),         value(DataType::kFloat, 8),
            value(DataType::kDecimal, 16),        value(DataType::kBytes, 20),
            value(DataType::kWeightedBytes, 20),  value(DataType::kString, 40),
            value(DataType::kWeightedString, 40), value(DataType::kUnits, 20),
            value(DataType::kUnitString, 40),     value(DataType::kString, 46, 255),
            value(DataType::kString, 46, 129),    value(DataType::kSingleByte, 1)};
}

const Way kWays[] = {
    {"Quicksort", {7, 1}, 250, 40, 50, 30, valuesOfAllTypes()},
    {"Spilled", {5, 1}, 200, 10, 50, 40, valuesOfAllTypes()},
    {"ByEntries", {5, 2}, 250, 40, 50, 25, valuesOfAllTypes()},
    {"ManyEntries",
     {460, 1},
     10000,
     56,
     50,
     3,
     {value(DataType::kInteger, 8), value(DataType::kBytes, 20), value(DataType::kDecimal, 16)}},
    {"ByCopy", {460, 1}, 10000, 56, 2, 2, {value(DataType::kBytes, 1)}},
};

std::ostream& operator<<(std::ostream& out, const Way& way) {
    return out << way.name;
}

int requestCount(const Way& way) {
    const char* const text = std::getenv("TVSORT_SCRIBBLED_REQUESTS");
    return (text == nullptr ? kRequestsDefault : std::atoi(text)) * way.ofHundred / 100;
}

// A well-known binary line of two points, behind its length; of few values.
Bytes lineValue(std::mt19937& random) {
    Bytes bytes(kValueBytes, 0);
    storeAs(bytes.data(), std::uint16_t{41});
    bytes[2] = 1;
    storeAs(bytes.data() + 3, std::uint32_t{2});
    storeAs(bytes.data() + 7, std::uint32_t{2});
    for (std::size_t i = 0; i < 4; ++i)
        storeAs(bytes.data() + 11 + 8 * i, static_cast<double>(random() % 5));
    return bytes;
}

// Also a good string, and bytes and integers of any value.
Bytes anyValue(std::mt19937& random, const KeyDescriptor& key) {
    if (key.geometryType != 0) return lineValue(random);
    Bytes bytes(kValueBytes);
    for (Byte& byte : bytes)
        byte = static_cast<Byte>(random() % 100);
    storeAs(bytes.data(), static_cast<std::uint16_t>(random() % 20 * 2));
    if (key.dataType == static_cast<std::uint8_t>(DataType::kDecimal)) bytes[0] = 1;
    return bytes;
}

// The program must not end in the middle of a test as if all were well.
bool mayEnd = true;

void failUnlessItMayEnd() {
    if (!mayEnd) _exit(1);
}

class Scribbling : public testing::TestWithParam<Way> {
  protected:
    Scribbling() {
        static const CollationBytes collation;
        static const CollationTable table = {collation.table()};
        collationTable = &table;
        std::atexit(failUnlessItMayEnd);
        mayEnd = false;
    }
    ~Scribbling() override {
        alarm(0);
        collationTable = nullptr;
        mayEnd = true;
    }

    // Lays records with values of this key; the request is one of the given mode for them.
    Request layAny(const KeyDescriptor& key, SortMode mode) {
        const Way& way = GetParam();
        Records records = randomWorld(random_, way.recordCount, way.distinct, 3, true);
        if (mode == SortMode::kHierarchy) growForest(random_, records, 5);
        for (Bytes& record : records) {
            const Bytes bytes = anyValue(random_, key);
            record.insert(record.end(), bytes.begin(), bytes.end());
        }
        Request request = served_.lay(records, {1, way.recordsPerBlock, kRecordLength});
        // The level of a hierarchy stands before the first key.
        request.keys = {ascendingKey(DataType::kInteger, kKeyAOffset, 2, 2), key,
                        descendingKey(DataType::kInteger, kKeyBOffset, 2, 3)};
        request.keys[1].weightTableId = 7;
        request.items = {{7, 1, 0, {3, 2, 1}}};
        request.head.sortMode = static_cast<std::uint16_t>(mode);
        request.head.limitCount = mode == SortMode::kOrder ? 10 : 0;
        return request;
    }

    // The same request, `times`, each time on the data that was laid.
    void askScribbled(const Request& request, int times) {
        const auto frameBytes = static_cast<std::size_t>(served_.layout().frameAreaBytes());
        const Bytes frames(served_.frames(), served_.frames() + frameBytes);
        const Bytes file = served_.workFile();
        const Scribbler scribbler(served_.job().message, served_.layout(),
                                  static_cast<std::uint32_t>(random_()));
        for (int i = 0; i < times; ++i) {
            std::copy(frames.begin(), frames.end(), served_.frames());
            ASSERT_EQ(pwrite(served_.job().workFd, file.data(), file.size(), 0),
                      static_cast<ssize_t>(file.size()));
            alarm(kSecondsMax);
            served_.ask(request);
        }
    }

    std::mt19937 random_{20261};
    ServedJob served_{GetParam().layout};
};

TEST_P(Scribbling, EveryRequestIsAnswered) {
    const Way& way = GetParam();
    constexpr int kModes = 10;
    const int kinds = kModes * static_cast<int>(way.values.size());
    const int times = requestCount(way) / kinds + 1;
    for (std::uint8_t mode = 0; mode < kModes; ++mode) {
        for (const KeyDescriptor& key : way.values) {
            const Request request = layAny(key, static_cast<SortMode>(mode));
            ASSERT_NO_FATAL_FAILURE(askScribbled(request, times))
                << int{mode} << " " << int{key.dataType};
        }
    }
    RecordProperty("requests", times * kinds);
    std::printf("%d requests\n", times * kinds);
    // And as if nothing had been.
    const Request request = layAny(way.values[0], SortMode::kGroups);
    const Answer answer = served_.ask(request);
    EXPECT_EQ(answer.errorCode(), ErrorCode::kSuccess);
    EXPECT_EQ(answer.reply().recordCount, way.recordCount);
}

INSTANTIATE_TEST_SUITE_P(OfWays, Scribbling, testing::ValuesIn(kWays),
                         [](const auto& way) { return way.param.name; });

// A message is as it was sent, whatever the buffer says: a shutdown that nobody sent ends nothing.
TEST(ScribblingMessage, NoOtherWriterEndsTheProcess) {
    std::atexit(failUnlessItMayEnd);
    mayEnd = false;
    ServedJob served;
    std::atomic<bool> ended = false;
    std::thread writer([&] {
        Byte* const name = served.job().message + offsetof(SortRequest, workDirName);
        while (!ended)
            __atomic_store_n(reinterpret_cast<std::uint32_t*>(name), 0x54554853U, __ATOMIC_RELAXED);
    });
    Request request = served.lay({}, {1, 1, 8});
    request.keys = {ascendingKey(DataType::kInteger, 0, 4)};
    Bytes message = request.bytes();
    message.resize(kMessageBufferBytes);  // copying it takes a while
    storeAs(message.data(), static_cast<std::uint32_t>(message.size()));
    for (int i = 0; i < 50000; ++i)
        EXPECT_EQ(served.ask(message).errorCode(), ErrorCode::kSuccess);
    ended = true;
    writer.join();
    mayEnd = true;
}

}  // namespace
}  // namespace tvsort::test
