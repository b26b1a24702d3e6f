#include "tools/formats/keyed_input.h"

#include <algorithm>

namespace tvsort::tools {

namespace {

constexpr std::uint64_t kPlaceWindowBytes = std::uint64_t{16} * 1024;
constexpr std::size_t kReadBytes = std::size_t{256} * 1024;
constexpr std::size_t kStreamKeyBytes = 4096;

}  // namespace

std::string KeyedInput::nameOf(std::uint64_t offset) const {
    return lineName(places().indexOf(offset)).of(places().lineNumberOf(offset));
}

RowStream::RowStream(const KeyedInput& input, RowErrors& errors)
    : input_(input),
      errors_(errors),
      reader_(input.reader(kStreamKeyBytes)),
      window_(input.places(), std::max(input.rowBytesMax() + 1, 2 * kReadBytes)) {
    if (input.places().inputCount() > 0) window_.start(0, input.firstRowOf(0));
}

bool RowStream::next(KeyedRow& row) {
    for (;;) {
        const TextPart rest = window_.rest();
        const RowReader::Found found = reader_->next(rest, row);
        if (found.outcome == RowReader::Outcome::kNeedsMore) {
            window_.readOn();
            continue;
        }
        if (found.outcome == RowReader::Outcome::kEnd) {
            if (!rest.endsInput && window_.readMore(kReadBytes)) continue;
            inputIndex_ += 1;
            if (inputIndex_ >= input_.places().inputCount()) return false;
            window_.start(inputIndex_, input_.firstRowOf(inputIndex_));
            continue;
        }
        if (found.byteCount <= rest.bytes.size()) {
            window_.take(found.byteCount);
        } else {
            window_.start(inputIndex_, rest.offset + found.byteCount);
        }
        if (!reader_->problem().empty())
            errors_.take([&] { return input_.nameOf(rest.offset) + reader_->problem(); });
        if (found.outcome == RowReader::Outcome::kRow) return true;
    }
}

std::string_view PlaceReader::read(const RowPlace& place) {
    if (place.offset >= held_.offset &&
        place.offset + place.byteCount <= held_.offset + held_.bytes.size()) {
        return held_.bytes.substr(place.offset - held_.offset, place.byteCount);
    }
    if (place.offset < begin_ || place.offset + place.byteCount > begin_ + window_.size()) {
        places_.check(place);
        const std::uint64_t inputEnd = places_.endOf(places_.indexOf(place.offset));
        const std::uint64_t wanted = std::max<std::uint64_t>(place.byteCount, kPlaceWindowBytes);
        window_.resize(std::min(wanted, inputEnd - place.offset));
        begin_ = place.offset;
        places_.readAt(begin_, window_.data(), window_.size());
    }
    return {reinterpret_cast<const char*>(window_.data()) + (place.offset - begin_),
            place.byteCount};
}

bool copyPart(const host::KeyBytes& key, std::uint64_t from, std::size_t bytesMax,
              host::KeyBytes& part) {
    const std::size_t begin = std::min<std::uint64_t>(from, key.size());
    const std::size_t count = std::min(bytesMax, key.size() - begin);
    const auto first = key.begin() + static_cast<std::ptrdiff_t>(begin);
    part.assign(first, first + static_cast<std::ptrdiff_t>(count));
    return begin + count == key.size();
}

}  // namespace tvsort::tools
