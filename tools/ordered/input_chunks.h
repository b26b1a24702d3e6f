// The inputs in pieces that several workers read side by side.
//
//     input     [ a,b | c,"d ⏎ e" | f,g ... ]
//     pieces    [ 1        ][ 2        ][ 3 ]
//
// A row belongs to the piece that it begins in. Where the first row of a piece begins is known for
// certain when the piece before it has been read to its end: a line end may stand in quotes. Until
// then a worker may guess, read on, and ask before anything comes of it:
//
//     worker 1   reads piece 1 to its end ........ 2 begins at 71
//     worker 2   guesses 71, reads piece 2 ...............        right: sorts it

#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "tools/formats/keyed_input.h"
#include "tools/ordered/workers.h"

namespace tvsort::tools {

struct InputChunk {
    std::size_t number;  // from 0, in the order of reading
    std::size_t inputIndex;
    std::uint64_t begin;
    std::uint64_t end;
    bool startsInput;
};

class InputChunks {
  public:
    InputChunks(const KeyedInput& input, std::uint64_t chunkBytes);

    // All of these may be called by several threads.

    std::optional<InputChunk> next();
    // Waits until it is certain.
    std::uint64_t firstRowOf(const InputChunk& chunk);
    // Waits until all that stands before it has been read, of other inputs too.
    void awaitRead(const InputChunk& chunk);
    // The chunk, whose own first row is certain, ends before the row that begins there.
    void end(const InputChunk& chunk, std::uint64_t nextRow);
    // Nobody is to wait any longer, or gets a chunk.
    void callOff();

  private:
    const KeyedInput& input_;
    std::uint64_t chunkBytes_;
    std::mutex mutex_;
    std::condition_variable known_;
    bool isOff_ = false;
    std::size_t number_ = 0;
    std::size_t inputIndex_ = 0;
    std::uint64_t begin_ = 0;                         // of the next one
    std::size_t readCount_ = 0;                       // of chunks, with all that stands before
    std::map<std::size_t, std::uint64_t> firstRows_;  // by number, of those that are not read
};

}  // namespace tvsort::tools
