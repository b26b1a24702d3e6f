#include "tools/formats/row_writer.h"

#include <algorithm>
#include <utility>

#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

// What lies between two rows is read along with them up to this size: it costs less than a call.
constexpr std::uint64_t kGapBytesMax = 8192;
constexpr std::size_t kSpanBytesMax = std::size_t{256} * 1024;
constexpr std::size_t kBufferBytesMax = std::size_t{1} << 30;

}  // namespace

RowWriter::RowWriter(Form form, const std::vector<InputFile>& inputs, std::size_t memoryBytes,
                     OutputFile& output)
    : form_(std::move(form)),
      places_(inputs),
      memoryBytes_(std::min(memoryBytes, kBufferBytesMax)),
      output_(output) {}

void RowWriter::write(std::string_view row) {
    writeHead();
    put(row);
    if (form_.endsEveryRow || !row.ends_with('\n')) put(form_.lineEnd);
}

void RowWriter::write(const RowPlace& place) {
    writeHead();
    places_.check(place);
    makeRoomFor(place.byteCount);
    if (place.byteCount > memoryBytes_) {
        copyLarge(place);
    } else if (place.byteCount > 0) {
        if (buffer_.capacity() == 0) buffer_.reserve(memoryBytes_);
        rows_.push_back(
            {place.offset, place.byteCount, static_cast<std::uint32_t>(buffer_.size())});
        buffer_.resize(buffer_.size() + place.byteCount);
    }
    if (form_.endsEveryRow || places_.lacksLineEnd(place)) put(form_.lineEnd);
}

void RowWriter::writeText(std::string_view text) {
    writeHead();
    put(text);
}

void RowWriter::finish() {
    writeHead();
    writeHeld();
}

void RowWriter::writeHead() {
    if (headWritten_) return;
    headWritten_ = true;
    output_.write(reinterpret_cast<const Byte*>(form_.head.data()), form_.head.size());
}

void RowWriter::put(std::string_view text) {
    if (!rows_.empty()) makeRoomFor(text.size());
    if (rows_.empty()) {
        output_.write(reinterpret_cast<const Byte*>(text.data()), text.size());
    } else {
        buffer_.insert(buffer_.end(), text.begin(), text.end());
    }
}

void RowWriter::makeRoomFor(std::size_t byteCount) {
    // The vector of rows may have twice the room that it uses.
    const std::size_t held = buffer_.size() + 2 * sizeof(HeldRow) * (rows_.size() + 1);
    if (held + byteCount > memoryBytes_) writeHeld();
}

void RowWriter::copyLarge(RowPlace place) {
    span_.resize(kSpanBytesMax);
    while (place.byteCount > 0) {
        throwIfInterrupted();
        const auto piece = std::min<std::uint32_t>(place.byteCount, kSpanBytesMax);
        places_.readAt(place.offset, span_.data(), piece);
        output_.write(span_.data(), piece);
        place.offset += piece;
        place.byteCount -= piece;
    }
}

void RowWriter::writeHeld() {
    std::sort(rows_.begin(), rows_.end(),
              [](const HeldRow& left, const HeldRow& right) { return left.offset < right.offset; });
    for (std::size_t first = 0; first < rows_.size();)
        first += fetchSpan(first);
    output_.write(buffer_.data(), buffer_.size());
    rows_.clear();
    buffer_.clear();
}

std::size_t RowWriter::fetchSpan(std::size_t first) {
    throwIfInterrupted();
    const std::uint64_t begin = rows_[first].offset;
    const std::uint64_t inputEnd = places_.endOf(places_.indexOf(begin));
    std::uint64_t end = begin + rows_[first].byteCount;
    if (end - begin > kSpanBytesMax) {
        places_.readAt(begin, buffer_.data() + rows_[first].position, rows_[first].byteCount);
        return 1;
    }
    std::size_t next = first + 1;
    for (; next < rows_.size(); ++next) {
        const HeldRow& row = rows_[next];
        const std::uint64_t rowEnd = row.offset + row.byteCount;
        if (row.offset >= inputEnd || row.offset > end + kGapBytesMax ||
            rowEnd - begin > kSpanBytesMax) {
            break;
        }
        end = std::max(end, rowEnd);
    }
    span_.resize(kSpanBytesMax);
    places_.readAt(begin, span_.data(), static_cast<std::size_t>(end - begin));
    for (std::size_t i = first; i < next; ++i) {
        std::copy_n(span_.data() + (rows_[i].offset - begin), rows_[i].byteCount,
                    buffer_.data() + rows_[i].position);
    }
    return next - first;
}

}  // namespace tvsort::tools
