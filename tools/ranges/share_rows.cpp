#include "tools/ranges/share_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "host/host_error.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kReadBytes = std::size_t{256} * 1024;
constexpr std::size_t kGuessBytes = std::size_t{64} * 1024;
// More than a splitter has.
constexpr std::size_t kKeyBytes = 4096;

bool readNumber(std::string_view text, std::uint64_t& number) {
    const char* const last = text.data() + text.size();
    const auto [stop, status] = std::from_chars(text.data(), last, number);
    return status == std::errc() && stop == last;
}

}  // namespace

ByteShare parseShare(const std::string& text) {
    ByteShare share;
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string_view end = std::string_view(text).substr(std::min(colon + 1, text.size()));
    const bool isOne = colon < text.size() &&
                       readNumber(std::string_view(text).substr(0, colon), share.begin) &&
                       (end.empty() || readNumber(end, share.end)) && share.begin <= share.end;
    if (isOne) return share;
    throw host::badUse(fmt::format(
        "--share {}: write BEGIN:END, two bytes of the input, or BEGIN: for all that follows",
        text));
}

ShareRows::ShareRows(const KeyedInput& input, const ByteShare& share, RowErrors& errors)
    : input_(input),
      share_(share),
      errors_(errors),
      reader_(input.reader(kKeyBytes)),
      window_(input.places(), std::max(input.rowBytesMax() + 1, 2 * kReadBytes)) {
    const std::uint64_t first = findFirstRow();
    begin_ = share.startsInput() ? 0 : first;
    if (share.startsInput()) line_ = input.places().lineNumberOf(first);
    window_.start(0, first);
}

std::uint64_t ShareRows::findFirstRow() {
    const std::uint64_t first = input_.firstRowOf(0);
    const std::uint64_t inputEnd = input_.places().end();
    if (share_.begin <= first) return first;
    if (share_.beginsRow || share_.begin >= inputEnd) return std::min(share_.begin, inputEnd);
    // A row begins at the first byte where a line ends right before it.
    for (window_.start(0, share_.begin - 1);;) {
        window_.readMore(kGuessBytes);
        const TextPart part = window_.rest();
        const std::size_t guess = reader_->guessStart(part);
        if (guess < part.bytes.size() || part.endsInput) return part.offset + guess;
        // The last byte may have ended a line.
        window_.start(0, part.offset + part.bytes.size() - 1);
    }
}

bool ShareRows::next(KeyedRow& row) {
    for (;;) {
        const TextPart rest = window_.rest();
        if (rest.offset >= share_.end) return false;
        const RowReader::Found found = reader_->next(rest, row);
        if (found.outcome == RowReader::Outcome::kNeedsMore) {
            window_.readOn();
            continue;
        }
        if (found.outcome == RowReader::Outcome::kEnd) {
            if (!rest.endsInput && window_.readMore(kReadBytes)) continue;
            return false;
        }
        if (!reader_->problem().empty()) takeProblem(rest.offset);
        if (found.byteCount <= rest.bytes.size()) {
            const std::string_view bytes = rest.bytes.substr(0, found.byteCount);
            line_ += std::count(bytes.begin(), bytes.end(), input_.places().lineEnd());
            window_.take(found.byteCount);
        } else {
            line_ += 1;  // such a row is a line
            window_.start(0, rest.offset + found.byteCount);
        }
        if (found.outcome == RowReader::Outcome::kRow) return true;
    }
}

void ShareRows::takeProblem(std::uint64_t offset) {
    const std::string& words = reader_->problem();
    if (problems_.size() < RowErrors::kNamedMax) problems_.push_back({line_, words});
    const bool endsCommand = !errors_.skips() && !errors_.keepsRows();
    errors_.take([&] {
        if (share_.startsInput()) return input_.lineName(0).of(line_) + words;
        return endsCommand ? input_.nameOf(offset) + words : words;
    });
}

}  // namespace tvsort::tools
