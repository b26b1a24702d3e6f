#include "tools/run/run_sort.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "host/sort_method.h"
#include "protocol/data_type.h"
#include "tools/files/interrupt.h"
#include "tools/run/loser_tree.h"
#include "tools/run/thread_start.h"

namespace tvsort::tools {

namespace {

constexpr std::uint64_t kMergeBytes = std::uint64_t{16} << 20;  // for runs in files, together
constexpr std::size_t kBufferBytesMin = std::size_t{64} * 1024;
constexpr std::size_t kBufferBytesMax = std::size_t{1} << 20;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

// Of a record's first key, a number that is less where the key is certainly less. Where it is
// alike, or no such number is easily made, the records themselves are compared.
class KeyHead {
  public:
    explicit KeyHead(const host::RequestBuilder& request) {
        if (request.keys().empty() || request.nullIndicatorsOffset().has_value()) return;
        const KeyDescriptor& key = request.keys().front();
        const auto type = static_cast<DataType>(key.dataType);
        isUsed_ = type == DataType::kBytes || type == DataType::kInteger;
        isInteger_ = type == DataType::kInteger;
        offset_ = key.fieldOffset;
        byteCount_ = std::min<std::size_t>(key.fieldLength, sizeof(std::uint64_t));
        const bool isAscending =
            (key.kindFlags & kKeyKindMask) == static_cast<std::uint8_t>(KeyKind::kAscending);
        if (!isAscending) turn_ = ~std::uint64_t{0};
    }

    std::uint64_t of(const Byte* record) const {
        if (!isUsed_) return 0;
        std::uint64_t head = 0;
        const Byte* const key = record + offset_;
        if (isInteger_) {
            const std::int64_t value = byteCount_ == sizeof(std::int16_t) ? loadI16(key)
                                       : byteCount_ == sizeof(std::int32_t)
                                           ? loadI32(key)
                                           : loadAs<std::int64_t>(key);
            head = static_cast<std::uint64_t>(value) ^ (std::uint64_t{1} << 63);
        } else {
            std::memcpy(&head, key, byteCount_);
            if constexpr (std::endian::native == std::endian::little)
                head = __builtin_bswap64(head);
        }
        return head ^ turn_;
    }

  private:
    bool isUsed_ = false;
    bool isInteger_ = false;
    std::size_t offset_ = 0;
    std::size_t byteCount_ = 0;
    std::uint64_t turn_ = 0;
};

}  // namespace

// The records of a run, one after the other.
class RunSort::Cursor {
  public:
    Cursor(const RunSort& sort, const Run& run, std::size_t bufferBytes)
        : sort_(sort),
          run_(run),
          recordLength_(sort.geometry_.recordLength),
          left_(run.recordCount) {
        const std::size_t records = run.isInFile
                                        ? std::max(bufferBytes / recordLength_, std::size_t{1})
                                        : static_cast<std::size_t>(sort.geometry_.recordsPerBlock);
        buffer_.resize(records * recordLength_);
    }

    // Null behind the last one.
    const Byte* next() {
        if (left_ == 0) return nullptr;
        if (pieceLeft_ == 0) readPiece();
        const Byte* const record = at_;
        at_ += recordLength_;
        pieceLeft_ -= 1;
        left_ -= 1;
        return record;
    }

  private:
    void readPiece() {
        pieceLeft_ = std::min<std::uint64_t>(left_, buffer_.size() / recordLength_);
        const std::size_t byteCount = pieceLeft_ * recordLength_;
        if (run_.isInFile) {
            const std::uint64_t done = run_.recordCount - left_;
            sort_.file_->readAt(run_.begin + done * recordLength_, buffer_.data(), byteCount);
        } else {
            // A copy: the process, whose memory the frame is as well, cannot change it.
            const auto frame = sort_.server_.memory().frame(static_cast<int>(run_.slotIndex) + 1,
                                                            block_++, sort_.geometry_.blockPages);
            std::copy_n(frame.begin(), byteCount, buffer_.begin());
        }
        at_ = buffer_.data();
    }

    const RunSort& sort_;
    const Run& run_;
    std::size_t recordLength_;
    std::uint64_t left_;
    std::vector<Byte> buffer_;
    const Byte* at_ = nullptr;
    std::uint64_t pieceLeft_ = 0;
    std::int32_t block_ = 0;
};

RunSort::RunSort(host::SortServer& server, std::filesystem::path directory, Progress& progress)
    : server_(server), directory_(std::move(directory)), progress_(progress) {}

SortStats RunSort::sort(const SortRequest& request, const host::RecordSource& source,
                        const host::RecordSink& sink) {
    geometry_ = host::chooseGeometry(request.recordLength, server_.options().pagesPerBlock);
    // The last run may take some more along.
    recordsMax_ = runRecordsMax(request) - host::kEntryCountMin;
    runs_.clear();
    ahead_.clear();
    stats_ = {};
    stats_.blockBytes = static_cast<std::int64_t>(geometry_.blockBytes());
    loads_.clear();
    loads_.resize(static_cast<std::size_t>(server_.options().slotCount));
    StageClock clock;
    progress_.begin("loading");
    for (std::size_t slot = 0;; slot = (slot + 1) % loads_.size()) {
        finishSorting(slot);
        writeToFile(slot);
        if (!load(slot, source)) break;
        startSorting(slot, request.request);
    }
    stats_.load = clock.lap();
    progress_.begin("sorting");
    for (std::size_t slot = 0; slot < loads_.size(); ++slot)
        finishSorting(slot);
    const StageCost rest = clock.lap();
    stats_.load.cpuSeconds += rest.cpuSeconds;
    stats_.sort.elapsedSeconds = rest.elapsedSeconds;

    stats_.runCount = static_cast<std::int64_t>(runs_.size());
    stats_.fitted = file_ == nullptr;
    mergeLevels(request.request);
    progress_.begin("writing", stats_.recordCount);
    merge(request.request, runs_, sink);
    stats_.write = clock.lap();
    stats_.recordLength = geometry_.recordLength;
    stats_.recordsPerBlock = geometry_.recordsPerBlock;
    stats_.resultCount = stats_.recordCount;
    return stats_;
}

bool RunSort::holdsRuns(const SortRequest& request) const {
    return runRecordsMax(request) >= 2 * host::kEntryCountMin;
}

// As many as the process sorts in the frames without comparing them one by one.
std::int32_t RunSort::runRecordsMax(const SortRequest& request) const {
    const host::Geometry geometry =
        host::chooseGeometry(request.recordLength, server_.options().pagesPerBlock);
    const std::int32_t frames = server_.memory().frameCount(geometry.blockPages);
    const std::int64_t perBlock = geometry.recordsPerBlock;
    const auto keepsOrder = [&](std::int64_t count) {
        const host::Extent extent = {static_cast<std::int32_t>(count),
                                     static_cast<std::int32_t>((count + perBlock - 1) / perBlock)};
        const host::MethodReason reason =
            host::forecastMethod(request.request, geometry, extent, frames).reason;
        return reason == host::MethodReason::kEntries || reason == host::MethodReason::kCopies;
    };
    std::int64_t low = 0;
    std::int64_t high =
        std::min<std::int64_t>(frames * perBlock, std::numeric_limits<std::int32_t>::max());
    if (keepsOrder(high)) return static_cast<std::int32_t>(high);
    while (low + 1 < high) {
        const std::int64_t middle = low + (high - low) / 2;
        // There is no entry for fewer.
        const bool isSmall = middle < host::kEntryCountMin;
        (isSmall || keepsOrder(middle) ? low : high) = middle;
    }
    return static_cast<std::int32_t>(low);
}

bool RunSort::load(std::size_t slotIndex, const host::RecordSource& source) {
    Load& load = loads_[slotIndex];
    host::RecordLoader loader = slotOf(slotIndex).loader(geometry_);
    // Fewer records than these would be compared one by one, and not keep their order: a run takes
    // what is left along.
    const std::size_t aheadMax = host::kEntryCountMin;
    std::size_t left = static_cast<std::size_t>(recordsMax_);
    const host::RecordSource fromAhead = [this](Byte* target, std::size_t recordsMax) {
        return takeAhead(target, recordsMax);
    };
    fill(loader, fromAhead, left);
    fill(loader, source, left);
    readAhead(source, aheadMax);
    if (ahead_.size() < aheadMax * geometry_.recordLength) {
        left = aheadMax;
        fill(loader, fromAhead, left);
    }
    load.data = loader.finish();
    if (load.data.extent.recordCount == 0) return false;
    load.isFull = true;
    load.runNumber = runs_.size();
    runs_.push_back(
        {slotIndex, false, 0, static_cast<std::uint64_t>(load.data.extent.recordCount)});
    return true;
}

void RunSort::fill(host::RecordLoader& loader, const host::RecordSource& source,
                   std::size_t& left) {
    while (left > 0) {
        throwIfInterrupted();
        std::size_t recordsMax = 0;
        Byte* const room = loader.room(recordsMax);
        const std::size_t records = source(room, std::min(recordsMax, left));
        if (records == 0) break;
        loader.took(records);
        left -= records;
        progress_.advance(static_cast<std::int64_t>(records));
    }
}

void RunSort::readAhead(const host::RecordSource& source, std::size_t recordsMax) {
    const std::size_t recordLength = geometry_.recordLength;
    while (ahead_.size() < recordsMax * recordLength) {
        const std::size_t held = ahead_.size();
        ahead_.resize(recordsMax * recordLength);
        const std::size_t records = source(ahead_.data() + held, recordsMax - held / recordLength);
        ahead_.resize(held + records * recordLength);
        if (records == 0) break;
    }
}

std::size_t RunSort::takeAhead(Byte* target, std::size_t recordsMax) {
    const std::size_t bytes = std::min(recordsMax * geometry_.recordLength, ahead_.size());
    std::copy_n(ahead_.begin(), bytes, target);
    ahead_.erase(ahead_.begin(), ahead_.begin() + static_cast<std::ptrdiff_t>(bytes));
    return bytes / geometry_.recordLength;
}

void RunSort::startSorting(std::size_t slotIndex, const host::RequestBuilder& request) {
    Load& load = loads_[slotIndex];
    load.failure = nullptr;
    load.sorting = startThread([this, slotIndex, request, &load] {
        try {
            host::SortSlot& slot = slotOf(slotIndex);
            load.before = slot.process().usage();
            load.reply = slot.ask(request, geometry_, load.data.extent);
            host::checkAnswer(load.reply);
            load.after = slot.process().usage();
        } catch (...) {
            load.failure = std::current_exception();
        }
    });
}

void RunSort::finishSorting(std::size_t slotIndex) {
    Load& load = loads_[slotIndex];
    if (!load.sorting.joinable()) return;
    load.sorting.join();
    if (load.failure != nullptr) std::rethrow_exception(load.failure);
    addLoad(load);
}

void RunSort::writeToFile(std::size_t slotIndex) {
    Load& load = loads_[slotIndex];
    if (!load.isFull) return;
    load.isFull = false;
    if (file_ == nullptr) file_ = std::make_unique<SpoolFile>(directory_);
    Run& run = runs_[load.runNumber];
    run.isInFile = true;
    run.begin = file_->byteCount();
    slotOf(slotIndex).read(geometry_, load.data.extent.recordCount,
                           [&](const Byte* records, std::size_t count) {
                               throwIfInterrupted();
                               file_->write(records, count * geometry_.recordLength);
                           });
    stats_.spilledBytes += static_cast<std::int64_t>(file_->byteCount() - run.begin);
}

// Neighbours, so that equal records stay in the order of arrival.
void RunSort::mergeLevels(const host::RequestBuilder& request) {
    constexpr std::size_t kRunsMax = kMergeBytes / kBufferBytesMin;
    while (runs_.size() > kRunsMax) {
        progress_.begin("merging runs", stats_.recordCount);
        auto file = std::make_unique<SpoolFile>(directory_);
        const std::size_t groupCount = (runs_.size() + kRunsMax - 1) / kRunsMax;
        std::vector<Run> merged;
        for (std::size_t group = 0; group < groupCount; ++group) {
            const std::size_t first = group * runs_.size() / groupCount;
            const std::size_t end = (group + 1) * runs_.size() / groupCount;
            merged.push_back({0, true, file->byteCount(), 0});
            merge(request, std::span(runs_).subspan(first, end - first),
                  [&](const Byte* records, std::size_t count) {
                      file->write(records, count * geometry_.recordLength);
                      merged.back().recordCount += count;
                  });
        }
        runs_ = std::move(merged);
        file_ = std::move(file);
    }
}

void RunSort::merge(const host::RequestBuilder& request, std::span<const Run> runs,
                    const host::RecordSink& sink) {
    if (file_ != nullptr) {
        file_->flush();
        file_->expectJumps();
    }
    const host::RecordOrder order(request);
    const KeyHead keyHead(request);
    struct Head {
        const Byte* record;
        std::uint64_t key;
    };
    const std::size_t bufferBytes = std::clamp<std::size_t>(
        kMergeBytes / std::max<std::size_t>(runs.size(), 1), kBufferBytesMin, kBufferBytesMax);
    std::vector<Cursor> cursors;
    cursors.reserve(runs.size());
    std::vector<Head> heads(runs.size());
    const auto advance = [&](std::size_t run) {
        heads[run].record = cursors[run].next();
        if (heads[run].record != nullptr) heads[run].key = keyHead.of(heads[run].record);
    };
    for (std::size_t i = 0; i < runs.size(); ++i) {
        cursors.emplace_back(*this, runs[i], bufferBytes);
        advance(i);
    }
    const auto precedes = [&](std::size_t left, std::size_t right) {
        const Head& one = heads[left];
        const Head& other = heads[right];
        if (one.record == nullptr || other.record == nullptr) return one.record != nullptr;
        if (one.key != other.key) return one.key < other.key;
        return left < right ? order.mayFollow(one.record, other.record)
                            : !order.mayFollow(other.record, one.record);
    };
    const std::size_t recordLength = geometry_.recordLength;
    std::vector<Byte> piece(std::max<std::size_t>(kPieceBytes / recordLength, 1) * recordLength);
    std::size_t filled = 0;
    const auto hand = [&] {
        throwIfInterrupted();
        sink(piece.data(), filled / recordLength);
        progress_.advance(static_cast<std::int64_t>(filled / recordLength));
        filled = 0;
    };
    LoserTree tree(runs.size());
    tree.start(precedes);
    while (!runs.empty() && heads[tree.winner()].record != nullptr) {
        std::copy_n(heads[tree.winner()].record, recordLength, piece.data() + filled);
        filled += recordLength;
        if (filled == piece.size()) hand();
        advance(tree.winner());
        tree.replay(precedes);
    }
    if (filled > 0) hand();
}

void RunSort::addLoad(const Load& load) {
    stats_.recordCount += load.data.extent.recordCount;
    stats_.blockCount += load.data.extent.fileBlocks;
    stats_.frameCount = server_.memory().frameCount(geometry_.blockPages);
    stats_.sort.cpuSeconds += load.after.cpuSeconds - load.before.cpuSeconds;
    stats_.processPeakBytes = std::max(stats_.processPeakBytes, load.after.peakBytes);
}

host::SortSlot& RunSort::slotOf(std::size_t slotIndex) {
    return server_.slot(static_cast<int>(slotIndex) + 1);
}

}  // namespace tvsort::tools
