#include "host/c/row_sort.h"

#include <algorithm>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <string>
#include <thread>

#include "host/sort_method.h"

namespace tvsort::capi {

namespace {

constexpr std::int64_t kRowsMax = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kRecordBytesMax = 65535;
// The process moves records of whole words faster.
constexpr std::size_t kWordBytes = 8;
constexpr std::size_t kRoutedRows = 2048;
// So many rows pass column by column, few enough to stay in the nearest cache.
constexpr std::size_t kEncodedRows = 128;
// More of a sample would part the rows no better.
constexpr std::size_t kSampleRowsMax = 16384;
constexpr std::chrono::milliseconds kWatchInterval{50};

// Whether the process will sort by a method that keeps equal records as they came.
bool keepsOrder(const host::RequestBuilder& request, const host::Geometry& geometry,
                const host::Extent& extent, std::int32_t frameCount) {
    return host::keepsArrival(host::forecastMethod(request, geometry, extent, frameCount).reason);
}

std::size_t roundedUp(std::size_t bytes) {
    const std::size_t whole = (bytes + kWordBytes - 1) / kWordBytes * kWordBytes;
    return whole > kRecordBytesMax ? bytes : whole;
}

}  // namespace

RowSort::RowSort(const std::vector<SlotWork*>& slots, const tvsort_rows_options& options,
                 const std::atomic<bool>& cancelled)
    : options_(options) {
    if (options.payload_bytes < 0 || options.limit < 0) {
        throw host::badUse("payload_bytes and limit are counts; use 0 or more");
    }
    if (options.result < TVSORT_ALL || options.result > TVSORT_EXCEPT) {
        throw host::badUse("there is no result " + std::to_string(options.result) +
                           "; use one of TVSORT_ALL to TVSORT_EXCEPT");
    }
    for (SlotWork* const slot : slots)
        parts_.emplace_back(*slot);
    shape_.payloadBytes = static_cast<std::size_t>(options.payload_bytes);
    heed_ = {&cancelled, options.watch, options.watch_context, 0, 0, {}};
}

// The next user of the slots finds their files empty, and no process at work.
RowSort::~RowSort() {
    for (Part& part : parts_) {
        try {
            const bool isUsed = part.loader != nullptr || part.loaded.extent.recordCount > 0;
            if (isUsed) part.work->slot().workFile().makeEmpty();
        } catch (...) {
            // It is emptied by the next load, or removed.
        }
    }
}

void RowSort::needStage(Stage stage, const char* act) const {
    if (stage_ == stage) return;
    needWhole();
    static constexpr const char* kNow[] = {"before the first put", "between the puts",
                                           "after the sort"};
    throw host::badUse(std::string(act) + " cannot be had " +
                       kNow[static_cast<std::size_t>(stage_)]);
}

void RowSort::needWhole() const {
    if (stage_ == Stage::kBroken) {
        throw host::badUse(
            "an earlier call has failed between the rows; destroy them, and create others");
    }
}

void RowSort::addColumn(const tvsort_column& column) {
    needStage(Stage::kColumns, "a column");
    encoder_.addColumn(column);
    splitters_.clear();  // of shorter keys
}

void RowSort::sample(std::size_t rowCount) {
    needStage(Stage::kColumns, "a sample");
    encoder_.checkValues();
    const std::size_t keyBytes = encoder_.keyBytes();
    splitters_.clear();
    if (keyBytes == 0) return;
    const std::size_t step = std::max<std::size_t>(rowCount / kSampleRowsMax, 1);
    const std::size_t count = rowCount / step;
    std::vector<Byte> keys(count * keyBytes);
    std::vector<const Byte*> order;
    for (std::size_t i = 0; i < count; ++i) {
        Byte* const key = keys.data() + i * keyBytes;
        encoder_.encode(static_cast<std::int64_t>(i * step), 1, key, keyBytes);
        order.push_back(key);
    }
    std::sort(order.begin(), order.end(), [keyBytes](const Byte* left, const Byte* right) {
        return std::memcmp(left, right, keyBytes) < 0;
    });
    for (std::size_t i = 1; i < parts_.size() && count > 0; ++i) {
        const Byte* const key = order[i * count / parts_.size()];
        splitters_.insert(splitters_.end(), key, key + keyBytes);
    }
}

void RowSort::beginPut() {
    encoder_.checkValues();
    if (stage_ == Stage::kPut) return;
    needStage(Stage::kColumns, "a put");
    const std::size_t payloadOffset = encoder_.keyBytes() + kRowNumberBytes;
    const auto payloadBytes = static_cast<std::size_t>(options_.payload_bytes);
    if (payloadBytes > kRecordBytesMax || payloadOffset + payloadBytes > kRecordBytesMax) {
        throw host::badUse("a record of " + std::to_string(payloadOffset + payloadBytes) +
                           " bytes, its key among them, cannot be sorted; use 65535 at most");
    }
    shape_ = {encoder_.keyBytes(), payloadOffset, payloadBytes,
              roundedUp(payloadOffset + payloadBytes)};
    const SlotLayout& layout = parts_[0].work->slot().memory().layout();
    geometry_ =
        host::chooseGeometry(static_cast<std::uint16_t>(shape_.recordBytes), layout.pagesPerBlock);
    if (splitters_.empty()) parts_.erase(parts_.begin() + 1, parts_.end());
    for (Part& part : parts_) {
        part.work->ensureStarted();
        part.loader = std::make_unique<host::RecordLoader>(part.work->slot().loader(geometry_));
    }
    stage_ = Stage::kPut;
}

void RowSort::encode(std::int64_t firstRow, std::size_t rowCount, const Byte* payload,
                     std::ptrdiff_t payloadStride, Byte* records) {
    for (std::size_t done = 0; done < rowCount; done += kEncodedRows) {
        encoder_.encode(firstRow + static_cast<std::int64_t>(done),
                        std::min(kEncodedRows, rowCount - done),
                        records + done * shape_.recordBytes, shape_.recordBytes);
    }
    const std::size_t usedBytes = shape_.payloadOffset + shape_.payloadBytes;
    for (std::size_t i = 0; i < rowCount; ++i) {
        Byte* const record = records + i * shape_.recordBytes;
        storeRowNumber(record + shape_.keyBytes, rowCount_ + static_cast<std::int64_t>(i));
        if (usedBytes < shape_.recordBytes)
            std::memset(record + usedBytes, 0, shape_.recordBytes - usedBytes);
    }
    if (shape_.payloadBytes == 0) return;
    const Byte* next = payload + firstRow * payloadStride;
    for (std::size_t i = 0; i < rowCount; ++i) {
        std::memcpy(records + i * shape_.recordBytes + shape_.payloadOffset, next,
                    shape_.payloadBytes);
        next += payloadStride;
    }
}

std::size_t RowSort::partOf(const Byte* record) const {
    const std::size_t keyBytes = encoder_.keyBytes();
    std::size_t part = 0;
    while (part + 1 < parts_.size() &&
           std::memcmp(record, splitters_.data() + part * keyBytes, keyBytes) >= 0) {
        part += 1;
    }
    return part;
}

void RowSort::route(const Byte* records, std::size_t rowCount) {
    for (std::size_t i = 0; i < rowCount; ++i) {
        const Byte* const record = records + i * shape_.recordBytes;
        host::RecordLoader& loader = *parts_[partOf(record)].loader;
        std::size_t room = 0;
        std::memcpy(loader.room(room), record, shape_.recordBytes);
        loader.took(1);
    }
}

void RowSort::put(std::size_t rowCount, const Byte* payload, std::ptrdiff_t payloadStride) {
    heed_.stage = TVSORT_STAGE_PUT;
    const HeedScope scope(heed_);
    if (rowCount == 0) return heed_.look();
    if (options_.payload_bytes > 0) need(payload, "payload");
    beginPut();
    if (rowCount > static_cast<std::size_t>(kRowsMax - rowCount_)) {
        throw host::badUse("there are more than 4294967295 rows; sort them in parts");
    }
    stage_ = Stage::kBroken;
    for (std::size_t done = 0; done < rowCount;) {
        heed_.look();
        std::size_t rowsMax = kRoutedRows;
        const bool isRouted = parts_.size() > 1;
        if (isRouted) routed_.resize(kRoutedRows * shape_.recordBytes);
        Byte* const room = isRouted ? routed_.data() : parts_[0].loader->room(rowsMax);
        const std::size_t rows = std::min(rowsMax, rowCount - done);
        encode(static_cast<std::int64_t>(done), rows, payload, payloadStride, room);
        if (isRouted) {
            route(room, rows);
        } else {
            parts_[0].loader->took(rows);
        }
        done += rows;
        rowCount_ += static_cast<std::int64_t>(rows);
        heed_.done = rowCount_;
    }
    stage_ = Stage::kPut;
}

void RowSort::nextOperand() {
    needWhole();
    const bool takesTwo = options_.result == TVSORT_INTERSECT || options_.result == TVSORT_EXCEPT;
    if (!takesTwo || operandRows_ >= 0 || stage_ == Stage::kGet) {
        throw host::badUse(
            "another operand is for TVSORT_INTERSECT and TVSORT_EXCEPT, once, and "
            "before the sort");
    }
    operandRows_ = rowCount_;
}

// A limit is met by the parts one after the other.
void RowSort::planRequests() {
    const auto keyBytes = static_cast<std::uint16_t>(encoder_.keyBytes());
    const bool isLimited = options_.limit > 0 && options_.result == TVSORT_ALL;
    std::int64_t left = isLimited ? options_.limit : kRowsMax;
    for (Part& part : parts_) {
        part.loaded = part.loader->finish();
        part.loader.reset();
        part.isAsked = part.loaded.extent.recordCount > 0 && left > 0;
        host::RequestBuilder byKey;
        byKey.addKey(host::ascendingKey(DataType::kBytes, 0, keyBytes));
        part.request = byKey;
        const std::int32_t frameCount = part.work->slot().memory().frameCount(geometry_.blockPages);
        if (keyBytes == 0 || !keepsOrder(byKey, geometry_, part.loaded.extent, frameCount)) {
            part.request = {};
            part.request.addKey(host::ascendingKey(
                DataType::kBytes, 0, static_cast<std::uint16_t>(keyBytes + kRowNumberBytes)));
        }
        if (isLimited && left < part.loaded.extent.recordCount) {
            part.request.setLimit(static_cast<std::int32_t>(std::max<std::int64_t>(left, 0)));
        }
        left -= part.loaded.extent.recordCount;
    }
}

void RowSort::askPart(Part& part) {
    host::SortSlot& slot = part.work->slot();
    const host::ProcessUsage before = slot.process().usage();
    const SortReply reply = part.work->ask(part.request, geometry_, part.loaded.extent);
    const host::ProcessUsage after = slot.process().usage();
    part.resultCount = reply.recordCount;
    part.cpuSeconds = after.cpuSeconds - before.cpuSeconds;
    part.peakBytes = after.peakBytes;
}

// The parts side by side, each with a thread that waits for its process; this one watches. Who
// fails first stops the others.
void RowSort::ask() {
    if (parts_.size() == 1) {
        if (parts_[0].isAsked) askPart(parts_[0]);
        return;
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::exception_ptr failure;
    std::atomic<bool> stopped = false;
    std::size_t running = 0;
    const auto fail = [&] {
        if (failure == nullptr) failure = std::current_exception();
        stopped = true;
    };
    std::vector<std::jthread> threads;
    threads.reserve(parts_.size());
    std::unique_lock<std::mutex> lock(mutex);
    for (Part& part : parts_) {
        if (!part.isAsked) continue;
        const auto work = [&, this] {
            Heed heed = {&stopped, nullptr, nullptr, 0, 0, {}};
            const HeedScope scope(heed);
            std::exception_ptr mine;
            try {
                askPart(part);
            } catch (...) {
                mine = std::current_exception();
            }
            const std::lock_guard<std::mutex> guard(mutex);
            if (mine != nullptr && failure == nullptr) failure = mine;
            if (mine != nullptr) stopped = true;
            running -= 1;
            changed.notify_all();
        };
        try {
            threads.emplace_back(work);
            running += 1;
        } catch (...) {
            fail();
            break;
        }
    }
    while (running > 0) {
        changed.wait_for(lock, kWatchInterval);
        if (stopped) continue;
        try {
            heed_.look();
        } catch (...) {
            fail();
        }
    }
    lock.unlock();
    threads.clear();
    if (failure != nullptr) std::rethrow_exception(failure);
}

void RowSort::sort() {
    heed_.stage = TVSORT_STAGE_SORT;
    const HeedScope scope(heed_);
    heed_.look();
    needWhole();
    if (stage_ == Stage::kGet) throw host::badUse("the rows are sorted once; create others");
    const bool isEmpty = stage_ == Stage::kColumns;
    stage_ = Stage::kBroken;
    heed_.done = 0;
    statistics_.records_in = rowCount_;
    statistics_.record_bytes = static_cast<std::int64_t>(shape_.recordBytes);
    if (isEmpty) parts_.clear();
    planRequests();
    const auto start = std::chrono::steady_clock::now();
    ask();
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    statistics_.sort_seconds = passed.count();
    std::vector<ResultReader> readers;
    for (const Part& part : parts_) {
        readers.emplace_back(part.work->slot(), geometry_, part.resultCount);
        statistics_.records_out += part.resultCount;
        statistics_.work_file_bytes += part.loaded.workFileBytes;
        statistics_.process_seconds += part.cpuSeconds;
        statistics_.process_peak_bytes += part.peakBytes;
    }
    result_.emplace(shape_, ResultRules{options_.result, options_.limit, rowCount_, operandRows_},
                    std::move(readers));
    stage_ = Stage::kGet;
}

std::size_t RowSort::get(std::size_t rowsMax, Byte* payload, std::ptrdiff_t payloadStride,
                         std::int64_t* numbers) {
    heed_.stage = TVSORT_STAGE_GET;
    const HeedScope scope(heed_);
    heed_.look();
    needWhole();
    if (!result_.has_value()) throw host::badUse("the rows are not sorted yet");
    return result_->get(rowsMax, payload, payloadStride, numbers, heed_);
}

}  // namespace tvsort::capi
