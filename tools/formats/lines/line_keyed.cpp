#include "tools/formats/lines/line_keyed.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kValueBytesMin = std::size_t{256} * 1024;
constexpr std::size_t kTextBytesMax = std::size_t{128} * 1024;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
// More than was asked for is made at a time.
constexpr std::size_t kKeyBytesBeyond = 4096;

}  // namespace

class LineReader : public RowReader {
  public:
    LineReader(const LineKeyedInput& input, std::size_t keyBytes)
        : input_(input), keyBytes_(keyBytes), places_(input.places_) {
        std::vector<RowKeyColumn> columns = input.form_.columns;
        for (std::size_t i = 0; i < columns.size(); ++i)
            columns[i].index = i;
        if (input.isPlainText_) {
            plainKey_.emplace(columns[0].form);
        } else {
            keys_.emplace(columns, RowKeyRules{input.form_.nullWord, input.form_.keepsUnreadable});
        }
    }

    Found next(const TextPart& part, KeyedRow& row) override;
    const std::string& problem() const override { return problem_; }
    std::size_t guessStart(const TextPart& part) override {
        const std::size_t found = part.bytes.find(input_.form_.lineEnd);
        return found == std::string_view::npos ? part.bytes.size() : found + 1;
    }
    void hold(const TextPart& part) override { places_.hold(part); }
    void keyOf(std::string_view text, host::KeyBytes& key) override { encode(text, key); }
    KeyPart keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                    host::KeyBytes& part) override;
    // A field per key.
    std::span<const RowField> cutFields(std::string_view line);

  private:
    // A long line's key and line, as far as somebody has come.
    struct Cursor {
        std::uint64_t offset = ~std::uint64_t{0};
        std::uint64_t keyBytes = 0;
        std::uint64_t lineBytes = 0;
    };

    bool encodeRow(std::uint64_t offset, std::string_view line, std::uint64_t lineBytes,
                   KeyedRow& row);
    RowKeys::Outcome encode(std::string_view line, host::KeyBytes& key);
    std::uint64_t endOfLong(const TextPart& part);
    KeyPart textPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                     host::KeyBytes& part);

    const LineKeyedInput& input_;
    std::size_t keyBytes_;
    PlaceReader places_;
    std::optional<host::OrderedKey> plainKey_;  // of whole lines by their bytes
    std::optional<RowKeys> keys_;               // else
    std::vector<RowField> fields_;
    std::vector<std::string_view> words_;
    host::KeyBytes key_;
    std::string problem_;
    Cursor cursors_[2];
    std::size_t oldestCursor_ = 0;
};

LineKeyedInput::LineKeyedInput(Form form, const std::vector<InputFile>& inputs)
    : form_(std::move(form)), places_(inputs, form_.lineEnd) {
    for (const RowKeyColumn& column : form_.columns) {
        if (!column.name.empty()) ranges_.push_back(rangeOf(column.name));
    }
    guessTypes();
    if (!ranges_.empty() || form_.columns.size() != 1) return;
    const host::OrderedKey key(form_.columns[0].form);
    takesEmptyLines_ = key.takesEmptyText();
    isPlainText_ = key.isPlainText() && !form_.nullWord.has_value();
}

std::unique_ptr<RowReader> LineKeyedInput::reader(std::size_t keyBytes) const {
    return std::make_unique<LineReader>(*this, keyBytes);
}

std::size_t LineKeyedInput::rowBytesMax() const {
    return isPlainText_ ? kTextBytesMax : std::max(form_.valueBytesMax, kValueBytesMin);
}

LineKeyedInput::FieldRange LineKeyedInput::rangeOf(const std::string& name) {
    const std::size_t dash = std::min(name.find('-'), name.size());
    const auto number = [&](std::size_t begin, std::size_t end) {
        std::size_t value = 0;
        const char* const last = name.data() + end;
        const auto [stop, status] = std::from_chars(name.data() + begin, last, value);
        if (status == std::errc() && stop == last && value > 0) return value - 1;
        throw host::badUse(fmt::format(
            "--key {}: fields have numbers from 1; write one, or a range such as 2-4 or 2-", name));
    };
    FieldRange range = {number(0, dash), 0};
    range.last = range.first;
    if (dash + 1 == name.size()) range.last = std::numeric_limits<std::size_t>::max();
    if (dash + 1 < name.size()) range.last = number(dash + 1, name.size());
    return range;
}

void LineKeyedInput::guessTypes() {
    const auto isGuessed = [](const RowKeyColumn& column) {
        return column.form.type.name == host::kAutoType;
    };
    if (std::none_of(form_.columns.begin(), form_.columns.end(), isGuessed)) return;
    // The lines are the same whatever their types are.
    std::vector<RowKeyColumn> wanted = form_.columns;
    for (RowKeyColumn& column : form_.columns)
        column.form.type.name = "text";
    LineReader reader(*this, 0);
    std::vector<host::TypeGuess> guesses(wanted.size());
    TextWindow window(places_, rowBytesMax() + 1);
    for (std::size_t input = 0; input < places_.inputCount(); ++input) {
        window.start(input, places_.startOf(input));
        for (;;) {
            const TextPart rest = window.rest();
            const std::size_t found = rest.bytes.find(form_.lineEnd);
            const bool isWhole = found != std::string_view::npos || rest.endsInput;
            if (!isWhole && !window.isFull()) {
                window.readMore(kValueBytesMin);
                continue;
            }
            if (!isWhole && window.makeRoom()) continue;
            if (rest.bytes.empty()) break;
            const std::string_view line = rest.bytes.substr(0, found);
            const auto fields = reader.cutFields(line);
            for (std::size_t i = 0; i < guesses.size(); ++i) {
                if (!fields[i].isNull && fields[i].text != form_.nullWord)
                    guesses[i].take(fields[i].text);
            }
            window.take(std::min(line.size() + 1, rest.bytes.size()));
        }
    }
    for (std::size_t i = 0; i < guesses.size(); ++i) {
        if (isGuessed(wanted[i])) wanted[i].form.type = guesses[i].chosen();
    }
    form_.columns = wanted;
}

RowReader::Found LineReader::next(const TextPart& part, KeyedRow& row) {
    problem_.clear();
    const std::size_t found = part.bytes.find(input_.form_.lineEnd);
    std::uint64_t lineBytes = found;
    std::uint64_t byteCount = found + 1;
    if (found == std::string_view::npos) {
        if (part.bytes.empty() && part.endsInput) return {Outcome::kEnd, 0};
        if (!part.endsInput && part.bytes.size() < input_.rowBytesMax())
            return {Outcome::kNeedsMore, 0};
        lineBytes = part.endsInput ? part.bytes.size() : endOfLong(part);
        const std::uint64_t inputEnd = input_.places_.endOf(input_.places_.indexOf(part.offset));
        byteCount = std::min(lineBytes + 1, inputEnd - part.offset);
    }
    const std::string_view line =
        part.bytes.substr(0, std::min<std::uint64_t>(lineBytes, part.bytes.size()));
    const bool isReadable = encodeRow(part.offset, line, lineBytes, row);
    return {isReadable ? Outcome::kRow : Outcome::kUnreadable, byteCount};
}

std::uint64_t LineReader::endOfLong(const TextPart& part) {
    if (!plainKey_.has_value()) {
        throw host::badUse(
            fmt::format("{} has more than {} bytes, and a value of its type is read in one piece; "
                        "give more --memory",
                        input_.nameOf(part.offset), part.bytes.size()));
    }
    const std::uint64_t inputEnd = input_.places_.endOf(input_.places_.indexOf(part.offset));
    for (std::uint64_t at = part.offset + part.bytes.size(); at < inputEnd;) {
        throwIfInterrupted();
        const auto count =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(inputEnd - at, kPieceBytes));
        const std::size_t found = places_.read({at, count}).find(input_.form_.lineEnd);
        if (found != std::string_view::npos) return at + found - part.offset;
        at += count;
    }
    return inputEnd - part.offset;
}

bool LineReader::encodeRow(std::uint64_t offset, std::string_view line, std::uint64_t lineBytes,
                           KeyedRow& row) {
    if (lineBytes > std::numeric_limits<std::uint32_t>::max()) {
        throw host::badUse(fmt::format("{} has {} bytes, and a line can have {} at most",
                                       input_.nameOf(offset), lineBytes,
                                       std::numeric_limits<std::uint32_t>::max()));
    }
    const std::string_view seen = plainKey_.has_value() ? line.substr(0, keyBytes_) : line;
    row.place = {offset, static_cast<std::uint32_t>(lineBytes)};
    row.isHeld = line.size() == lineBytes;
    row.text = line;
    row.key = &key_;
    row.isKeyWhole = seen.size() == lineBytes;
    row.isMalformed = false;
    try {
        const RowKeys::Outcome outcome = encode(seen, key_);
        row.hasNull = outcome.hasNull;
        if (!outcome.problem.empty()) problem_ = ": " + outcome.problem;
    } catch (const host::HostError& error) {
        problem_ = fmt::format(": {}", error.what());
        return false;
    }
    // Without the end, where the line does not end there.
    if (!row.isKeyWhole) key_.resize(keyBytes_);
    return true;
}

std::span<const RowField> LineReader::cutFields(std::string_view line) {
    constexpr std::string_view kBlanks = " \t";
    fields_.clear();
    if (const auto indentation = input_.form_.indentation; indentation.has_value())
        line.remove_prefix(std::min(line.find_first_not_of(*indentation), line.size()));
    if (input_.ranges_.empty()) {
        fields_.push_back({line, line.empty() && !input_.takesEmptyLines_});
        return fields_;
    }
    words_.clear();
    for (std::size_t end = 0;;) {
        const std::size_t begin = line.find_first_not_of(kBlanks, end);
        if (begin == std::string_view::npos) break;
        end = std::min(line.find_first_of(kBlanks, begin), line.size());
        words_.push_back(line.substr(begin, end - begin));
    }
    for (const auto& range : input_.ranges_) {
        if (range.first >= words_.size()) {
            fields_.push_back({{}, true});
            continue;
        }
        const std::string_view first = words_[range.first];
        const std::string_view last =
            words_[std::max(range.first, std::min(range.last, words_.size() - 1))];
        fields_.push_back(
            {{first.data(), static_cast<std::size_t>(last.data() + last.size() - first.data())},
             false});
    }
    return fields_;
}

RowKeys::Outcome LineReader::encode(std::string_view line, host::KeyBytes& key) {
    if (plainKey_.has_value()) {
        key.clear();
        plainKey_->append(line, key);
        return {};
    }
    return keys_->encode(cutFields(line), key);
}

KeyPart LineReader::keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                            host::KeyBytes& part) {
    if (plainKey_.has_value()) return textPart(place, from, bytesMax, part);
    const bool hasNull = encode(places_.read(place), key_).hasNull;
    return {copyPart(key_, from, bytesMax, part), hasNull};
}

// The key is the mark, then what each byte of the line makes, one or two bytes, then the end.
KeyPart LineReader::textPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                             host::KeyBytes& part) {
    Cursor at = {place.offset, 1, 0};
    for (const Cursor& cursor : cursors_) {
        if (cursor.offset == place.offset && cursor.keyBytes <= from &&
            cursor.keyBytes > at.keyBytes)
            at = cursor;
    }
    part.clear();
    if (from == 0) part.push_back(host::kValueMark);
    host::KeyBytes encoded;
    bool isWhole = false;
    while (!isWhole && part.size() < bytesMax) {
        throwIfInterrupted();
        const auto piece = static_cast<std::uint32_t>(std::min<std::uint64_t>(
            place.byteCount - at.lineBytes, std::min(bytesMax + kKeyBytesBeyond, kPieceBytes)));
        encoded.clear();
        host::appendTextBytes(places_.read({place.offset + at.lineBytes, piece}), encoded);
        isWhole = at.lineBytes + piece == place.byteCount;
        if (isWhole) encoded.push_back(host::kTextEnd);
        if (plainKey_->form().isDescending) host::complementFrom(0, encoded);
        const std::size_t skipped =
            std::min<std::uint64_t>(from > at.keyBytes ? from - at.keyBytes : 0, encoded.size());
        const std::size_t taken = std::min(bytesMax - part.size(), encoded.size() - skipped);
        const auto first = encoded.begin() + static_cast<std::ptrdiff_t>(skipped);
        part.insert(part.end(), first, first + static_cast<std::ptrdiff_t>(taken));
        if (isWhole) isWhole = skipped + taken == encoded.size();
        if (skipped + taken < encoded.size()) break;
        at.keyBytes += encoded.size();
        at.lineBytes += piece;
    }
    if (!isWhole) {
        cursors_[oldestCursor_] = at;
        oldestCursor_ = 1 - oldestCursor_;
    }
    return {isWhole, false};
}

}  // namespace tvsort::tools
