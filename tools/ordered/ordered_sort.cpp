#include "tools/ordered/ordered_sort.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "tools/files/interrupt.h"
#include "tools/ordered/input_chunks.h"
#include "tools/ordered/run_maker.h"
#include "tools/ordered/run_merge.h"
#include "tools/ordered/tiled_output.h"
#include "tools/ordered/workers.h"

namespace tvsort::tools {

namespace {

// What a key takes that a filter keeps, with all that goes with it.
constexpr std::uint64_t kFilterKeyBytes = 192;
constexpr std::uint64_t kFilterShare = 4;
// Marks of all runs together.
constexpr std::uint64_t kMarksMax = std::uint64_t{1} << 18;
constexpr std::uint64_t kMarkBytesMin = std::uint64_t{8} * 1024;

RunForm runForm(const KeyedInput& input, const RunPlan& plan, Operation operation) {
    const bool namesRows = operation == Operation::kUnique || operation == Operation::kIntersect ||
                           operation == Operation::kExcept || operation == Operation::kHierarchy;
    return {KeyRecord(plan.form), !input.isKeyOfStart(), namesRows,
            std::max(input.places().end() / kMarksMax, kMarkBytesMin)};
}

// Tells whether a row equals the one before it.
class EqualityCheck {
  public:
    EqualityCheck(const RunForm& form, RowReader& reader) : form_(form), reader_(reader) {}

    bool take(const RunRow& row) {
        const std::size_t keyBytes = form_.record.form().keyBytes;
        const bool isAlike = !key_.empty() && std::equal(key_.begin(), key_.end(), row.key);
        // Of a row that is held the whole key is made once, before it is gone.
        host::KeyBytes& made = wholeKeys_[1 - last_];
        const WholeKey whole = {row.isHeld ? &made : nullptr, row.place};
        if (row.keyGoesOn && row.isHeld) reader_.keyOf(row.text, made);
        const bool isEqual =
            isAlike && (!row.keyGoesOn || compareWholeKeys(reader_, whole_, whole) == 0);
        last_ = 1 - last_;
        key_.assign(row.key, row.key + keyBytes);
        whole_ = whole;
        return isEqual;
    }

  private:
    const RunForm& form_;
    RowReader& reader_;
    // Of the row before.
    std::vector<Byte> key_;
    WholeKey whole_ = {};
    host::KeyBytes wholeKeys_[2];
    std::size_t last_ = 0;
};

}  // namespace

OrderedSort::OrderedSort(std::unique_ptr<KeyedInput> input, const RowShaper::Form& shape,
                         const PlanSetting& setting, std::unique_ptr<RowWriter> writer,
                         RowErrors& errors, Progress& progress)
    : input_(std::move(input)),
      shape_(shape),
      memoryBytes_(setting.memoryBytes),
      writer_(std::move(writer)),
      errors_(errors),
      progress_(progress),
      facts_(readFacts(*input_)),
      plan_(planRuns(facts_, setting)),
      form_(runForm(*input_, plan_, operationOf(shape.mode))) {
    if (input_->places().end() > kPlaceMax)
        throw host::badUse("the inputs have more than 64 TB together; sort them in parts");
}

std::vector<RecordField> OrderedSort::fields() const {
    return form_.record.fields(input_->keysInWords());
}

std::optional<SlotPlan> OrderedSort::slotPlan() const {
    return SlotPlan{{plan_.slotPages, plan_.blockPages}, static_cast<int>(plan_.workerCount)};
}

SortStats OrderedSort::run(const SortOnce& sortOnce) {
    return shape(sortOnce);
}

bool OrderedSort::comesOutWhole() const {
    const Operation operation = operationOf(shape_.mode);
    return (operation == Operation::kOrder || operation == Operation::kUnique) &&
           !shape_.mode.limitCount.has_value();
}

SortStats OrderedSort::shape(const SortOnce& sortOnce) {
    SortStats stats = makeRuns(sortOnce);
    StageClock clock;
    endRequests();
    mergeLevels();
    progress_.begin("writing", stats.recordCount);
    const ModeOptions& mode = shape_.mode;
    const Operation operation = operationOf(mode);
    if (operation == Operation::kUnique) {
        // Nothing is to be written before all rows are known to be unique.
        UniqueCheck check(input_->places(), mode.unique == kNullsDistinct);
        passOver([&](const SettledRow& row) { check.take(row); }, nullptr);
    }
    if (comesOutWhole()) {
        stats.writtenCount = writeTiles(form_, plan_, *input_, runs_, *writer_, progress_);
    } else {
        RowShaper shaper(shape_, *writer_);
        passOver([&](const SettledRow& row) { shaper.take(row); }, &shaper);
        shaper.finish();
        writer_->finish();
        stats.writtenCount = shaper.writtenCount();
        if (operation == Operation::kGroups) stats.groupCount = shaper.groupCount();
    }
    if (operation == Operation::kDistinct && !mode.limitCount.has_value())
        stats.duplicateCount = stats.readCount - stats.writtenCount;
    stats.write = clock.lap();
    return stats;
}

SortStats OrderedSort::orderAll(const SortOnce& sortOnce,
                                const std::function<void(const SettledRow&)>& take) {
    SortStats stats = makeRuns(sortOnce);
    StageClock clock;
    mergeLevels();
    passOver(take, nullptr);
    runs_.clear();
    files_.clear();
    stats.write = clock.lap();
    return stats;
}

RowErrors OrderedSort::policy() const {
    RowErrors policy = errors_;
    policy.restart();
    return policy;
}

SortStats OrderedSort::makeRuns(const SortOnce& sortOnce) {
    StageClock clock;
    progress_.begin("reading and sorting", 0, facts_.inputBytes);
    InputChunks chunks(*input_, plan_.chunkBytes);
    std::atomic<std::uint64_t> keptBytes{0};
    std::mutex mutex;
    std::map<RunNumber, SortedRun> runs;
    std::vector<std::unique_ptr<RunMaker>> makers;
    for (std::size_t i = 0; i < plan_.workerCount; ++i) {
        files_.push_back(std::make_unique<SpoolFile>(shape_.tempDirectory));
        makers.push_back(std::make_unique<RunMaker>(
            RunMaker::Setting{*input_, form_, plan_, i, sortOnce,
                              [&](RunNumber number, SortedRun run) {
                                  const std::lock_guard lock(mutex);
                                  runs.emplace(number, std::move(run));
                              },
                              [&](std::uint64_t bytes) {
                                  return keptBytes.fetch_add(bytes) + bytes <= plan_.keptBytesMax;
                              },
                              *files_.back(), progress_},
            policy(), filter()));
    }
    workTogether(
        makers.size(), [&](std::size_t i) { makers[i]->work(chunks); }, [&] { chunks.callOff(); });
    for (auto& [number, run] : runs)
        runs_.push_back(std::move(run));
    for (const std::unique_ptr<SpoolFile>& file : files_)
        file->expectJumps();

    SortStats stats;
    std::map<std::size_t, const ReadRows*> readRows;
    bool isFirst = true;
    for (const std::unique_ptr<RunMaker>& maker : makers) {
        if (isFirst) {
            stats = maker->stats();
        } else {
            const std::int64_t rounds = std::max(stats.roundCount, maker->stats().roundCount);
            stats.addRequest(maker->stats());
            stats.roundCount = rounds;
        }
        isFirst = false;
        for (const auto& [number, read] : maker->readRows())
            readRows.emplace(number, &read);
    }
    errors_.restart();
    stats.readCount = 0;
    for (const auto& [number, read] : readRows) {
        stats.readCount += read->count;
        for (std::int64_t i = 0; i < read->problemCount; ++i) {
            errors_.take([&, read = read] {
                const ReadRows::Problem& problem = read->problems[static_cast<std::size_t>(i)];
                return input_->nameOf(problem.offset) + problem.words;
            });
        }
    }
    stats.recordCount = 0;
    for (const SortedRun& run : runs_) {
        stats.recordCount += static_cast<std::int64_t>(run.rowCount);
        if (run.file != nullptr)
            stats.spilledBytes += static_cast<std::int64_t>(run.end - run.begin);
    }
    stats.fitted = stats.spilledBytes == 0;
    stats.resultCount = stats.recordCount;
    stats.runCount = static_cast<std::int64_t>(runs_.size());
    // Side by side the workers load and sort: what they waited for is shared out.
    const StageCost all = clock.lap();
    const auto workers = static_cast<double>(plan_.workerCount);
    stats.sort.elapsedSeconds /= workers;
    stats.load = {std::max(all.elapsedSeconds - stats.sort.elapsedSeconds, 0.0), all.cpuSeconds};
    return stats;
}

void OrderedSort::mergeLevels() {
    const std::size_t fanIn = runsAtOnce(plan_);
    if (runs_.size() > fanIn) progress_.begin("merging runs");
    while (runs_.size() > fanIn) {
        // Neighbours, so that equal rows stay in the order of reading.
        const std::size_t groupCount = (runs_.size() + fanIn - 1) / fanIn;
        std::vector<SortedRun> merged(groupCount);
        std::vector<std::unique_ptr<SpoolFile>> files;
        for (std::size_t i = 0; i < plan_.workerCount; ++i)
            files.push_back(std::make_unique<SpoolFile>(shape_.tempDirectory));
        std::atomic<std::size_t> nextGroup{0};
        std::atomic<bool> isOff{false};
        const auto work = [&](std::size_t worker) {
            const auto reader = input_->reader(plan_.form.keyBytes);
            for (;;) {
                const std::size_t group = nextGroup.fetch_add(1);
                if (group >= groupCount) return;
                const std::size_t first = group * runs_.size() / groupCount;
                const std::size_t end = (group + 1) * runs_.size() / groupCount;
                RunMerge merge(form_, std::span(runs_).subspan(first, end - first), *reader,
                               runBufferBytes(plan_, end - first));
                RunFileWriter writer(form_, *files[worker]);
                while (const RunRow* const row = merge.next()) {
                    if (isOff) throw WorkIsOff();
                    throwIfInterrupted();
                    writer.write(*row);
                }
                merged[group] = writer.finish();
            }
        };
        workTogether(plan_.workerCount, work, [&] { isOff = true; });
        runs_ = std::move(merged);
        files_ = std::move(files);
        for (const std::unique_ptr<SpoolFile>& file : files_)
            file->expectJumps();
    }
}

void OrderedSort::passOver(const std::function<void(const SettledRow&)>& take,
                           const RowShaper* shaper) {
    const auto reader = input_->reader(plan_.form.keyBytes);
    RunMerge merge(form_, runs_, *reader, runBufferBytes(plan_, runs_.size()));
    EqualityCheck equality(form_, *reader);
    constexpr std::int64_t kRowsShown = 4096;
    std::int64_t rows = 0;
    while (const RunRow* const row = merge.next()) {
        throwIfInterrupted();
        take({row->place, equality.take(*row), row->hasNull, row->isHeld, row->text});
        if (shaper != nullptr && shaper->isFull()) break;
        if (++rows % kRowsShown == 0) progress_.advance(kRowsShown);
    }
}

std::optional<TopFilter> OrderedSort::filter() const {
    const ModeOptions& mode = shape_.mode;
    if (!mode.limitCount.has_value()) return std::nullopt;
    const auto rowCount = static_cast<std::uint64_t>(*mode.limitCount);
    if (rowCount > memoryBytes_ / kFilterShare / plan_.workerCount / kFilterKeyBytes)
        return std::nullopt;
    using Counts = TopFilter::Counts;
    switch (operationOf(mode)) {
        case Operation::kOrder:
            return TopFilter(rowCount, mode.withTies ? Counts::kRowsAndTies : Counts::kRows);
        case Operation::kDistinct:
            return TopFilter(rowCount, Counts::kKeys);
        case Operation::kGroups:
            return TopFilter(rowCount, Counts::kKeysWithTheirRows);
        default:
            return std::nullopt;
    }
}

}  // namespace tvsort::tools
