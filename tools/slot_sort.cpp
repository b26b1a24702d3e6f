#include "tools/slot_sort.h"

#include "tools/interrupt.h"
#include "tools/stage_clock.h"

namespace tvsort::tools {

namespace {

// Blocks that the process moved between two looks at its counters. Messages are far smaller than a
// block, so they fall under the table in the division.
std::int64_t blocksBetween(std::int64_t bytesBefore, std::int64_t bytesAfter,
                           std::size_t blockBytes) {
    return (bytesAfter - bytesBefore) / static_cast<std::int64_t>(blockBytes);
}

}  // namespace

SortStats sortThroughSlot(host::SortServer& server, const host::Geometry& geometry,
                          const host::RequestBuilder& request, const host::RecordSource& source,
                          const host::RecordSink& sink, Progress& progress) {
    StageClock clock;
    host::SortSlot& slot = server.slot(1);

    progress.begin("loading");
    const host::LoadedData loaded = slot.load(geometry, [&](Byte* target, std::size_t recordsMax) {
        throwIfInterrupted();
        const std::size_t records = source(target, recordsMax);
        progress.advance(static_cast<std::int64_t>(records));
        return records;
    });
    SortStats stats;
    stats.load = clock.lap();

    progress.begin("sorting");
    const host::ProcessUsage before = slot.process().usage();
    const SortReply reply = slot.ask(request, geometry, loaded.extent);
    host::checkAnswer(reply);
    const host::ProcessUsage after = slot.process().usage();
    stats.sort = clock.lap();
    stats.sort.cpuSeconds += after.cpuSeconds - before.cpuSeconds;

    progress.begin("writing");
    slot.read(geometry, reply.recordCount, [&](const Byte* records, std::size_t recordCount) {
        throwIfInterrupted();
        sink(records, recordCount);
        progress.advance(static_cast<std::int64_t>(recordCount));
    });
    stats.write = clock.lap();

    stats.recordCount = loaded.extent.recordCount;
    stats.recordLength = geometry.recordLength;
    stats.resultCount = reply.recordCount;
    stats.groupCount = reply.groupCount;
    stats.recordsPerBlock = geometry.recordsPerBlock;
    stats.blockBytes = static_cast<std::int64_t>(geometry.blockBytes());
    stats.blockCount = loaded.extent.fileBlocks;
    stats.frameCount = server.memory().frameCount(geometry.blockPages);
    stats.fitted = loaded.fitted;
    stats.spilledBytes = loaded.workFileBytes;
    stats.blocksRead = blocksBetween(before.readBytes, after.readBytes, geometry.blockBytes());
    stats.blocksWritten =
        blocksBetween(before.writtenBytes, after.writtenBytes, geometry.blockBytes());
    stats.processPeakBytes = after.peakBytes;
    return stats;
}

}  // namespace tvsort::tools
