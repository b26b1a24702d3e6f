#include "tools/ordered/run_maker.h"

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "tools/files/interrupt.h"
#include "tools/formats/text_balance.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kReadBytes = std::size_t{256} * 1024;
constexpr std::size_t kGuessBytes = std::size_t{64} * 1024;
// Behind the end of a chunk, where its last row goes on.
constexpr std::size_t kBeyondBytes = std::size_t{4} * 1024;
constexpr std::size_t kFirstPieceBytes = 256;
constexpr std::size_t kPieceBytesMax = std::size_t{32} * 1024;
constexpr std::size_t kRowsAhead = 12;

std::string_view viewOf(const host::KeyBytes& bytes, std::size_t byteCount) {
    return {reinterpret_cast<const char*>(bytes.data()), std::min(byteCount, bytes.size())};
}

}  // namespace

RunMaker::RunMaker(const Setting& setting, const RowErrors& errors, std::optional<TopFilter> filter)
    : setting_(setting),
      reader_(setting.input.reader(setting.plan.form.keyBytes)),
      policy_(errors),
      filter_(std::move(filter)),
      window_(setting.input.places(), setting.plan.windowBytes) {}

void RunMaker::work(InputChunks& chunks) {
    chunks_ = &chunks;
    while (const std::optional<InputChunk> chunk = chunks.next())
        readChunk(*chunk);
}

void RunMaker::readChunk(const InputChunk& chunk) {
    chunk_ = chunk;
    isCertain_ = chunk.startsInput;
    firstRow_ = isCertain_ ? chunk.begin : guessFirstRow();
    const std::optional<TopFilter> filter = filter_;
    for (;;) {
        partNumber_ = 0;
        hasEnded_ = false;
        nextOffset_ = firstRow_;
        read_ = &readRows_.insert_or_assign(chunk.number, ReadRows()).first->second;
        try {
            while (!hasEnded_) {
                makeRun();
                partNumber_ += 1;
            }
            return;
        } catch (const Misguessed& misguessed) {
            firstRow_ = misguessed.firstRow;
        } catch (const host::HostError&) {
            // What is no row may look like a broken one, and the first broken one counts.
            const std::uint64_t certain = isCertain_ ? firstRow_ : chunks_->firstRowOf(chunk);
            if (certain == firstRow_) {
                chunks_->awaitRead(chunk);
                throw;
            }
            firstRow_ = certain;
        }
        isCertain_ = true;
        filter_ = filter;
    }
}

std::uint64_t RunMaker::guessFirstRow() {
    // A row begins at the chunk's first byte where a line ends right before it.
    window_.start(chunk_.inputIndex, chunk_.begin - 1);
    window_.readMore(kGuessBytes);
    const TextPart part = window_.rest();
    const std::size_t guess = reader_->guessStart(part);
    if (guess < part.bytes.size() || part.endsInput) return part.offset + guess;
    isCertain_ = true;
    return chunks_->firstRowOf(chunk_);
}

void RunMaker::confirm() {
    if (isCertain_) return;
    const std::uint64_t certain = chunks_->firstRowOf(chunk_);
    if (certain != firstRow_) throw Misguessed{certain};
    isCertain_ = true;
}

void RunMaker::takeProblem(std::uint64_t offset) {
    const std::string& words = reader_->problem();
    const auto named = [&] { return setting_.input.nameOf(offset) + words; };
    if (!policy_.skips() && !policy_.keepsRows()) {
        confirm();
        policy_.take(named);
    }
    read_->problemCount += 1;
    if (read_->problems.size() < RowErrors::kNamedMax) read_->problems.push_back({offset, words});
}

void RunMaker::makeRun() {
    window_.start(chunk_.inputIndex, nextOffset_);
    rowCount_ = 0;
    isFull_ = false;
    const KeyRecord& record = setting_.form.record;
    const std::size_t recordLength = record.recordLength();
    TextBalance balance;
    bool isConfirmed = false;
    const host::RecordSource source = [&](Byte* target, std::size_t recordsMax) {
        std::size_t records = 0;
        KeyedRow row;
        while (records < recordsMax && nextRow(row)) {
            if (!encode(row, target + records * recordLength)) continue;
            balance.goes(row.place.byteCount + 1ULL);
            records += 1;
        }
        rowCount_ += records;
        if (records == 0 && !std::exchange(isConfirmed, true)) {
            confirm();
            if (hasEnded_) chunks_->end(chunk_, nextOffset_);
        }
        return records;
    };
    SortedRun run;
    run.textOffset = window_.held().offset;
    const host::RecordSink sink = [&](const Byte* records, std::size_t count) {
        if (run.rowCount == 0) run.records = roomFor(rowCount_ * recordLength);
        if (count > rowCount_ - run.rowCount) throw host::brokenResult("gave back too many rows");
        for (std::size_t i = 0; i < count; ++i) {
            const RowPlace place = record.decode(records + i * recordLength).place;
            checkPlace(place);
            balance.comesBack(place.byteCount + 1ULL);
        }
        std::copy_n(reinterpret_cast<const char*>(records), count * recordLength,
                    run.records.data() + run.rowCount * recordLength);
        run.rowCount += count;
    };
    stats_.addRequest(setting_.sortOnce(
        {record.request(), record.recordLength(), {}, setting_.slotIndex}, source, sink));
    if (run.rowCount == 0) return;
    run.textBytes = window_.held().bytes.size();
    settle(run, groupsOf(run));
    store(std::move(run));
}

PageMemory RunMaker::roomFor(std::size_t byteCount) {
    if (records_.size() < byteCount) return PageMemory(byteCount);
    return std::move(records_);
}

bool RunMaker::nextRow(KeyedRow& row) {
    while (!isFull_) {
        const TextPart rest = window_.rest();
        if (rest.offset >= chunk_.end) {
            hasEnded_ = true;
            break;
        }
        if (rowCount_ >= setting_.plan.rowsMax) break;
        const RowReader::Found found = reader_->next(rest, row);
        if (found.outcome == RowReader::Outcome::kNeedsMore ||
            (found.outcome == RowReader::Outcome::kEnd && !rest.endsInput)) {
            const std::uint64_t held = rest.offset + rest.bytes.size();
            const std::uint64_t left =
                chunk_.end > held ? chunk_.end - held
                                  : std::max<std::uint64_t>(rest.bytes.size(), kBeyondBytes);
            const std::size_t count =
                std::min<std::uint64_t>(left, std::max(rest.bytes.size(), kReadBytes));
            if (!window_.readMore(count)) break;
            setting_.progress.advanceBytes(count);
            continue;
        }
        if (found.outcome == RowReader::Outcome::kEnd) {
            hasEnded_ = true;
            break;
        }
        nextOffset_ = rest.offset + found.byteCount;
        if (found.byteCount <= rest.bytes.size()) {
            window_.take(found.byteCount);
        } else {
            isFull_ = true;
            hasEnded_ = nextOffset_ >= chunk_.end;
        }
        if (!reader_->problem().empty()) takeProblem(rest.offset);
        if (found.outcome == RowReader::Outcome::kRow) return true;
    }
    return false;
}

bool RunMaker::encode(const KeyedRow& row, Byte* target) {
    read_->count += 1;
    const std::string_view key = viewOf(*row.key, setting_.plan.form.keyBytes);
    RecordRow made;
    made.place = row.place;
    made.keyGoesOn = !row.isKeyWhole || row.key->size() > key.size();
    made.hasNull = row.hasNull;
    if (filter_.has_value() && !filter_->admits(key, !made.keyGoesOn)) return false;
    setting_.form.record.encode(made, key, target);
    return true;
}

void RunMaker::checkPlace(const RowPlace& place) const {
    setting_.input.places().check(place);
    if (place.byteCount > kHeldBytesMax) return;
    const TextPart held = window_.held();
    if (place.offset < held.offset ||
        place.offset + place.byteCount > held.offset + held.bytes.size()) {
        throw host::brokenResult("gave back a row that it did not get");
    }
}

RecordRow RunMaker::rowAt(const SortedRun& run, std::uint64_t index) const {
    return setting_.form.record.decode(run.recordAt(index, setting_.form.record.recordLength()));
}

std::vector<RunMaker::Group> RunMaker::groupsOf(const SortedRun& run) const {
    const KeyRecord& record = setting_.form.record;
    const std::size_t recordLength = record.recordLength();
    GroupFinder finder;
    for (std::uint64_t i = 1; i < run.rowCount; ++i) {
        const Byte* const next = run.recordAt(i, recordLength);
        const bool isAlike =
            record.comparedBytes(next - recordLength) == record.comparedBytes(next) &&
            record.decode(next).keyGoesOn;
        finder.take(i, isAlike, record.form().keyBytes);
    }
    return finder.groups;
}

void RunMaker::GroupFinder::take(std::uint64_t index, bool isAlike, std::uint64_t depth) {
    if (isAlike && isInGroup) {
        groups.back().count += 1;
    } else if (isAlike) {
        groups.push_back({index - 1, 2, depth});
    }
    isInGroup = isAlike;
}

void RunMaker::settle(SortedRun& run, std::vector<Group> groups) {
    reader_->hold(window_.held());
    for (std::int64_t round = 2; !groups.empty(); ++round) {
        if (round > 2) {
            for (Group& group : groups)
                group.depth += commonBytes(run, group);
        }
        groups = settleOnce(run, groups);
        stats_.roundCount = std::max(stats_.roundCount, round);
    }
    reader_->hold({});
}

std::vector<RunMaker::Group> RunMaker::settleOnce(SortedRun& run,
                                                  const std::vector<Group>& groups) {
    std::uint64_t rowCount = 0;
    for (const Group& group : groups)
        rowCount += group.count;
    const KeyRecord& runRecord = setting_.form.record;
    const std::size_t runRecordLength = runRecord.recordLength();
    const KeyRecord record({true, setting_.plan.roundKeyBytes(rowCount)});
    TextBalance balance;
    std::size_t group = 0;
    std::uint64_t row = 0;  // of the group
    const auto step = [&] {
        row += 1;
        if (row < groups[group].count) return;
        row = 0;
        group += 1;
    };
    host::KeyBytes key;
    const host::RecordSource source = [&](Byte* target, std::size_t recordsMax) {
        std::size_t records = 0;
        for (; records < recordsMax && group < groups.size(); ++records, step()) {
            RecordRow made = rowAt(run, groups[group].first + row);
            made.group = group;
            made.keyGoesOn =
                !reader_->keyPart(made.place, groups[group].depth, record.form().keyBytes, key)
                     .endsKey;
            record.encode(made, viewOf(key, key.size()), target + records * record.recordLength());
            balance.goes(made.place.byteCount + 1ULL);
        }
        if (records == 0) group = 0;
        return records;
    };
    GroupFinder open;
    std::string before;  // what was compared of the row before
    const host::RecordSink sink = [&](const Byte* records, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i, step()) {
            const Byte* const made = records + i * record.recordLength();
            RecordRow settled = record.decode(made);
            if (group == groups.size() || settled.group != group)
                throw host::brokenResult("gave back groups of other sizes than it was given");
            checkPlace(settled.place);
            balance.comesBack(settled.place.byteCount + 1ULL);
            const std::uint64_t index = groups[group].first + row;
            const std::string_view compared = record.comparedBytes(made);
            open.take(index, row > 0 && settled.keyGoesOn && before == compared,
                      groups[group].depth + record.form().keyBytes);
            before = compared;
            settled.keyGoesOn = true;
            runRecord.setRow(reinterpret_cast<Byte*>(run.records.data()) + index * runRecordLength,
                             settled);
        }
    };
    const std::int64_t roundCount = stats_.roundCount;
    stats_.addRequest(setting_.sortOnce(
        {record.request(), record.recordLength(), {}, setting_.slotIndex}, source, sink));
    stats_.roundCount = roundCount;
    return open.groups;
}

// Bytes from its depth on that the keys of all its rows have.
std::uint64_t RunMaker::commonBytes(const SortedRun& run, const Group& group) {
    std::uint64_t common = ~std::uint64_t{0} - group.depth;
    const RowPlace first = rowAt(run, group.first).place;
    host::KeyBytes left;
    host::KeyBytes right;
    for (std::uint64_t i = 1; i < group.count; ++i) {
        throwIfInterrupted();
        const RowPlace place = rowAt(run, group.first + i).place;
        std::uint64_t found = 0;
        for (std::size_t piece = kFirstPieceBytes; found < common; piece = kPieceBytesMax) {
            const bool leftEnds = reader_->keyPart(first, group.depth + found, piece, left).endsKey;
            const bool rightEnds =
                reader_->keyPart(place, group.depth + found, piece, right).endsKey;
            const auto differ = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
            found += static_cast<std::uint64_t>(differ.first - left.begin());
            if (differ.first != left.end() || leftEnds || rightEnds) break;
        }
        common = std::min(common, found);
    }
    return common;
}

void RunMaker::store(SortedRun run) {
    const std::uint64_t bytes = run.textBytes + run.records.size();
    if (setting_.mayStay(bytes)) {
        run.text = window_.giveMemory();
        window_.takeMemory(PageMemory(setting_.plan.windowBytes));
    } else {
        writeToFile(run);
    }
    setting_.keep({chunk_.number, partNumber_}, std::move(run));
}

void RunMaker::writeToFile(SortedRun& run) {
    const TextPart held = window_.held();
    const auto textOf = [&](const RowPlace& place) {
        return held.bytes.substr(place.offset - held.offset, place.byteCount);
    };
    RunFileWriter writer(setting_.form, setting_.file);
    for (std::uint64_t i = 0; i < run.rowCount; ++i) {
        if (i + kRowsAhead < run.rowCount) {
            const RowPlace ahead = rowAt(run, i + kRowsAhead).place;
            if (ahead.byteCount <= kHeldBytesMax) __builtin_prefetch(textOf(ahead).data());
        }
        const RecordRow made = rowAt(run, i);
        RunRow row;
        row.key = run.recordAt(i, setting_.form.record.recordLength());
        row.place = made.place;
        row.keyGoesOn = made.keyGoesOn;
        row.hasNull = made.hasNull;
        row.isHeld = made.place.byteCount <= kHeldBytesMax;
        if (row.isHeld) row.text = textOf(made.place);
        writer.write(row);
    }
    records_ = std::move(run.records);
    run = writer.finish();
}

}  // namespace tvsort::tools
