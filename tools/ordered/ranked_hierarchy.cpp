#include "tools/ordered/ranked_hierarchy.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "tools/files/interrupt.h"
#include "tools/files/spool_reader.h"
#include "tools/formats/outline_level.h"
#include "tools/formats/text_balance.h"
#include "tools/ordered/row_shaper.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPlaceBytes = 6;
using Rank = std::int32_t;
constexpr std::size_t kPlacedRankBytes = kPlaceBytes + sizeof(Rank);

struct RankedPlace {
    std::uint64_t offset;
    std::int64_t rank;
};

// Behind the header of a levelled record.
constexpr std::size_t kPlaceOffset = sizeof(Rank);
constexpr std::size_t kLengthOffset = kPlaceOffset + sizeof(std::uint64_t);
constexpr std::size_t kRankedRowBytes = kLengthOffset + sizeof(std::uint32_t);

host::RequestBuilder requestFor(const KeyDescriptor& key) {
    host::RequestBuilder request;
    request.addKey(key);
    return request;
}

// What the first request says of the data holds for all.
void add(SortStats later, SortStats& stats) {
    later.readCount = stats.readCount;
    later.recordCount = stats.recordCount;
    later.resultCount = stats.resultCount;
    later.recordLength = stats.recordLength;
    later.recordsPerBlock = stats.recordsPerBlock;
    later.blockCount = stats.blockCount;
    later.runCount = stats.runCount;
    later.roundCount = stats.roundCount;
    stats.addRequest(later);
}

}  // namespace

RankedHierarchy::RankedHierarchy(std::unique_ptr<LevelledInput> input, const RowShaper::Form& shape,
                                 const PlanSetting& setting, std::unique_ptr<RowWriter> writer,
                                 RowErrors& errors, Progress& progress)
    : OrderedSort(std::move(input), shape, setting, std::move(writer), errors, progress),
      frame_(FrameKind::kLevelled,
             requestFor(host::ascendingKey(DataType::kInteger, 0, sizeof(Rank))), kRankedRowBytes,
             nameOf(Operation::kHierarchy)) {}

SortStats RankedHierarchy::shape(const SortOnce& sortOnce) {
    SpoolFile ranked(form().tempDirectory);
    SpoolFile ranks(form().tempDirectory);
    std::int64_t rank = 0;
    SortStats stats = orderAll(sortOnce, [&](const SettledRow& row) {
        if (!row.isEqual) rank += 1;
        writeValue(ranked, RankedPlace{row.place.offset, rank});
        rowCount_ += 1;
    });
    if (rowCount_ > 0) {
        add(putBack(sortOnce, ranked, ranks), stats);
        add(arrange(sortOnce, ranks), stats);
    }
    StageClock clock;
    writer().finish();
    stats.write += clock.lap();
    stats.writtenCount = writtenCount_;
    return stats;
}

SortStats RankedHierarchy::putBack(const SortOnce& sortOnce, SpoolFile& ranked,
                                   SpoolFile& ranks) const {
    SpoolReader reader(ranked);
    const auto source = [&](Byte* target, std::size_t recordsMax) {
        std::size_t records = 0;
        for (RankedPlace made = {}; records < recordsMax && reader.read(made); ++records) {
            Byte* const record = target + records * kPlacedRankBytes;
            for (std::size_t i = 0; i < kPlaceBytes; ++i)
                record[i] = static_cast<Byte>(made.offset >> (8 * (kPlaceBytes - 1 - i)));
            storeAs(record + kPlaceBytes, static_cast<Rank>(made.rank));
        }
        return records;
    };
    std::int64_t count = 0;
    const auto sink = [&](const Byte* records, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i)
            writeValue(ranks, loadAs<Rank>(records + i * kPlacedRankBytes + kPlaceBytes));
        count += static_cast<std::int64_t>(recordCount);
    };
    const SortStats stats = sortOnce(
        {requestFor(host::ascendingKey(DataType::kBytes, 0, kPlaceBytes)), kPlacedRankBytes, {}},
        source, sink);
    if (count != rowCount_) throw host::brokenResult("gave back another number of records");
    return stats;
}

SortStats RankedHierarchy::arrange(const SortOnce& sortOnce, SpoolFile& ranks) {
    const ModeOptions& mode = form().mode;
    SpoolReader reader(ranks);
    TextBalance balance;
    PlaceQueue behind(form().tempDirectory);
    // They have been counted.
    RowErrors errors = policy();
    RowStream rows(input(), errors);
    LevelCheck check;
    std::size_t inputIndex = 0;
    const auto source = [&](Byte* target, std::size_t recordsMax) {
        std::size_t records = 0;
        KeyedRow row;
        while (records < recordsMax && rows.next(row)) {
            throwIfInterrupted();
            Byte ranked[kRankedRowBytes];
            Rank rank = 0;
            const InputPlaces& places = input().places();
            const std::size_t index = places.indexOf(row.place.offset);
            if (!reader.read(rank)) throw changedWhileRead(places.input(index).displayName());
            const auto level = static_cast<LevelledReader&>(rows.reader()).level();
            if (!level.has_value()) {
                behind.add(row.place);
                continue;
            }
            // Each input is a hierarchy of its own.
            if (index != inputIndex) check.restart();
            inputIndex = index;
            const std::string problem = check.problemWith(*level);
            if (!problem.empty()) {
                throw host::badUse(fmt::format("{} {}", places.nameOf(row.place.offset), problem));
            }
            storeAs(ranked, rank);
            storeAs(ranked + kPlaceOffset, row.place.offset);
            storeAs(ranked + kLengthOffset, row.place.byteCount);
            balance.goes(row.place.byteCount + 1ULL);
            frame_.frame(ranked, *level, 0, target + records * frame_.recordLength());
            records += 1;
        }
        return records;
    };
    const auto sink = [&](const Byte* records, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount; ++i) {
            const Byte* const ranked = frame_.recordOf(records + i * frame_.recordLength());
            const RowPlace place = {loadAs<std::uint64_t>(ranked + kPlaceOffset),
                                    loadAs<std::uint32_t>(ranked + kLengthOffset)};
            balance.comesBack(place.byteCount + 1ULL);
            if (mode.withTies || writtenCount_ < mode.limitCount.value_or(writtenCount_ + 1))
                write(place);
        }
    };
    host::RequestBuilder request = frame_.request();
    request.setMode(SortMode::kHierarchy);
    request.setLimit(mode.limitCount.value_or(0));
    const SortStats stats = sortOnce({request, frame_.recordLength(), {}}, source, sink);
    const auto left = static_cast<std::uint64_t>(std::max<std::int64_t>(
        mode.limitCount.value_or(writtenCount_ + rowCount_) - writtenCount_, 0));
    behind.drain(std::min(behind.count(), left), [this](const RowPlace& place) { write(place); });
    return stats;
}

void RankedHierarchy::write(const RowPlace& place) {
    writtenCount_ += 1;
    writer().write(place);
}

}  // namespace tvsort::tools
