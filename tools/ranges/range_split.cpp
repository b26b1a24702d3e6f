#include "tools/ranges/range_split.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "host/host_error.h"
#include "tools/files/interrupt.h"
#include "tools/ranges/key_sample.h"

namespace tvsort::tools {

namespace {

// Of a row that is not at hand, on its way out.
constexpr std::size_t kFetchBytes = std::size_t{64} * 1024;
constexpr std::size_t kReadBytes = std::size_t{64} * 1024;
constexpr std::size_t kFilesBeside = 64;

// One file for a range. It counts what it is given.
class PieceFile {
  public:
    PieceFile(const std::string& name, RowWriter::Form form, const RangeInput& input)
        : output_(name), writer_(std::move(form), input.files(), kFetchBytes, output_) {}

    void write(const KeyedRow& row) {
        if (row.isHeld) {
            writer_.write(row.text);
        } else {
            writer_.write(row.place);
        }
        const RowWriter::Form& form = writer_.form();
        const bool isEnded = form.endsEveryRow || writer_.places().lacksLineEnd(row.place);
        piece_.rowCount += 1;
        piece_.byteCount += row.place.byteCount + (isEnded ? form.lineEnd.size() : 0);
    }

    RangePiece finish() {
        writer_.finish();
        output_.finish();
        return piece_;
    }

  private:
    OutputFile output_;
    RowWriter writer_;
    RangePiece piece_;
};

// As many as the system lets a process have without asking.
void allowFiles(std::size_t fileCount) {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= fileCount) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, fileCount);
    setrlimit(RLIMIT_NOFILE, &limit);
}

int digitOf(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

// Empty where the text is no key.
host::KeyBytes keyIn(std::string_view text) {
    host::KeyBytes key;
    if (text.size() % 2 != 0) return key;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = digitOf(text[i]);
        const int low = digitOf(text[i + 1]);
        if (high < 0 || low < 0) return {};
        key.push_back(static_cast<Byte>(high * 16 + low));
    }
    return key;
}

std::string contentOf(const std::string& name) {
    InputFile file(name);
    std::string content;
    for (std::size_t filled = 0;;) {
        content.resize(filled + kReadBytes);
        filled += file.read(reinterpret_cast<Byte*>(content.data()) + filled, kReadBytes);
        if (filled == content.size()) continue;
        content.resize(filled);
        return content;
    }
}

}  // namespace

std::vector<host::KeyBytes> readSplitters(const std::string& name) {
    const std::string content = contentOf(name);
    std::vector<host::KeyBytes> splitters;
    for (std::string_view rest = content; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        host::KeyBytes key = keyIn(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const bool ascends = splitters.empty() || splitters.back() < key;
        // A splitter may be the key that follows on one of a sample.
        if (key.empty() || !ascends || key.size() > kSampleKeyBytesMax + 1) {
            throw host::badUse(fmt::format(
                "line {} of {} is no splitter: keys of up to {} bytes in hexadecimal, in small "
                "letters, each greater than the one before it, one on a line",
                splitters.size() + 1, name, kSampleKeyBytesMax + 1));
        }
        splitters.push_back(std::move(key));
    }
    if (splitters.size() >= kRangesMax) {
        throw host::badUse(fmt::format("{} makes {} ranges, and {} are possible at once", name,
                                       splitters.size() + 1, kRangesMax));
    }
    return splitters;
}

std::size_t rangeOf(const host::KeyBytes& key, const std::vector<host::KeyBytes>& splitters) {
    const auto precedes = [](const host::KeyBytes& left, const host::KeyBytes& right) {
        const int order =
            std::memcmp(left.data(), right.data(), std::min(left.size(), right.size()));
        return order < 0 || (order == 0 && left.size() < right.size());
    };
    const auto above = std::upper_bound(splitters.begin(), splitters.end(), key, precedes);
    return static_cast<std::size_t>(above - splitters.begin());
}

std::vector<RangePiece> splitRanges(const RangeInput& input, ShareRows& rows,
                                    const std::vector<host::KeyBytes>& splitters,
                                    const std::string& prefix, const std::string& lineEnd) {
    RowWriter::Form form = input.form();
    form.head.clear();
    if (!lineEnd.empty()) form.lineEnd = lineEnd;
    const std::size_t rangeCount = splitters.size() + 1;
    allowFiles(2 * rangeCount + kFilesBeside);
    std::vector<std::unique_ptr<PieceFile>> pieces;
    for (std::size_t i = 0; i < rangeCount; ++i) {
        pieces.push_back(
            std::make_unique<PieceFile>(fmt::format("{}{:05}", prefix, i), form, input));
    }
    for (KeyedRow row; rows.next(row);) {
        throwIfInterrupted();
        pieces[rangeOf(*row.key, splitters)]->write(row);
    }
    std::vector<RangePiece> written;
    for (const auto& piece : pieces)
        written.push_back(piece->finish());
    return written;
}

}  // namespace tvsort::tools
