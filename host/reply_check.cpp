#include "host/reply_check.h"

#include <algorithm>

#include "host/error_text.h"

namespace tvsort::host {

namespace {

struct Range {
    std::int32_t first;
    std::int32_t last;
};

bool isShaped(SortMode mode) {
    return mode != SortMode::kOrder && mode != SortMode::kHierarchy && mode != SortMode::kUnique &&
           mode != SortMode::kUniqueUnlessNull;
}

Range recordsPossible(const RequestBuilder& request, std::int32_t recordCount) {
    if (recordCount < 2) return {recordCount, recordCount};
    switch (request.mode()) {
        case SortMode::kOrder:
        case SortMode::kHierarchy:
        case SortMode::kUnique:
        case SortMode::kUniqueUnlessNull: {
            const bool isLimited = request.limit() != 0;
            return {isLimited ? std::min(request.limit(), recordCount) : recordCount, recordCount};
        }
        case SortMode::kGroups:
            return {recordCount, recordCount};
        case SortMode::kIntersect:
        case SortMode::kIntersectAll:
        case SortMode::kExcept:
        case SortMode::kExceptAll:
            return {0, recordCount};
        default:
            return {1, recordCount};
    }
}

// Blocks that so many records fill. A request of two records or more has some in a block.
std::int32_t blocksFilled(const Geometry& geometry, std::int32_t recordCount) {
    const std::int32_t perBlock = std::max<std::int32_t>(geometry.recordsPerBlock, 1);
    return recordCount / perBlock + (recordCount % perBlock != 0 ? 1 : 0);
}

std::string outside(const std::string& what, std::int32_t stated, const Range& possible) {
    if (stated >= possible.first && stated <= possible.last) return "";
    return "answered with " + std::to_string(stated) + " " + what + " where " +
           std::to_string(possible.first) +
           (possible.first == possible.last ? "" : " to " + std::to_string(possible.last)) +
           " can be";
}

}  // namespace

std::string replyFault(const RequestBuilder& request, const Geometry& geometry,
                       const Extent& extent, const SortReply& reply) {
    if (!isAnswerCode(reply.errorCode)) {
        return "answered with code " + std::to_string(reply.errorCode) + ", which there is not";
    }
    if (reply.errorCode != 0) return "";
    const std::int32_t count = extent.recordCount;
    const std::int32_t blocks = count >= 2 && isShaped(request.mode())
                                    ? blocksFilled(geometry, reply.recordCount)
                                    : extent.fileBlocks;
    std::string fault =
        outside("records", reply.recordCount, recordsPossible(request, extent.recordCount));
    if (fault.empty()) fault = outside("blocks", reply.fileBlocks, {blocks, blocks});
    if (fault.empty() && (request.mode() == SortMode::kGroups || count < 2)) {
        fault = outside("groups", reply.groupCount, {std::min(count, 1), count});
    }
    if (fault.empty()) {
        fault = outside("bytes to a record", reply.recordLength,
                        {geometry.recordLength, geometry.recordLength});
    }
    if (fault.empty()) {
        fault = outside("pages to a block", reply.blockPages,
                        {geometry.blockPages, geometry.blockPages});
    }
    return fault;
}

}  // namespace tvsort::host
