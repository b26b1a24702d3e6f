// What replies are believed.

#include "host/reply_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tvsort::host {
namespace {

using testing::HasSubstr;

constexpr Geometry kTenPerBlock = {400, 1, 10};
constexpr Extent kSent = {95, 10};

struct Case {
    const char* mode;
    SortMode sortMode;
    std::int32_t limit;
    Extent sent;
    // The least and the most records, and the blocks of either.
    std::int32_t first;
    std::int32_t firstBlocks;
    std::int32_t last;
    std::int32_t lastBlocks;
};

const Case kCases[] = {
    {"order", SortMode::kOrder, 0, kSent, 95, 10, 95, 10},
    {"order, limited", SortMode::kOrder, 20, kSent, 20, 10, 95, 10},
    {"order, limit too large", SortMode::kOrder, 200, kSent, 95, 10, 95, 10},
    {"order, limit of one record", SortMode::kOrder, 5, {1, 1}, 1, 1, 1, 1},
    {"hierarchy", SortMode::kHierarchy, 0, kSent, 95, 10, 95, 10},
    {"unique", SortMode::kUnique, 30, kSent, 30, 10, 95, 10},
    {"unique unless null", SortMode::kUniqueUnlessNull, 0, kSent, 95, 10, 95, 10},
    {"distinct", SortMode::kDistinct, 0, kSent, 1, 1, 95, 10},
    {"a mode like it", static_cast<SortMode>(10), 0, kSent, 1, 1, 95, 10},
    {"groups", SortMode::kGroups, 0, kSent, 95, 10, 95, 10},
    {"intersection", SortMode::kIntersect, 0, kSent, 0, 0, 95, 10},
    {"difference", SortMode::kExceptAll, 0, kSent, 0, 0, 95, 10},
    {"difference of one record", SortMode::kExcept, 0, {1, 1}, 1, 1, 1, 1},
    {"intersection of nothing", SortMode::kIntersectAll, 0, {0, 0}, 0, 0, 0, 0},
};

SortReply replyOf(const Case& c, std::int32_t records, std::int32_t blocks) {
    SortReply reply = {};
    reply.fileBlocks = blocks;
    reply.recordCount = records;
    reply.groupCount = c.sent.recordCount > 0 ? 1 : 0;
    reply.recordLength = kTenPerBlock.recordLength;
    reply.blockPages = kTenPerBlock.blockPages;
    return reply;
}

std::string faultOf(const Case& c, const SortReply& reply) {
    const RequestBuilder request = RequestBuilder().setMode(c.sortMode).setLimit(c.limit);
    return replyFault(request, kTenPerBlock, c.sent, reply);
}

TEST(ReplyCheck, RecordsAndBlocksAreThoseThatTheModeCanLeave) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.mode);
        EXPECT_EQ(faultOf(c, replyOf(c, c.first, c.firstBlocks)), "");
        EXPECT_EQ(faultOf(c, replyOf(c, c.last, c.lastBlocks)), "");
        EXPECT_THAT(faultOf(c, replyOf(c, c.first - 1, c.firstBlocks)),
                    HasSubstr(" records where "));
        EXPECT_THAT(faultOf(c, replyOf(c, c.last + 1, c.lastBlocks)), HasSubstr(" records where "));
        EXPECT_THAT(faultOf(c, replyOf(c, c.first, c.firstBlocks + 1)),
                    HasSubstr(" blocks where "));
        EXPECT_THAT(faultOf(c, replyOf(c, c.last, c.lastBlocks - 1)), HasSubstr(" blocks where "));
    }
}

TEST(ReplyCheck, GroupsAreCountedWhereTheModeMakesThem) {
    const Case groups = {"groups", SortMode::kGroups, 0, kSent, 95, 10, 95, 10};
    for (const std::int32_t count : {-1, 0, 96}) {
        SortReply reply = replyOf(groups, 95, 10);
        reply.groupCount = count;
        EXPECT_THAT(faultOf(groups, reply), HasSubstr("1 to 95")) << count;
    }
    SortReply order = replyOf(kCases[0], 95, 10);
    order.groupCount = -7;  // an earlier request's, for all that anybody knows
    EXPECT_EQ(faultOf(kCases[0], order), "");
}

TEST(ReplyCheck, TheShapeOfRecordsAndBlocksIsTheRequests) {
    SortReply reply = replyOf(kCases[0], 95, 10);
    reply.recordLength = 401;
    EXPECT_THAT(faultOf(kCases[0], reply), HasSubstr("401 bytes to a record where 400"));
    reply = replyOf(kCases[0], 95, 10);
    reply.blockPages = 2;
    EXPECT_THAT(faultOf(kCases[0], reply), HasSubstr("2 pages to a block where 1"));
}

TEST(ReplyCheck, ARefusalHasACodeThatThereIs) {
    SortReply refused = {};
    for (const std::uint32_t code : {137U, 903U, 1401U, 1412U}) {
        refused.errorCode = code;
        EXPECT_EQ(faultOf(kCases[0], refused), "") << code;
    }
    for (const std::uint32_t code : {1U, 1413U, 65536U, 65536U + 903U, 0xffffffffU}) {
        refused.errorCode = code;
        EXPECT_THAT(faultOf(kCases[0], refused), HasSubstr(std::to_string(code))) << code;
    }
}

}  // namespace
}  // namespace tvsort::host
