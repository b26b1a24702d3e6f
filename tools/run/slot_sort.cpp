#include "tools/run/slot_sort.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <thread>
#include <utility>

#include "protocol/messages.h"
#include "tools/files/interrupt.h"
#include "tools/run/thread_start.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

// Blocks that the process moved between two looks at its counters. Messages are far smaller than a
// block, so they fall under the table in the division.
std::int64_t blocksBetween(std::int64_t bytesBefore, std::int64_t bytesAfter,
                           std::size_t blockBytes) {
    return (bytesAfter - bytesBefore) / static_cast<std::int64_t>(blockBytes);
}

}  // namespace

SlotSort::SlotSort(host::SortServer& server, std::size_t firstSlot, std::size_t partCount,
                   Progress& progress)
    : server_(server), firstSlot_(firstSlot), partCount_(partCount), progress_(progress) {}

SortStats SlotSort::sort(const SortRequest& request, const host::RecordSource& source,
                         const host::RecordSink& sink) {
    geometry_ = host::chooseGeometry(request.recordLength, server_.options().pagesPerBlock);
    parts_.assign(request.partOf ? partCount_ : 1, Part());
    SortStats stats;
    StageClock clock;
    progress_.begin("loading");
    if (parts_.size() > 1) {
        route(request, source);
    } else {
        load(source);
    }
    stats.load = clock.lap();

    progress_.begin("sorting");
    planRequests(request.request);
    ask();
    stats.sort = clock.lap();

    std::int64_t resultCount = 0;
    for (const Part& part : parts_)
        resultCount += part.isWanted ? part.reply.recordCount : 0;
    progress_.begin("writing", resultCount);
    for (std::size_t i = 0; i < parts_.size(); ++i)
        readPart(i, sink);
    stats.write = clock.lap();

    stats.recordLength = geometry_.recordLength;
    stats.recordsPerBlock = geometry_.recordsPerBlock;
    stats.blockBytes = static_cast<std::int64_t>(geometry_.blockBytes());
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        addPart(parts_[i], stats);
        stats.systemCallsFiltered = stats.systemCallsFiltered && slotOf(i).process().isFiltered();
    }
    return stats;
}

std::size_t SlotSort::pull(const host::RecordSource& source, Byte* target, std::size_t recordsMax) {
    throwIfInterrupted();
    const std::size_t records = source(target, recordsMax);
    progress_.advance(static_cast<std::int64_t>(records));
    return records;
}

void SlotSort::load(const host::RecordSource& source) {
    host::RecordLoader loader = slotOf(0).loader(geometry_);
    for (;;) {
        std::size_t recordsMax = 0;
        Byte* const room = loader.room(recordsMax);
        const std::size_t records = pull(source, room, recordsMax);
        if (records == 0) break;
        loader.took(records);
    }
    parts_[0].loaded = loader.finish();
}

void SlotSort::route(const SortRequest& request, const host::RecordSource& source) {
    const std::size_t recordLength = geometry_.recordLength;
    std::vector<host::RecordLoader> loaders;
    for (std::size_t i = 0; i < parts_.size(); ++i)
        loaders.push_back(slotOf(i).loader(geometry_));
    std::vector<Byte> piece(std::max<std::size_t>(kPieceBytes / recordLength, 1) * recordLength);
    while (const std::size_t count = pull(source, piece.data(), piece.size() / recordLength)) {
        for (std::size_t i = 0; i < count; ++i) {
            const Byte* const record = piece.data() + i * recordLength;
            host::RecordLoader& loader = loaders[request.partOf(record)];
            std::size_t room = 0;
            std::copy_n(record, recordLength, loader.room(room));
            loader.took(1);
        }
    }
    for (std::size_t i = 0; i < parts_.size(); ++i)
        parts_[i].loaded = loaders[i].finish();
}

// A part is needed as long as those before it do not fill the limit. Where the process checks the
// records, it checks all of them.
void SlotSort::planRequests(const host::RequestBuilder& request) {
    const bool isLimited = request.limit() > 0;
    std::int64_t left = isLimited ? request.limit() : std::numeric_limits<std::int64_t>::max();
    for (Part& part : parts_) {
        part.request = request;
        part.isWanted = left > 0;
        part.isAsked = part.isWanted || request.mode() != SortMode::kOrder;
        if (isLimited)
            part.request.setLimit(static_cast<std::int32_t>(std::max<std::int64_t>(left, 0)));
        left -= part.loaded.extent.recordCount;
        if (parts_.size() > 1 && part.loaded.extent.recordCount == 0) part.isAsked = false;
    }
}

void SlotSort::ask() {
    if (parts_.size() == 1) return askPart(0);
    std::vector<std::exception_ptr> failures(parts_.size());
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < parts_.size(); ++i) {
            threads.push_back(startThread([this, i, &failures] {
                try {
                    askPart(i);
                } catch (...) {
                    failures[i] = std::current_exception();
                }
            }));
        }
    }
    for (const std::exception_ptr& failure : failures) {
        if (failure != nullptr) std::rethrow_exception(failure);
    }
}

void SlotSort::askPart(std::size_t partIndex) {
    Part& part = parts_[partIndex];
    if (!part.isAsked) return;
    host::SortSlot& slot = slotOf(partIndex);
    part.before = slot.process().usage();
    part.reply = slot.ask(part.request, geometry_, part.loaded.extent);
    host::checkAnswer(part.reply);
    part.after = slot.process().usage();
}

void SlotSort::readPart(std::size_t partIndex, const host::RecordSink& sink) {
    const Part& part = parts_[partIndex];
    if (!part.isAsked || !part.isWanted) return;
    // The process does not mark the end of its last group, but another part may follow.
    const bool marksEnd = parts_.size() > 1 && part.request.mode() == SortMode::kGroups;
    std::int32_t left = part.reply.recordCount;
    std::vector<Byte> last(geometry_.recordLength);
    slotOf(partIndex).read(geometry_, left, [&](const Byte* records, std::size_t recordCount) {
        throwIfInterrupted();
        left -= static_cast<std::int32_t>(recordCount);
        const bool endsHere = marksEnd && left == 0;
        sink(records, recordCount - (endsHere ? 1 : 0));
        if (endsHere) {
            std::copy_n(records + (recordCount - 1) * last.size(), last.size(), last.begin());
            last[kRecordFlagOffset] |= kGroupEndBit;
            sink(last.data(), 1);
        }
        progress_.advance(static_cast<std::int64_t>(recordCount));
    });
}

void SlotSort::addPart(const Part& part, SortStats& stats) const {
    stats.recordCount += part.loaded.extent.recordCount;
    if (part.isWanted) stats.resultCount += part.reply.recordCount;
    stats.groupCount += part.reply.groupCount;
    stats.blockCount += part.loaded.extent.fileBlocks;
    stats.frameCount += server_.memory().frameCount(geometry_.blockPages);
    stats.fitted = stats.fitted && part.loaded.fitted;
    stats.spilledBytes += part.loaded.workFileBytes;
    stats.blocksRead +=
        blocksBetween(part.before.readBytes, part.after.readBytes, geometry_.blockBytes());
    stats.blocksWritten +=
        blocksBetween(part.before.writtenBytes, part.after.writtenBytes, geometry_.blockBytes());
    stats.sort.cpuSeconds += part.after.cpuSeconds - part.before.cpuSeconds;
    stats.processPeakBytes += part.after.peakBytes;
}

host::SortSlot& SlotSort::slotOf(std::size_t partIndex) {
    return server_.slot(static_cast<int>(firstSlot_ + partIndex) + 1);
}

}  // namespace tvsort::tools
