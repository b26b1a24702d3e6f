// What the host library lays out without a process: request bytes, geometries, words for codes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <set>

#include "host/data_set.h"
#include "host/error_text.h"
#include "host/host_error.h"
#include "host/request_builder.h"

namespace tvsort::host {
namespace {

using testing::HasSubstr;

std::vector<Byte> part(const std::vector<Byte>& message, std::size_t offset, std::size_t count) {
    const auto first = message.begin() + static_cast<std::ptrdiff_t>(offset);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

TEST(RequestBuilder, LaysOutHeaderKeysNullIndicatorsAndTables) {
    ByteWeightTable table = {};
    table.identifier = 0x0102;
    table.applies = 1;
    table.weights[255] = 0x77;
    KeyDescriptor ordered = descendingKey(DataType::kBytes, 0x0a0b, 0x0c);
    ordered.orderNumber = 9;
    ordered.weightTableId = 0x0102;
    RequestBuilder request;
    request.setNullIndicators(30)
        .addKey(ascendingKey(DataType::kInteger, 4, 8))
        .addKey(ordered)
        .addWeightTable(table)
        .setMode(SortMode::kExcept)
        .setLimit(0x01020304)
        .setWorkDirectoryName("AB");
    const std::vector<Byte> message = request.build({100, 2, 81}, {162, 2}, 0xa1a2a3a4);

    ASSERT_EQ(message.size(), 84U + 3 * 12 + 2 + 260);
    EXPECT_EQ(part(message, 0, 4), (std::vector<Byte>{0x7e, 0x01, 0, 0}));  // 382
    EXPECT_EQ(part(message, 12, 4), (std::vector<Byte>{0xa4, 0xa3, 0xa2, 0xa1}));
    EXPECT_EQ(part(message, 20, 4), (std::vector<Byte>{'A', 'B', ' ', ' '}));
    EXPECT_EQ(part(message, 60, 24),
              (std::vector<Byte>{2,  0, 0,   0, 2, 0, 0, 0, 162, 0, 0, 0,  // blocks, pages, records
                                 81, 0, 100, 0, 3, 0, 5, 0, 4,   3, 2, 1}));  // per block .. limit
    EXPECT_EQ(part(message, 84, 12), (std::vector<Byte>{2, 0, 8, 0, 4, 0, 1, 0, 1, 0, 0, 0}));
    EXPECT_EQ(part(message, 96, 12),
              (std::vector<Byte>{6, 0, 12, 0, 0x0b, 0x0a, 0, 0, 9, 0, 2, 1}));
    // The null indicators come last, whenever they were set: indicator n belongs to key n.
    EXPECT_EQ(part(message, 108, 12), (std::vector<Byte>{0, 0, 2, 0, 30, 0, 4, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(message, 120, 6), (std::vector<Byte>{1, 0, 2, 1, 1, 0}));
    EXPECT_EQ(message.back(), 0x77);
}

TEST(RequestBuilder, RefusesWhatTheMessageCannotHold) {
    const KeyDescriptor key = ascendingKey(DataType::kInteger, 0, 4);
    RequestBuilder full;
    for (int i = 0; i < 99; ++i)
        full.addKey(key);
    RequestBuilder fullWithNulls = full;
    fullWithNulls.setNullIndicators(8);
    EXPECT_THROW(fullWithNulls.addKey(key), HostError);
    full.addKey(key);
    EXPECT_THROW(full.addKey(key), HostError);
    EXPECT_THROW(full.setNullIndicators(8), HostError);
    EXPECT_EQ(full.build({4, 1, 1}, {}).size(), 84U + 100 * 12 + 2);
    for (int i = 0; i < 32; ++i)
        full.addWeightTable({});
    EXPECT_THROW(full.addWeightTable({}), HostError);
}

TEST(DataSet, AGeometryFillsItsBlockAndStartsEveryRecordBelowByte65536) {
    struct Case {
        std::uint16_t recordLength;
        std::int32_t blockPages;
        std::uint16_t recordsPerBlock;
    };
    const Case cases[] = {
        {100, 1, 40},     {100, 2, 81},   {4096, 1, 1}, {4097, 2, 1},
        {65535, 16, 1},   {1, 16, 65535},  // 65536 would fit, but the count has 16 bits
        {100, 17, 656},                    // record 657 would start at byte 65600
        {65535, 1000, 2},                  // the second one starts at byte 65535
        {32768, 1000, 2}, {1, 1, 4096},
    };
    for (const Case& c : cases) {
        const Geometry geometry = chooseGeometry(c.recordLength, c.blockPages);
        EXPECT_EQ(geometry.recordsPerBlock, c.recordsPerBlock) << c.recordLength;
        EXPECT_EQ(geometry.recordLength, c.recordLength);
        EXPECT_EQ(geometry.blockPages, c.blockPages);
    }
    EXPECT_EQ(blockPagesFor(65535), 16);
    EXPECT_THROW(chooseGeometry(0, 1), HostError);
    EXPECT_THROW(chooseGeometry(4097, 1), HostError);
}

TEST(ErrorText, EachCodeHasWordsOfItsOwnThatSayWhatToDo) {
    const std::string unknown = errorText(9999);
    EXPECT_THAT(unknown, HasSubstr("not known"));
    std::set<std::string> texts = {unknown};
    for (const std::uint32_t code : {0U, 137U, 181U, 903U, 1090U, 1401U, 1402U, 1403U, 1404U, 1405U,
                                     1406U, 1407U, 1408U, 1409U, 1410U, 1411U, 1412U}) {
        const std::string text = errorText(code);
        EXPECT_TRUE(texts.insert(text).second) << code << ": " << text;
        EXPECT_EQ(text.find("; ") == std::string::npos, code == 0) << code << " gives no advice";
    }
}

TEST(ErrorText, AnAnswerNamesTheSystemErrorOfTheWorkFileOnly) {
    SortReply reply = {};
    reply.osError = ENOSPC;
    reply.errorCode = 1403;
    EXPECT_THAT(describeAnswer(reply), HasSubstr("code 1403 (No space left on device): writing"));
    reply.errorCode = 1410;
    EXPECT_THAT(describeAnswer(reply), HasSubstr("code 1410: the request has no key"));
}

}  // namespace
}  // namespace tvsort::host
