#include "tools/files/spool.h"

#include <vector>

#include "tools/files/spool_file.h"
#include "tools/formats/lines/line_input.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{256} * 1024;

}  // namespace

InputFile makeRereadable(InputFile input, const std::filesystem::path& tempDirectory) {
    if (input.fileBytes().has_value()) return input;
    SpoolFile copy(tempDirectory);
    std::vector<Byte> piece(kPieceBytes);
    while (const std::size_t read = input.read(piece.data(), piece.size())) {
        copy.write(piece.data(), read);
    }
    return copy.takeAsInput(input.displayName());
}

LongestLine findLongestLine(InputFile& input) {
    LongestLine longest;
    LineInput lines(input);
    for (std::string_view line; lines.next(line);) {
        if (line.size() > longest.bytes || longest.lineNumber == 0) {
            longest.bytes = line.size();
            longest.lineNumber = lines.lineNumber();
        }
    }
    longest.lineCount = lines.lineNumber();
    input.rewind();
    return longest;
}

}  // namespace tvsort::tools
