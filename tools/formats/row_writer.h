// Rows and lines on their way out, each as it stood in its input, and text between them.
//
// A row whose bytes are at hand is written at once. One that was left in its input is fetched:
// reading one at a time would cost a call, and on a disk a movement, for each, so places are
// collected until their rows fill the memory that there is; then the rows are read in the order of
// the inputs, neighbours and what lies between them at once, and written in the order of the
// result:
//
//     result      place 70  "2,"  place 10  place 40        text may stand between rows
//     held        [row.....][2,][row.....][row....]         a range of the buffer for each
//     read        10, 40, 70
//     written     the buffer

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/bytes.h"
#include "tools/files/output_file.h"
#include "tools/formats/input_places.h"

namespace tvsort::tools {

class RowWriter {
  public:
    struct Form {
        std::string head;  // written before everything else
        // Behind every row, or only behind one that lacks its line end.
        std::string lineEnd = "\n";
        bool endsEveryRow = false;
    };

    // Holds about `memoryBytes` at most.
    RowWriter(Form form, const std::vector<InputFile>& inputs, std::size_t memoryBytes,
              OutputFile& output);

    const InputPlaces& places() const { return places_; }
    const Form& form() const { return form_; }
    // For whole rows that somebody else has put together, behind what was written here.
    OutputFile& startedOutput() {
        finish();
        return output_;
    }

    void write(std::string_view row);
    // One that does not lie inside one input is kProtocolBroken.
    void write(const RowPlace& place);
    void writeText(std::string_view text);
    // Writes what is held back.
    void finish();

  private:
    // A row that is to stand in the buffer from `position` on.
    struct HeldRow {
        std::uint64_t offset;  // in the inputs
        std::uint32_t byteCount;
        std::uint32_t position;
    };

    void writeHead();
    void put(std::string_view text);
    void makeRoomFor(std::size_t byteCount);
    void copyLarge(RowPlace place);
    void writeHeld();
    // Rows from `first` on that are read at once; answers how many.
    std::size_t fetchSpan(std::size_t first);

    Form form_;
    InputPlaces places_;
    std::size_t memoryBytes_;
    bool headWritten_ = false;
    OutputFile& output_;
    std::vector<HeldRow> rows_;
    std::vector<Byte> buffer_;
    std::vector<Byte> span_;
};

}  // namespace tvsort::tools
