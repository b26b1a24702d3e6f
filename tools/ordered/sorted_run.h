// Rows in the order of their whole keys, made of one piece of the inputs: in memory, or in a file.
//
//     in memory   text      [ row row row ... ]   as it was read
//                 records   [ first bytes of the key, place, length ] ...  in order (key_record.h)
//
//     in a file   [ head, key, place, row ] ...   in order
//
//                 head     bytes of the row x 8, and bits: 4 the row is held, 2 its key goes on, 1
//                          one of its keys is null; seven bits a byte, the lowest first, bit 7 says
//                          that more follow (LEB128, as in DWARF)
//                 key      a byte that counts, and the first bytes of the key; not where they are
//                          easily made of the row
//                 place    6 bytes, of a row that is not held, or where places are wanted
//                 row      where it is held
//
// Marks, some kilobytes apart, tell where in a run a key would be.

#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "tools/files/page_memory.h"
#include "tools/files/spool_file.h"
#include "tools/formats/keyed_input.h"
#include "tools/ordered/key_record.h"

namespace tvsort::tools {

// What all runs of a sort have in common.
struct RunForm {
    KeyRecord record;
    bool keepsKeys;           // in files
    bool keepsPlaces;         // likewise, of rows that are held
    std::uint64_t markBytes;  // between two marks in a file
};

// A longer row stays in its input.
inline constexpr std::uint32_t kHeldBytesMax = 64 * 1024;

struct SortedRun {
    std::uint64_t rowCount = 0;
    std::uint64_t textBytes = 0;  // of its rows
    // In memory.
    PageMemory text;
    std::uint64_t textOffset = 0;
    PageMemory records;
    // In a file, which is needed as long.
    const SpoolFile* file = nullptr;
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::vector<Byte> markKeys;  // first bytes, one behind the other
    std::vector<std::uint64_t> markOffsets;

    const Byte* recordAt(std::uint64_t index, std::size_t recordLength) const {
        return reinterpret_cast<const Byte*>(records.data()) + index * recordLength;
    }
};

// A row of a run, or on its way there.
struct RunRow {
    const Byte* key = nullptr;  // first bytes, filled up with zeros
    RowPlace place = {};
    bool keyGoesOn = false;
    bool hasNull = false;
    bool isHeld = false;
    std::string_view text;  // where it is held
};

// Appends a run to a file.
class RunFileWriter {
  public:
    RunFileWriter(const RunForm& form, SpoolFile& file);
    void write(const RunRow& row);
    SortedRun finish();

  private:
    const RunForm& form_;
    SpoolFile& file_;
    SortedRun run_;
    std::uint64_t nextMark_;
    std::vector<Byte> head_;
};

// Reads the rows of a run whose first key bytes are `from` or greater, and less than `to`.
class RunCursor {
  public:
    struct Range {
        std::string_view from;  // empty: from the beginning
        std::string_view to;    // empty: to the end
    };

    // `reader` makes keys where the run has none. All that is passed is needed as long as it reads.
    RunCursor(const RunForm& form, const SortedRun& run, RowReader& reader,
              std::size_t bufferBytes);

    // Before the first row of the range, whose words are needed until another one.
    void start(const Range& range);
    // Goes to the next row. False behind the last one.
    bool next();
    // Good until the next call.
    const RunRow& row() const { return row_; }
    // The first eight bytes of the key as a number.
    std::uint64_t keyHead() const { return keyHead_; }
    // The whole key of a row that is held.
    const host::KeyBytes& wholeKey();

  private:
    bool nextInMemory();
    bool nextInFile();
    void seekInFile(std::string_view from);
    // The first mark whose key is not less.
    std::size_t markFor(std::string_view key) const;
    // So many bytes at least, unless the run ends.
    void fill(std::size_t byteCount);
    void takeKey();

    const RunForm& form_;
    const SortedRun& run_;
    RowReader& reader_;
    std::string_view to_;
    RunRow row_;
    std::uint64_t keyHead_ = 0;
    host::KeyBytes wholeKey_;
    bool knowsWholeKey_ = false;
    // In memory.
    std::uint64_t index_ = 0;
    std::uint64_t endIndex_ = 0;
    // In a file.
    std::size_t bufferBytes_;
    std::uint64_t offset_ = 0;  // behind the buffer
    std::uint64_t end_ = 0;     // no row that is wanted begins there
    std::vector<Byte> buffer_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    std::vector<Byte> key_;
    bool isPending_ = false;  // the row was read already
};

// The first of a run's records in memory whose key bytes are not less.
std::uint64_t lowerBound(const RunForm& form, const SortedRun& run, std::string_view key);

}  // namespace tvsort::tools
