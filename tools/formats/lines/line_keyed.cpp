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

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

}  // namespace

LineKeyedInput::LineKeyedInput(Form form, std::vector<InputFile>& inputs, RowErrors& errors)
    : form_(std::move(form)),
      inputs_(inputs),
      errors_(errors),
      places_(inputs, form_.lineEnd),
      reader_(places_) {
    std::vector<RowKeyColumn> columns = form_.columns;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (!columns[i].name.empty()) ranges_.push_back(rangeOf(columns[i].name));
        columns[i].index = i;
    }
    guessTypes();
    for (std::size_t i = 0; i < columns.size(); ++i)
        columns[i].form = form_.columns[i].form;
    if (!isOrderedByFields() && columns.size() == 1) {
        host::OrderedKey key(columns[0].form);
        takesEmptyLines_ = key.takesEmptyText();
        if (key.isPlainText() && !form_.nullWord.has_value()) plainKey_.emplace(std::move(key));
    }
    if (!isPlainText()) keys_.emplace(columns, RowKeyRules{form_.nullWord, errors_.keepsRows()});
    restart();
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
    std::vector<host::TypeGuess> guesses(form_.columns.size());
    for (restart(); inputIndex_ < inputs_.size();) {
        std::string_view line;
        std::uint64_t lineBytes = 0;
        while (nextLine(line, lineBytes)) {
            cutFields(line);
            for (std::size_t i = 0; i < guesses.size(); ++i) {
                if (!fields_[i].isNull && fields_[i].text != form_.nullWord)
                    guesses[i].take(fields_[i].text);
            }
        }
        inputIndex_ += 1;
        if (inputIndex_ < inputs_.size())
            window_ = std::make_unique<InputWindow>(inputs_[inputIndex_], kBufferBytes);
    }
    for (std::size_t i = 0; i < guesses.size(); ++i) {
        if (isGuessed(form_.columns[i])) form_.columns[i].form.type = guesses[i].chosen();
    }
}

// A field per key.
void LineKeyedInput::cutFields(std::string_view line) {
    constexpr std::string_view kBlanks = " \t";
    fields_.clear();
    if (form_.indentation.has_value())
        line.remove_prefix(std::min(line.find_first_not_of(*form_.indentation), line.size()));
    if (!isOrderedByFields()) {
        fields_.push_back({line, line.empty() && !takesEmptyLines_});
        return;
    }
    words_.clear();
    for (std::size_t end = 0;;) {
        const std::size_t begin = line.find_first_not_of(kBlanks, end);
        if (begin == std::string_view::npos) break;
        end = std::min(line.find_first_of(kBlanks, begin), line.size());
        words_.push_back(line.substr(begin, end - begin));
    }
    for (const FieldRange& range : ranges_) {
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
}

void LineKeyedInput::restart() {
    for (InputFile& input : inputs_)
        input.rewind();
    errors_.restart();
    inputIndex_ = 0;
    offset_ = 0;
    window_ = std::make_unique<InputWindow>(inputs_[0], kBufferBytes);
}

bool LineKeyedInput::next(KeyedRow& row) {
    while (nextInInputs(row)) {
        if (encodeRow(row)) return true;
    }
    return false;
}

bool LineKeyedInput::nextInInputs(KeyedRow& row) {
    std::string_view line;
    std::uint64_t lineBytes = 0;
    while (!nextLine(line, lineBytes)) {
        if (inputIndex_ + 1 == inputs_.size()) return false;
        inputIndex_ += 1;
        offset_ = 0;
        window_ = std::make_unique<InputWindow>(inputs_[inputIndex_], kBufferBytes);
    }
    const std::uint64_t begin = places_.startOf(inputIndex_) + offset_;
    offset_ += lineBytes + 1;
    if (begin + lineBytes > places_.endOf(inputIndex_))
        throw changedWhileRead(inputs_[inputIndex_].displayName());
    if (lineBytes > std::numeric_limits<std::uint32_t>::max()) {
        throw host::badUse(fmt::format("{} has {} bytes, and a line can have {} at most",
                                       places_.nameOf(begin), lineBytes,
                                       std::numeric_limits<std::uint32_t>::max()));
    }
    row.place = {begin, static_cast<std::uint32_t>(lineBytes)};
    row.isHeld = line.size() == lineBytes;
    row.text = line;
    return true;
}

bool LineKeyedInput::encodeRow(KeyedRow& row) {
    const std::uint64_t begin = row.place.offset;
    const std::string_view seen = isPlainText() ? row.text.substr(0, kKeyBytesHeld) : row.text;
    row.key = &key_;
    row.isKeyWhole = seen.size() == row.place.byteCount;
    try {
        const RowKeys::Outcome outcome = encode(seen, key_);
        row.hasNull = outcome.hasNull;
        if (!outcome.problem.empty())
            errors_.take(fmt::format("{}: {}", places_.nameOf(begin), outcome.problem));
    } catch (const host::HostError& error) {
        errors_.take(fmt::format("{}: {}", places_.nameOf(begin), error.what()));
        return false;
    }
    if (!row.isKeyWhole) key_.resize(kKeyBytesHeld);
    return true;
}

bool LineKeyedInput::nextLine(std::string_view& line, std::uint64_t& lineBytes) {
    std::uint64_t passed = 0;  // bytes of a long line that are no longer in the window
    for (std::size_t searched = 0;;) {
        const std::string_view held = window_->bytes();
        const std::size_t found = held.find(form_.lineEnd, searched);
        const bool isFound = found != std::string_view::npos;
        searched = held.size();
        const std::size_t heldMax =
            keys_.has_value() ? std::max(form_.valueBytesMax, kBufferBytes) : kBufferBytes / 2;
        if (!isFound && held.size() >= heldMax) {
            if (keys_.has_value()) {
                throw host::badUse(fmt::format(
                    "{} has more than {} bytes, and a value of its type is read in one piece; "
                    "give more --memory",
                    places_.nameOf(places_.startOf(inputIndex_) + offset_), heldMax));
            }
            if (passed == 0) longLine_.assign(held.substr(0, kKeyBytesHeld));
            passed += held.size();
            window_->take(held.size());
            searched = 0;
        }
        if (!isFound && window_->readMore()) continue;
        if (!isFound && passed == 0 && window_->bytes().empty()) return false;
        const std::string_view rest = window_->bytes().substr(0, found);
        window_->take(isFound ? rest.size() + 1 : rest.size());
        lineBytes = passed + rest.size();
        line = passed == 0 ? rest : std::string_view(longLine_);
        return true;
    }
}

RowKeys::Outcome LineKeyedInput::encode(std::string_view line, host::KeyBytes& key) {
    if (isPlainText()) {
        key.clear();
        plainKey_->append(line, key);
        return {};
    }
    cutFields(line);
    return keys_->encode(fields_, key);
}

KeyPart LineKeyedInput::keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                                host::KeyBytes& part) {
    if (isPlainText()) return textPart(place, from, bytesMax, part);
    host::KeyBytes key;
    const bool hasNull = encode(reader_.read(place), key).hasNull;
    const std::size_t begin = std::min<std::uint64_t>(from, key.size());
    const std::size_t count = std::min(bytesMax, key.size() - begin);
    const auto first = key.begin() + static_cast<std::ptrdiff_t>(begin);
    part.assign(first, first + static_cast<std::ptrdiff_t>(count));
    return {begin + count == key.size(), hasNull};
}

// The key is the mark, then what each byte of the line makes, one or two bytes, then the end.
KeyPart LineKeyedInput::textPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
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
            place.byteCount - at.lineBytes, std::min(bytesMax + kKeyBytesHeld, kPieceBytes)));
        encoded.clear();
        host::appendTextBytes(reader_.read({place.offset + at.lineBytes, piece}), encoded);
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
