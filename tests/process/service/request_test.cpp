// What a request is answered with before any record is compared: key lists, contradictions, and the
// bytes of the reply.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "tests/support/served_job.h"

namespace tvsort::test {
namespace {

constexpr Geometry kGeometry = {.blockPages = 1, .recordsPerBlock = 40, .recordLength = 100};

Records numbered(int count) {
    Records records;
    for (int i = 0; i < count; ++i) {
        Bytes record(kGeometry.recordLength, 0);
        storeAs<std::int32_t>(record.data(), (i * 7919) % 1009);
        records.push_back(record);
    }
    return records;
}

KeyDescriptor integerKey(std::uint8_t orderNumber = 1) {
    return ascendingKey(DataType::kInteger, 0, 4, orderNumber);
}

KeyDescriptor withOrder(std::uint8_t orderNumber) {
    return integerKey(orderNumber);
}

TEST(KeyList, OrderNumbersGiveTheComparisonOrder) {
    struct Case {
        std::vector<std::uint8_t> orderNumbers;
        ErrorCode code;
        std::vector<int> positions;  // of the request's keys, from 1, in comparison order
    };
    const std::vector<Case> cases = {
        {{3, 1, 7}, ErrorCode::kSuccess, {2, 1, 3}}, {{1, 2, 3}, ErrorCode::kSuccess, {1, 2, 3}},
        {{255, 254}, ErrorCode::kSuccess, {2, 1}},   {{1, 1}, ErrorCode::kKeyOrder, {}},
        {{2, 0}, ErrorCode::kKeyOrder, {}},          {{5, 3, 5}, ErrorCode::kKeyOrder, {}},
    };
    for (const Case& c : cases) {
        ServedJob served;
        Request request = served.lay(numbered(1), kGeometry);
        for (const std::uint8_t number : c.orderNumbers)
            request.keys.push_back(withOrder(number));
        EXPECT_EQ(served.ask(request).errorCode(), c.code);
        for (std::size_t i = 0; i < c.positions.size(); ++i) {
            EXPECT_EQ(served.job().keyPositions[i], c.positions[i]);
        }
    }
}

TEST(KeyList, OnlyKindsUpToTwoAreSortedOn) {
    ServedJob served;
    Request request = served.lay(numbered(50), kGeometry);
    request.keys = {nullIndicators(8), integerKey(), integerKey(9)};
    request.keys[2].kindFlags = 3;
    EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kSuccess);
    EXPECT_EQ(served.job().keyCount, 1);
    EXPECT_EQ(served.job().extraKeyCount, 2);
    EXPECT_EQ(served.job().hasKind4Key, 1);
    EXPECT_EQ(served.job().keyPositions[0], 2);

    request.keys = {nullIndicators(8)};  // no sort key at all: every record is equal
    EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kSuccess);
    EXPECT_EQ(served.job().keyCount, 0);
}

TEST(KeyList, ListsThatCannotBeTakenHaveTheirCodes) {
    ServedJob served;
    Request request = served.lay(numbered(50), kGeometry);
    EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kNoKeys);
    request.keys.assign(101, integerKey());
    EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kTooManyKeys);
    request.keys.pop_back();
    EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kKeyOrder);
    for (std::uint8_t i = 0; i < 100; ++i)
        request.keys[i] = withOrder(i + 1);
    EXPECT_EQ(served.ask(request).errorCode(), ErrorCode::kSuccess);
}

TEST(RequestCheck, RefusesWhatContradictsItselfAndServesTheNextRequest) {
    using Change = std::function<void(Request&)>;
    struct Case {
        const char* what;
        Change change;
        ErrorCode code = ErrorCode::kRequestContradictory;
    };
    const auto good = ErrorCode::kSuccess;
    const std::vector<Case> cases = {
        {"no pages per block", [](Request& r) { r.head.blockPages = 0; }},
        {"negative pages per block", [](Request& r) { r.head.blockPages = -1; }},
        {"a block larger than a memory block", [](Request& r) { r.head.blockPages = 3; }},
        {"negative block count", [](Request& r) { r.head.fileBlocks = -1; }},
        {"negative record count", [](Request& r) { r.head.recordCount = -1; }},
        {"negative limit", [](Request& r) { r.head.limitCount = -1; }},
        {"no records per block", [](Request& r) { r.head.recordsPerBlock = 0; }},
        {"records that just fit", [](Request& r) { r.head.recordLength = 102; }, good},
        {"records beyond their block", [](Request& r) { r.head.recordLength = 103; }},
        {"records of no bytes",
         [](Request& r) {
             r.head.recordLength = 0;
             r.keys[0] = ascendingKey(DataType::kBytes, 0, 0);
         }},
        {"one block too few", [](Request& r) { r.head.fileBlocks = 2; }},
        {"more blocks than records fill", [](Request& r) { r.head.fileBlocks = 9; }, good},
        {"33 items", [](Request& r) { r.items.resize(33); }},
        {"32 items", [](Request& r) { r.items.resize(32); }, good},
        {"a key at the record's end", [](Request& r) { r.keys[0].fieldOffset = 96; }, good},
        {"a key beyond the record", [](Request& r) { r.keys[0].fieldOffset = 97; }},
        {"an odd integer is 8 bytes",
         [](Request& r) {
             r.keys[0].fieldOffset = 93;
             r.keys[0].fieldLength = 3;
         }},
        {"a length without a field",
         [](Request& r) { r.keys[0] = ascendingKey(DataType::kString, 99, 0); }},
        {"a 512-byte field", [](Request& r) { r.keys[0].dataType = 13; }},
        {"a skipped key anywhere",
         [](Request& r) { r.keys[0] = ascendingKey(DataType::kNone, 60000, 60000); }, good},
        {"indicators beyond the record", [](Request& r) { r.keys.push_back(nullIndicators(100)); }},
        {"indicators at the end", [](Request& r) { r.keys.push_back(nullIndicators(99)); }, good},
        {"mode 7 without room for a level",
         [](Request& r) {
             r.keys = {integerKey(), ascendingKey(DataType::kInteger, 3, 4)};
             r.head.sortMode = 7;
         }},
        {"mode 7 with the level in its own fields",
         [](Request& r) {
             r.keys = {integerKey(), ascendingKey(DataType::kInteger, 12, 4)};
             r.head.sortMode = 7;
         }},
    };
    ServedJob served({5, 2});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Request request = served.lay(numbered(101), kGeometry);
        request.keys = {integerKey()};
        const Bytes framesBefore(served.frames(), served.frames() + 3 * 4096);
        c.change(request);
        const Bytes message = request.bytes();
        const Answer answer = served.ask(request);
        EXPECT_EQ(answer.errorCode(), c.code);
        if (c.code == good) continue;
        EXPECT_EQ(Bytes(served.frames(), served.frames() + 3 * 4096), framesBefore);
        EXPECT_TRUE(
            std::equal(answer.bytes.begin() + 12, answer.bytes.end(), message.begin() + 12));
    }
    EXPECT_EQ(served.sort(numbered(101), kGeometry, {integerKey()}).size(), 101U);
}

TEST(RequestCheck, MessagesShorterThanTheirPartsAreRefused) {
    ServedJob served;
    Request request = served.lay(numbered(50), kGeometry);
    request.keys = {integerKey()};
    request.items.resize(2);
    const Bytes whole = request.bytes();
    const auto cutTo = [&](std::size_t length) {
        Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        storeAs(cut.data(), static_cast<std::uint32_t>(length));
        return served.ask(cut).errorCode();
    };
    EXPECT_EQ(cutTo(618), ErrorCode::kSuccess);  // 84 + 12 + 2 + 2 x 260
    EXPECT_EQ(cutTo(617), ErrorCode::kRequestContradictory);
    EXPECT_EQ(cutTo(97), ErrorCode::kRequestContradictory);
    EXPECT_EQ(cutTo(96), ErrorCode::kSuccess);  // ends right after the descriptors: no items
    EXPECT_EQ(cutTo(95), ErrorCode::kRequestContradictory);
    EXPECT_EQ(cutTo(84),
              ErrorCode::kRequestContradictory);  // what the buffer still holds is no key
    EXPECT_EQ(cutTo(83), ErrorCode::kRequestContradictory);
    EXPECT_EQ(cutTo(24), ErrorCode::kRequestContradictory);
}

TEST(Messages, ItemsAcrossTheBufferBorderAreReadAndFrameZeroStays) {
    ServedJob served;
    Records records = numbered(30);
    for (std::size_t i = 0; i < records.size(); ++i) {
        storeAs<std::uint16_t>(records[i].data(), 1);
        records[i][2] = static_cast<Byte>(i);
    }
    Request request = served.lay(records, kGeometry);
    request.keys = {ascendingKey(DataType::kWeightedString, 0, 1)};
    request.keys[0].weightTableId = 31;
    request.items.resize(32);
    for (std::uint16_t i = 0; i < 32; ++i) {
        request.items[i].identifier = i;
        request.items[i].applies = 1;
        for (int b = 0; b < 256; ++b) {
            request.items[i].weights[b] = static_cast<std::uint8_t>(255 - b);
        }
    }
    const Bytes message = request.bytes();
    ASSERT_GT(message.size(), 8192U);  // the last table stands behind the message buffer
    const Answer answer = served.ask(message);
    ASSERT_EQ(answer.errorCode(), ErrorCode::kSuccess);
    const Records sorted = served.result(answer);
    EXPECT_TRUE(std::equal(sorted.begin(), sorted.end(), records.rbegin()));
}

TEST(Reply, CarriesTheResultWordsAndPassesOtherBytesThrough) {
    ServedJob served;
    served.job().processId = 4711;
    Request request = served.lay(numbered(50), kGeometry);
    request.keys = {integerKey()};
    Bytes message = request.bytes();
    for (std::size_t i : {12U, 19U, 30U, 44U, 47U, 59U})
        message[i] = 0xa5;
    const Answer answer = served.ask(message);
    const SortReply reply = answer.reply();
    EXPECT_EQ(reply.length, 80U);
    EXPECT_EQ(reply.processId, 4711);
    EXPECT_EQ(reply.fileBlocks, 2);
    EXPECT_EQ(reply.blockPages, 1);
    EXPECT_EQ(reply.recordCount, 50);
    EXPECT_EQ(reply.groupCount, 0);
    EXPECT_EQ(reply.recordLength, 100);
    EXPECT_TRUE(std::equal(message.begin() + 12, message.begin() + 60, answer.bytes.begin() + 12));
    EXPECT_TRUE(std::equal(message.begin() + 78, message.begin() + 80, answer.bytes.begin() + 78));
}

TEST(Reply, OneRecordIsOneGroupAndNeedsNoSort) {
    ServedJob served;
    for (const int count : {0, 1}) {
        Request request = served.lay(numbered(count), kGeometry);
        request.keys = {integerKey()};
        request.head.sortMode = 2;
        const Answer answer = served.ask(request);
        EXPECT_EQ(answer.errorCode(), ErrorCode::kSuccess);
        EXPECT_EQ(answer.reply().groupCount, count);
        EXPECT_EQ(answer.reply().recordCount, count);
    }
}

// Where the last request stopped, and what stands in the descriptors of frames that this one does
// not use, must not lead to a record: the sort by entries addresses none before the row limit does.
TEST(Pool, AnEarlierRequestsFrameIsNotLookedAt) {
    ServedJob served({200, 2});
    const Records records(10000, Bytes(8, 0));
    Request request = served.lay(records, {.blockPages = 2, .recordLength = 8});
    request.keys = {integerKey()};
    request.head.limitCount = 1;
    served.job().currentFrame = 399;  // of 400; with blocks of two pages there are 200
    served.job().pageDescriptors[399].block = 1;
    const Answer answer = served.ask(request);
    EXPECT_EQ(answer.errorCode(), ErrorCode::kSuccess);
    EXPECT_EQ(answer.reply().recordCount, 10000);  // all are equal
}

// The one record of a data set stands in frame 0, whatever the blocks that are stated for it.
TEST(Reload, ASingleRecordStaysWhereItIs) {
    ServedJob served;  // 5 frames
    for (const auto& keys : {std::vector<KeyDescriptor>{integerKey()}, {}}) {
        Request request = served.lay(numbered(1), kGeometry);
        const Bytes record(served.frames(), served.frames() + kGeometry.recordLength);
        const Bytes file(6 * 4096, 0x77);
        ASSERT_EQ(pwrite(served.job().workFd, file.data(), file.size(), 0), ssize_t{6 * 4096});
        request.keys = keys;
        request.head.fileBlocks = 6;
        served.ask(request);
        EXPECT_EQ(Bytes(served.frames(), served.frames() + kGeometry.recordLength), record);
        EXPECT_EQ(served.frames()[4096], 0x77);  // the other frames are reloaded
        EXPECT_EQ(served.workFile(), file);
    }
}

TEST(Reload, FailureIsReportedOnlyWhereNoEarlierOneIs) {
    ServedJob served;  // 5 frames
    const Records records = numbered(400);
    Request request = served.lay(records, kGeometry);
    const int workFd = served.job().workFd;
    served.job().workFd = -1;  // every transfer fails
    const Answer noKeys = served.ask(request);
    EXPECT_EQ(noKeys.errorCode(), ErrorCode::kNoKeys);
    EXPECT_EQ(noKeys.reply().osError, 0);

    request.head.recordCount = 1;  // nothing to sort: only the reload is left
    request.keys = {integerKey()};
    const Bytes message = request.bytes();
    const Answer reload = served.ask(message);
    EXPECT_EQ(reload.errorCode(), ErrorCode::kWorkFileRead);
    EXPECT_EQ(reload.reply().osError, EBADF);
    EXPECT_TRUE(std::equal(message.begin() + 60, message.begin() + 80, reload.bytes.begin() + 60));
    served.job().workFd = workFd;
    EXPECT_EQ(served.sort(records, kGeometry, {integerKey()}).size(), 400U);
}

}  // namespace
}  // namespace tvsort::test
