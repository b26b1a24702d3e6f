#include "tools/formats/csv/csv_output.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

// What lies between two rows is read along with them up to this size: it costs less than a call.
constexpr std::uint64_t kGapBytesMax = 8192;
constexpr std::size_t kSpanBytesMax = std::size_t{256} * 1024;
constexpr std::size_t kBufferBytesMax = std::size_t{1} << 30;

}  // namespace

CsvOutput::CsvOutput(Form form, const std::vector<InputFile>& inputs, std::size_t memoryBytes,
                     OutputFile& output)
    : form_(std::move(form)),
      inputs_(inputs),
      memoryBytes_(std::min(memoryBytes, kBufferBytesMax)),
      output_(output) {
    std::uint64_t start = 0;
    for (const InputFile& input : inputs_) {
        const auto byteCount = static_cast<std::uint64_t>(input.fileBytes().value_or(0));
        inputStarts_.push_back(start);
        start += byteCount;
        if (byteCount == 0) continue;
        Byte last = 0;
        input.readAt(static_cast<std::int64_t>(byteCount) - 1, &last, 1);
        if (last != '\n') openEnds_.push_back(start);
    }
    inputEnd_ = start;
}

void CsvOutput::writeRecords(const Byte* records, std::size_t recordCount) {
    writeHead();
    for (std::size_t i = 0; i < recordCount; ++i) {
        const Byte* const record = records + i * form_.record.recordLength();
        if (form_.record.carriesRows()) {
            const std::string_view row = form_.record.rowOf(record);
            form_.balance->comesBack(row.size());
            writeCarried(row);
        } else {
            hold(form_.record.rowPlaceOf(record));
        }
    }
}

void CsvOutput::writeText(std::string_view text) {
    writeHead();
    if (form_.record.carriesRows()) {
        output_.write(reinterpret_cast<const Byte*>(text.data()), text.size());
    } else {
        buffer_.insert(buffer_.end(), text.begin(), text.end());
    }
}

void CsvOutput::finish() {
    writeHead();
    writeHeld();
}

void CsvOutput::writeHead() {
    if (headWritten_) return;
    headWritten_ = true;
    output_.write(reinterpret_cast<const Byte*>(form_.head.data()), form_.head.size());
}

void CsvOutput::writeCarried(std::string_view row) {
    output_.write(reinterpret_cast<const Byte*>(row.data()), row.size());
    if (!row.ends_with('\n')) writeText(form_.lineEnd);
}

void CsvOutput::checkPlace(const RowPlace& place) const {
    if (place.offset < inputEnd_) {
        const std::size_t next = inputIndexOf(place.offset) + 1;
        const std::uint64_t end = next < inputStarts_.size() ? inputStarts_[next] : inputEnd_;
        if (place.byteCount <= end - place.offset) return;
    }
    throw host::brokenResult(fmt::format(
        "gave back a record with a row of {} bytes at byte {} of the inputs, where none can be",
        place.byteCount, place.offset));
}

void CsvOutput::hold(const RowPlace& place) {
    checkPlace(place);
    form_.balance->comesBack(place.byteCount);
    // The vector of rows may have twice the room that it uses.
    const std::size_t held = buffer_.size() + 2 * sizeof(HeldRow) * (rows_.size() + 1);
    if (held + place.byteCount > memoryBytes_) writeHeld();
    if (place.byteCount > memoryBytes_) {
        copyLarge(place);
    } else {
        if (buffer_.capacity() == 0) buffer_.reserve(memoryBytes_);
        rows_.push_back(
            {place.offset, place.byteCount, static_cast<std::uint32_t>(buffer_.size())});
        buffer_.resize(buffer_.size() + place.byteCount);
    }
    if (lacksLineEnd(place)) writeText(form_.lineEnd);
}

void CsvOutput::copyLarge(RowPlace place) {
    span_.resize(kSpanBytesMax);
    while (place.byteCount > 0) {
        const auto piece = std::min<std::uint32_t>(place.byteCount, kSpanBytesMax);
        readAt(place.offset, span_.data(), piece);
        output_.write(span_.data(), piece);
        place.offset += piece;
        place.byteCount -= piece;
    }
}

void CsvOutput::writeHeld() {
    std::sort(rows_.begin(), rows_.end(),
              [](const HeldRow& left, const HeldRow& right) { return left.offset < right.offset; });
    for (std::size_t first = 0; first < rows_.size();)
        first += fetchSpan(first);
    output_.write(buffer_.data(), buffer_.size());
    rows_.clear();
    buffer_.clear();
}

std::size_t CsvOutput::fetchSpan(std::size_t first) {
    throwIfInterrupted();
    const std::uint64_t begin = rows_[first].offset;
    const std::size_t input = inputIndexOf(begin);
    const std::uint64_t inputEnd =
        input + 1 < inputStarts_.size() ? inputStarts_[input + 1] : ~std::uint64_t{0};
    std::uint64_t end = begin + rows_[first].byteCount;
    if (end - begin > kSpanBytesMax) {
        readAt(begin, buffer_.data() + rows_[first].position, rows_[first].byteCount);
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
    readAt(begin, span_.data(), static_cast<std::size_t>(end - begin));
    for (std::size_t i = first; i < next; ++i) {
        std::copy_n(span_.data() + (rows_[i].offset - begin), rows_[i].byteCount,
                    buffer_.data() + rows_[i].position);
    }
    return next - first;
}

std::size_t CsvOutput::inputIndexOf(std::uint64_t offset) const {
    const auto next = std::upper_bound(inputStarts_.begin(), inputStarts_.end(), offset);
    return static_cast<std::size_t>(next - inputStarts_.begin()) - 1;
}

void CsvOutput::readAt(std::uint64_t offset, Byte* target, std::size_t byteCount) const {
    const std::size_t input = inputIndexOf(offset);
    inputs_[input].readAt(static_cast<std::int64_t>(offset - inputStarts_[input]), target,
                          byteCount);
}

bool CsvOutput::lacksLineEnd(const RowPlace& place) const {
    return std::find(openEnds_.begin(), openEnds_.end(), place.offset + place.byteCount) !=
           openEnds_.end();
}

}  // namespace tvsort::tools
