#include "tools/formats/lines/line_keyed.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "host/host_error.h"
#include "tools/files/interrupt.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

}  // namespace

LineKeyedInput::LineKeyedInput(const host::KeyForm& form, std::vector<InputFile>& inputs,
                               std::size_t valueBytesMax)
    : inputs_(inputs), valueBytesMax_(valueBytesMax), places_(inputs), reader_(places_) {
    host::KeyForm chosen = form;
    if (form.type.name == host::kAutoType) guessType(chosen);
    keys_ = std::make_unique<host::OrderedKey>(chosen);
    restart();
}

void LineKeyedInput::guessType(host::KeyForm& form) {
    host::TypeGuess guess;
    for (restart(); inputIndex_ < inputs_.size();) {
        std::string_view line;
        std::uint64_t lineBytes = 0;
        while (nextLine(line, lineBytes)) {
            if (lineBytes > 0) guess.take(line);
        }
        inputIndex_ += 1;
        if (inputIndex_ < inputs_.size())
            window_ = std::make_unique<InputWindow>(inputs_[inputIndex_], kBufferBytes);
    }
    form.type = guess.chosen();
}

void LineKeyedInput::restart() {
    for (InputFile& input : inputs_)
        input.rewind();
    inputIndex_ = 0;
    offset_ = 0;
    window_ = std::make_unique<InputWindow>(inputs_[0], kBufferBytes);
}

bool LineKeyedInput::next(KeyedRow& row) {
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
    row.key = &key_;
    const std::string_view seen = keys_->isPlainText() ? line.substr(0, kKeyBytesHeld) : line;
    row.isKeyWhole = seen.size() == lineBytes;
    try {
        row.hasNull = encode(seen, key_);
    } catch (const host::HostError& error) {
        throw host::badUse(fmt::format("{}: {}", places_.nameOf(begin), error.what()));
    }
    if (!row.isKeyWhole) key_.resize(kKeyBytesHeld);
    return true;
}

bool LineKeyedInput::nextLine(std::string_view& line, std::uint64_t& lineBytes) {
    std::uint64_t passed = 0;  // bytes of a long line that are no longer in the window
    for (std::size_t searched = 0;;) {
        const std::string_view held = window_->bytes();
        const std::size_t found = held.find('\n', searched);
        const bool isFound = found != std::string_view::npos;
        searched = held.size();
        const std::size_t heldMax = keys_ != nullptr && !keys_->isPlainText()
                                        ? std::max(valueBytesMax_, kBufferBytes)
                                        : kBufferBytes / 2;
        if (!isFound && held.size() >= heldMax) {
            if (keys_ != nullptr && !keys_->isPlainText()) {
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

bool LineKeyedInput::encode(std::string_view line, host::KeyBytes& key) {
    key.clear();
    const bool isNull = line.empty() && !keys_->takesEmptyText();
    if (isNull) {
        keys_->appendNull(key);
    } else {
        keys_->append(line, key);
    }
    return isNull;
}

KeyPart LineKeyedInput::keyPart(const RowPlace& place, std::uint64_t from, std::size_t bytesMax,
                                host::KeyBytes& part) {
    if (keys_->isPlainText()) return textPart(place, from, bytesMax, part);
    host::KeyBytes key;
    const bool hasNull = encode(reader_.read(place), key);
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
        if (keys_->form().isDescending) host::complementFrom(0, encoded);
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

std::string LineKeyedInput::keysInWords() const {
    return keys_->form().type.text() + (keys_->form().isDescending ? " desc" : "");
}

}  // namespace tvsort::tools
