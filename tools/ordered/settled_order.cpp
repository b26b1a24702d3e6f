#include "tools/ordered/settled_order.h"

#include <algorithm>
#include <random>
#include <utility>

#include "host/host_error.h"
#include "tools/files/interrupt.h"
#include "tools/formats/text_balance.h"
#include "tools/ordered/open_rows.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kRoundKeyBytesMin = 64;
// Of a round's records, their keys together.
constexpr std::uint64_t kRoundBytes = std::uint64_t{16} << 20;
constexpr std::size_t kPartSampleRows = 4096;

std::string_view viewOf(const host::KeyBytes& bytes, std::size_t byteCount) {
    return {reinterpret_cast<const char*>(bytes.data()), std::min(byteCount, bytes.size())};
}

// Checks that no row comes back longer or more often than it went.
class RoundBalance {
  public:
    explicit RoundBalance(const InputPlaces& places) : places_(places) {}
    void goes(const RowPlace& place) { balance_.goes(place.byteCount + 1ULL); }
    void comesBack(const RowPlace& place) {
        places_.check(place);
        balance_.comesBack(place.byteCount + 1ULL);
    }

  private:
    const InputPlaces& places_;
    TextBalance balance_;
};

}  // namespace

SettledOrder::SettledOrder(KeyedInput& input, const Setting& setting)
    : input_(input), setting_(setting), record_(setting.form) {
    if (input_.places().end() > kPlaceMax) {
        throw host::badUse("the inputs have more than 64 TB together; sort them in parts");
    }
}

SortStats SettledOrder::sort(const SortOnce& sortOnce, const TakeSettled& take) {
    SortStats stats = firstRound(sortOnce, setting_.isKept ? TakeSettled() : take);
    for (std::int64_t round = 2; runs_ != nullptr; ++round) {
        const std::int64_t recordCount = stats.recordCount;
        SortStats next = nextRound(sortOnce, round > 2);
        next.recordCount = recordCount;
        next.recordLength = stats.recordLength;
        next.recordsPerBlock = stats.recordsPerBlock;
        next.blockCount = stats.blockCount;
        next.resultCount = stats.resultCount;
        next.roundCount = round;
        stats.addRequest(next);
    }
    if (!levels_.empty()) repeat(take);
    return stats;
}

void SettledOrder::repeat(const TakeSettled& take) {
    for (Level& level : levels_)
        level.entries.rewind();
    depth_ = 0;
    SettledRow row;
    while (nextSettled(row)) {
        throwIfInterrupted();
        take(row);
    }
}

SortStats SettledOrder::firstRound(const SortOnce& sortOnce, const TakeSettled& take) {
    RunSplitter splitter(
        record_, [](std::uint64_t) { return std::uint64_t{0}; }, take, setting_.tempDirectory);
    RoundBalance balance(input_.places());
    const auto source = [&](Byte* target, std::size_t recordsMax) {
        std::size_t records = 0;
        KeyedRow row;
        while (records < recordsMax && input_.next(row)) {
            readCount_ += 1;
            const std::string_view key = viewOf(*row.key, setting_.form.keyBytes);
            RecordRow made;
            made.place = row.place;
            made.keyGoesOn = !row.isKeyWhole || row.key->size() > key.size();
            made.hasNull = row.hasNull;
            made.isHeld = row.isHeld;
            made.text = row.text;
            if (setting_.filter != nullptr && !setting_.filter->admits(key, !made.keyGoesOn))
                continue;
            // The greatest length of a key cut short is not known.
            longestKey_ = std::max<std::uint64_t>(
                longestKey_, row.isKeyWhole ? row.key->size() : 2ULL * row.place.byteCount + 2);
            balance.goes(made.place);
            record_.encode(made, key, target + records * record_.recordLength());
            records += 1;
        }
        return records;
    };
    const SortStats stats = sortOnce({record_.request(), record_.recordLength(), firstParts()},
                                     source, [&](const Byte* records, std::size_t recordCount) {
                                         for (std::size_t i = 0; i < recordCount; ++i) {
                                             const Byte* const record =
                                                 records + i * record_.recordLength();
                                             balance.comesBack(record_.decode(record).place);
                                             splitter.take(record);
                                         }
                                     });
    splitter.finish();
    runs_ = splitter.takeRuns();
    if (auto entries = splitter.takeEntries(); entries != nullptr)
        levels_.push_back({SpoolReader(*entries), 0});
    return stats;
}

// Boundaries from a sample in which every row is as likely as any other (Vitter's algorithm R).
std::function<std::size_t(const Byte*)> SettledOrder::firstParts() {
    if (setting_.processCount < 2) return {};
    std::mt19937_64 random;  // the same rows give the same boundaries
    std::vector<std::string> sample;
    std::uint64_t seen = 0;
    KeyedRow row;
    while (input_.next(row)) {
        seen += 1;
        const bool isNew = sample.size() < kPartSampleRows;
        const std::uint64_t place = isNew ? sample.size() : random() % seen;
        if (place >= kPartSampleRows) continue;
        if (isNew) sample.emplace_back();
        sample[place] = viewOf(*row.key, setting_.form.keyBytes);
        sample[place].resize(setting_.form.keyBytes, '\0');
    }
    input_.restart();
    std::sort(sample.begin(), sample.end());
    std::vector<std::string> boundaries;
    for (std::size_t part = 1; part < setting_.processCount && !sample.empty(); ++part)
        boundaries.push_back(sample[part * sample.size() / setting_.processCount]);
    return [this, boundaries](const Byte* record) {
        return static_cast<std::size_t>(
            std::upper_bound(boundaries.begin(), boundaries.end(), record_.comparedBytes(record)) -
            boundaries.begin());
    };
}

SortStats SettledOrder::nextRound(const SortOnce& sortOnce, bool passesCommonOver) {
    const std::unique_ptr<OpenRuns> runs = std::move(runs_);
    OpenRows rows(*runs, input_, setting_.batchBytes);
    if (passesCommonOver) rows.passCommonOver(setting_.tempDirectory);
    KeyRecord::Form form;
    form.hasRuns = true;
    const KeyRecord overhead(form);
    const std::size_t bytesMax = setting_.recordBytesMax - overhead.recordLength();
    const std::uint64_t share = kRoundBytes / std::max<std::uint64_t>(runs->rowCount, 1);
    form.keyBytes = std::min<std::uint64_t>({std::max<std::uint64_t>(share, kRoundKeyBytesMin),
                                             bytesMax, std::max<std::uint64_t>(longestKey_, 1)});
    const KeyRecord record(form);

    RunSplitter splitter(
        record, [&](std::uint64_t run) { return rows.startOf(run); }, TakeSettled(),
        setting_.tempDirectory);
    RoundBalance balance(input_.places());
    SortRequest request = {record.request(), record.recordLength(), {}};
    if (setting_.processCount > 1) {
        request.partOf = [&, count = setting_.processCount,
                          all = runs->runCount](const Byte* made) {
            return static_cast<std::size_t>(record.decode(made).runNumber * count / all);
        };
    }
    const host::RecordSource source = rows.source(record);
    bool isLoaded = false;
    const SortStats stats = sortOnce(
        request,
        [&](Byte* target, std::size_t recordsMax) {
            const std::size_t count = source(target, recordsMax);
            for (std::size_t i = 0; i < count; ++i)
                balance.goes(record.decode(target + i * record.recordLength()).place);
            return count;
        },
        [&](const Byte* records, std::size_t recordCount) {
            if (!isLoaded) rows.rewind();
            isLoaded = true;
            for (std::size_t i = 0; i < recordCount; ++i) {
                const Byte* const made = records + i * record.recordLength();
                balance.comesBack(record.decode(made).place);
                splitter.take(made);
            }
        });
    splitter.finish();
    runs_ = splitter.takeRuns();
    levels_.push_back({SpoolReader(*splitter.takeEntries()), 0});
    return stats;
}

bool SettledOrder::nextSettled(SettledRow& row) {
    while (depth_ > 0 && levels_[depth_].rowsLeft == 0)
        depth_ -= 1;
    for (;;) {
        Level& level = levels_[depth_];
        SettledEntry entry = {};
        if (!level.entries.read(entry)) {
            if (depth_ == 0) return false;
            throw host::brokenResult("gave back runs of other sizes than it was given");
        }
        const bool isRun = entry.kind == SettledEntry::kRun;
        if (depth_ > 0) level.rowsLeft -= std::min(level.rowsLeft, isRun ? entry.offset : 1);
        if (isRun) {
            depth_ += 1;
            if (depth_ == levels_.size())
                throw host::brokenResult("gave back runs of other sizes than it was given");
            levels_[depth_].rowsLeft = entry.offset;
            continue;
        }
        row = {{entry.offset, entry.byteCount},
               entry.isEqual != 0,
               entry.hasNull != 0,
               entry.isHeld != 0,
               {}};
        if (row.isHeld) {
            text_.resize(entry.byteCount);
            level.entries.read(text_.data(), text_.size());
            row.text = {reinterpret_cast<const char*>(text_.data()), text_.size()};
        }
        return true;
    }
}

}  // namespace tvsort::tools
