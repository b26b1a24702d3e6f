#include "tools/ordered/tiled_output.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "tools/files/interrupt.h"
#include "tools/ordered/run_merge.h"
#include "tools/ordered/workers.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytesMax = std::size_t{1} << 20;
constexpr std::size_t kRunsMax = 512;
constexpr std::size_t kRunsMin = 16;
// So many keys are looked at for each boundary: tiles differ by a fourth of their size or so.
constexpr std::uint64_t kSamplesPerTile = 16;
// The rows of a tile in a run's file begin and end somewhere between two marks.
constexpr std::uint64_t kMarksPerTileMin = 16;

// Of the first bytes of keys, in order, without two alike: tile n begins with the n-th one but the
// first, which begins with the least key of all.
std::vector<std::string> boundaries(const RunForm& form, std::span<const SortedRun> runs,
                                    std::uint64_t tileBytes) {
    std::uint64_t allBytes = 0;
    for (const SortedRun& run : runs)
        allBytes += run.textBytes;
    const std::uint64_t sampleCount =
        allBytes / std::max<std::uint64_t>(tileBytes, 1) * kSamplesPerTile;
    const std::size_t keyBytes = form.record.form().keyBytes;
    std::vector<std::string> sample;
    for (const SortedRun& run : runs) {
        const std::uint64_t count = static_cast<std::uint64_t>(
            static_cast<double>(sampleCount) * static_cast<double>(run.textBytes) /
            static_cast<double>(std::max<std::uint64_t>(allBytes, 1)));
        for (std::uint64_t i = 0; i < count; ++i) {
            const Byte* const key =
                run.file == nullptr
                    ? run.recordAt(i * run.rowCount / count, form.record.recordLength())
                    : run.markKeys.data() + i * run.markOffsets.size() / count * keyBytes;
            sample.emplace_back(reinterpret_cast<const char*>(key), keyBytes);
        }
    }
    std::sort(sample.begin(), sample.end());
    std::vector<std::string> found;
    for (std::size_t i = kSamplesPerTile; i < sample.size(); i += kSamplesPerTile) {
        if (found.empty() || found.back() != sample[i]) found.push_back(sample[i]);
    }
    return found;
}

// The rows of a tile on their way out.
class TileWriter {
  public:
    TileWriter(RowWriter& writer, Turns& turns, std::size_t byteCount)
        : writer_(writer),
          lineEnd_(writer.form().lineEnd),
          endsEveryRow_(writer.form().endsEveryRow),
          turns_(turns),
          bytes_(byteCount + kHeldBytesMax + lineEnd_.size()),
          bytesMax_(byteCount) {}

    void begin(std::size_t tile) { tile_ = tile; }
    // Always fits: below bytesMax_ before it, a row that is held has kHeldBytesMax bytes at most.
    void write(const RunRow& row) {
        if (!row.isHeld) return writeLong(row.place);
        if (filled_ >= bytesMax_) flush();
        std::memcpy(bytes_.data() + filled_, row.text.data(), row.text.size());
        filled_ += row.text.size();
        if (!endsEveryRow_ && row.text.ends_with('\n')) return;
        std::memcpy(bytes_.data() + filled_, lineEnd_.data(), lineEnd_.size());
        filled_ += lineEnd_.size();
    }
    void end() {
        flush();
        turns_.pass();
    }

  private:
    void flush() {
        turns_.await(tile_);
        writer_.startedOutput().write(reinterpret_cast<const Byte*>(bytes_.data()), filled_);
        filled_ = 0;
    }
    void writeLong(const RowPlace& place) {
        flush();
        writer_.write(place);
    }

    RowWriter& writer_;
    const std::string& lineEnd_;
    bool endsEveryRow_;
    Turns& turns_;
    PageMemory bytes_;
    std::size_t bytesMax_;
    std::size_t filled_ = 0;
    std::size_t tile_ = 0;
};

}  // namespace

std::size_t runsAtOnce(const RunPlan& plan) {
    return std::clamp<std::size_t>(plan.readBytes / plan.runReadBytesMin, kRunsMin, kRunsMax);
}

std::size_t runBufferBytes(const RunPlan& plan, std::size_t runCount) {
    return std::clamp<std::size_t>(plan.readBytes / std::max<std::size_t>(runCount, 1),
                                   plan.runReadBytesMin, kBufferBytesMax);
}

std::int64_t writeTiles(const RunForm& form, const RunPlan& plan, const KeyedInput& input,
                        std::span<const SortedRun> runs, RowWriter& writer, Progress& progress) {
    const auto fileCount = static_cast<std::uint64_t>(std::count_if(
        runs.begin(), runs.end(), [](const SortedRun& run) { return run.file != nullptr; }));
    const std::uint64_t tileBytes =
        std::max(plan.writeBytes / 4 * 3, fileCount * kMarksPerTileMin * form.markBytes);
    const std::vector<std::string> borders = boundaries(form, runs, tileBytes);
    const std::size_t tileCount = borders.size() + 1;
    std::atomic<std::size_t> nextTile{0};
    std::atomic<std::int64_t> rowCount{0};
    Turns turns;
    const auto work = [&](std::size_t) {
        const std::unique_ptr<RowReader> reader = input.reader(form.record.form().keyBytes);
        TileWriter tile(writer, turns, plan.writeBytes);
        RunMerge merge(form, runs, *reader, runBufferBytes(plan, runs.size()));
        for (;;) {
            const std::size_t number = nextTile.fetch_add(1);
            if (number >= tileCount) break;
            throwIfInterrupted();
            tile.begin(number);
            RunCursor::Range range;
            if (number > 0) range.from = borders[number - 1];
            if (number < borders.size()) range.to = borders[number];
            merge.start(range);
            std::int64_t rows = 0;
            for (const RunRow* row = merge.next(); row != nullptr; row = merge.next()) {
                tile.write(*row);
                rows += 1;
            }
            rowCount += rows;
            progress.advance(rows);
            tile.end();
        }
    };
    workTogether(plan.workerCount, work, [&] { turns.callOff(); });
    writer.finish();
    return rowCount;
}

}  // namespace tvsort::tools
