#include "tools/ordered/sorted_run.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tvsort::tools {

namespace {

constexpr std::size_t kPlaceBytes = 6;
constexpr std::size_t kHeadBytesMax = 10;
// Rows in memory stand in another order than their texts: this many further on is fetched in time.
constexpr std::uint64_t kRowsAhead = 12;

constexpr std::uint64_t kNullBit = 1;
constexpr std::uint64_t kGoesOnBit = 2;
constexpr std::uint64_t kHeldBit = 4;
constexpr int kHeadShift = 3;

std::uint64_t headOf(const Byte* key, std::size_t keyBytes) {
    std::uint64_t head = 0;
    std::memcpy(&head, key, std::min(keyBytes, sizeof head));
    return std::endian::native == std::endian::little ? __builtin_bswap64(head) : head;
}

// The first of so many for which it does not hold, where it holds for none behind such a one.
template <typename Holds>
std::uint64_t firstNot(std::uint64_t count, const Holds& holds) {
    std::uint64_t low = 0;
    while (low < count) {
        const std::uint64_t middle = low + (count - low) / 2;
        if (holds(middle)) {
            low = middle + 1;
        } else {
            count = middle;
        }
    }
    return low;
}

}  // namespace

RunFileWriter::RunFileWriter(const RunForm& form, SpoolFile& file) : form_(form), file_(file) {
    run_.file = &file;
    run_.begin = file.byteCount();
    nextMark_ = run_.begin;
}

void RunFileWriter::write(const RunRow& row) {
    const std::size_t keyBytes = form_.record.form().keyBytes;
    if (file_.byteCount() >= nextMark_) {
        run_.markKeys.insert(run_.markKeys.end(), row.key, row.key + keyBytes);
        run_.markOffsets.push_back(file_.byteCount());
        nextMark_ = file_.byteCount() + form_.markBytes;
    }
    head_.clear();
    std::uint64_t head = std::uint64_t{row.place.byteCount} << kHeadShift |
                         (row.isHeld ? kHeldBit : 0) | (row.keyGoesOn ? kGoesOnBit : 0) |
                         (row.hasNull ? kNullBit : 0);
    for (; head >= 0x80; head >>= 7)
        head_.push_back(static_cast<Byte>(head | 0x80));
    head_.push_back(static_cast<Byte>(head));
    if (form_.keepsKeys || !row.isHeld) {
        std::size_t count = keyBytes;
        while (count > 0 && row.key[count - 1] == 0)
            count -= 1;
        head_.push_back(static_cast<Byte>(count));
        head_.insert(head_.end(), row.key, row.key + count);
    }
    if (form_.keepsPlaces || !row.isHeld) {
        for (std::size_t i = 0; i < kPlaceBytes; ++i)
            head_.push_back(static_cast<Byte>(row.place.offset >> 8 * i));
    }
    file_.write(head_.data(), head_.size());
    if (row.isHeld) file_.write(reinterpret_cast<const Byte*>(row.text.data()), row.text.size());
    run_.rowCount += 1;
    run_.textBytes += row.place.byteCount;
}

SortedRun RunFileWriter::finish() {
    file_.flush();
    run_.end = file_.byteCount();
    return std::move(run_);
}

RunCursor::RunCursor(const RunForm& form, const SortedRun& run, RowReader& reader,
                     std::size_t bufferBytes)
    : form_(form), run_(run), reader_(reader), bufferBytes_(bufferBytes) {
    if (run.file != nullptr) key_.resize(form.record.form().keyBytes);
}

void RunCursor::start(const Range& range) {
    to_ = range.to;
    if (run_.file != nullptr) return seekInFile(range.from);
    index_ = range.from.empty() ? 0 : lowerBound(form_, run_, range.from);
    endIndex_ = to_.empty() ? run_.rowCount : lowerBound(form_, run_, to_);
}

bool RunCursor::next() {
    knowsWholeKey_ = false;
    if (run_.file == nullptr) return nextInMemory();
    if (isPending_) {
        isPending_ = false;
        return true;
    }
    return nextInFile();
}

bool RunCursor::nextInMemory() {
    if (index_ >= endIndex_) return false;
    const std::size_t recordLength = form_.record.recordLength();
    const Byte* const record = run_.recordAt(index_, recordLength);
    if (index_ + kRowsAhead < endIndex_) {
        const RecordRow ahead =
            form_.record.decode(run_.recordAt(index_ + kRowsAhead, recordLength));
        if (ahead.place.byteCount <= kHeldBytesMax) {
            const char* const text = run_.text.data() + (ahead.place.offset - run_.textOffset);
            __builtin_prefetch(text);
            __builtin_prefetch(text + ahead.place.byteCount);
        }
    }
    const RecordRow row = form_.record.decode(record);
    row_.key = record;
    row_.place = row.place;
    row_.keyGoesOn = row.keyGoesOn;
    row_.hasNull = row.hasNull;
    row_.isHeld = row.place.byteCount <= kHeldBytesMax;
    row_.text = {};
    if (row_.isHeld)
        row_.text = {run_.text.data() + (row.place.offset - run_.textOffset), row.place.byteCount};
    keyHead_ = headOf(record, form_.record.form().keyBytes);
    index_ += 1;
    return true;
}

std::size_t RunCursor::markFor(std::string_view key) const {
    return firstNot(run_.markOffsets.size(), [&](std::uint64_t mark) {
        const auto* const at = run_.markKeys.data() + mark * key.size();
        return std::string_view(reinterpret_cast<const char*>(at), key.size()) < key;
    });
}

void RunCursor::seekInFile(std::string_view from) {
    at_ = 0;
    filled_ = 0;
    isPending_ = false;
    offset_ = run_.begin;
    end_ = run_.end;
    if (!to_.empty()) {
        const std::size_t mark = markFor(to_);
        if (mark < run_.markOffsets.size()) end_ = run_.markOffsets[mark];
    }
    if (from.empty()) return;
    // Rows alike may stand before a mark that is the same.
    const std::size_t mark = markFor(from);
    if (mark > 0) offset_ = run_.markOffsets[mark - 1];
    while (nextInFile()) {
        if (std::string_view(reinterpret_cast<const char*>(row_.key), from.size()) < from) continue;
        isPending_ = true;
        break;
    }
}

void RunCursor::fill(std::size_t byteCount) {
    if (filled_ - at_ >= byteCount) return;
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(at_),
              buffer_.begin() + static_cast<std::ptrdiff_t>(filled_), buffer_.begin());
    filled_ -= at_;
    at_ = 0;
    if (buffer_.size() < std::max(bufferBytes_, byteCount))
        buffer_.resize(std::max(bufferBytes_, byteCount));
    const std::size_t count = std::min<std::uint64_t>(buffer_.size() - filled_, end_ - offset_);
    run_.file->readAt(offset_, buffer_.data() + filled_, count);
    offset_ += count;
    filled_ += count;
}

bool RunCursor::nextInFile() {
    const std::size_t keyBytes = form_.record.form().keyBytes;
    fill(kHeadBytesMax + 1 + keyBytes + kPlaceBytes);
    if (at_ == filled_) return false;
    const Byte* source = buffer_.data() + at_;
    std::uint64_t head = 0;
    for (int shift = 0;; shift += 7) {
        const Byte byte = *source++;
        head |= std::uint64_t{byte & 0x7fU} << shift;
        if ((byte & 0x80) == 0) break;
    }
    row_.isHeld = (head & kHeldBit) != 0;
    row_.keyGoesOn = (head & kGoesOnBit) != 0;
    row_.hasNull = (head & kNullBit) != 0;
    row_.place = {0, static_cast<std::uint32_t>(head >> kHeadShift)};
    const bool hasKey = form_.keepsKeys || !row_.isHeld;
    if (hasKey) {
        const std::size_t count = *source++;
        std::fill(std::copy_n(source, count, key_.begin()), key_.end(), Byte{0});
        source += count;
    }
    if (form_.keepsPlaces || !row_.isHeld) {
        for (std::size_t i = 0; i < kPlaceBytes; ++i)
            row_.place.offset |= std::uint64_t{*source++} << 8 * i;
    }
    at_ = static_cast<std::size_t>(source - buffer_.data());
    row_.text = {};
    if (row_.isHeld) {
        fill(row_.place.byteCount);
        row_.text = {reinterpret_cast<const char*>(buffer_.data()) + at_, row_.place.byteCount};
        at_ += row_.place.byteCount;
    }
    if (!hasKey) {
        reader_.keyOf(row_.text.substr(0, keyBytes), wholeKey_);
        const std::size_t count = std::min(keyBytes, wholeKey_.size());
        std::fill(std::copy_n(wholeKey_.begin(), count, key_.begin()), key_.end(), Byte{0});
    }
    row_.key = key_.data();
    keyHead_ = headOf(key_.data(), keyBytes);
    return to_.empty() ||
           std::string_view(reinterpret_cast<const char*>(key_.data()), keyBytes) < to_;
}

const host::KeyBytes& RunCursor::wholeKey() {
    if (!knowsWholeKey_) reader_.keyOf(row_.text, wholeKey_);
    knowsWholeKey_ = true;
    return wholeKey_;
}

std::uint64_t lowerBound(const RunForm& form, const SortedRun& run, std::string_view key) {
    return firstNot(run.rowCount, [&](std::uint64_t index) {
        const Byte* const record = run.recordAt(index, form.record.recordLength());
        return form.record.comparedBytes(record) < key;
    });
}

}  // namespace tvsort::tools
