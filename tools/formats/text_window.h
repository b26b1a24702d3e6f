// A part of an input in memory, which grows at its end as somebody reads on, and is taken row by
// row from its front. What was taken stays where it is until room is made or another part begun, so
// that rows can be found there again.
//
//     held   [ taken rows ][ rest ][ room ]

#pragma once

#include <cstdint>
#include <string_view>

#include "tools/files/page_memory.h"
#include "tools/formats/input_places.h"

namespace tvsort::tools {

// Bytes of an input, from a place on.
struct TextPart {
    std::uint64_t offset;
    std::string_view bytes;
    bool endsInput;  // nothing follows them there
};

class TextWindow {
  public:
    TextWindow(const InputPlaces& places, std::size_t capacity)
        : places_(places), memory_(capacity) {}

    // Nothing is held; the first byte will be this one of the inputs, which lies in that input.
    void start(std::size_t inputIndex, std::uint64_t offset);
    // Up to so many more bytes at the end. False, where there is no room, or nothing left to read.
    bool readMore(std::size_t byteCount);
    // So much more behind the rest that a row of any length is read in a few steps; where there is
    // no room, in that of what was taken.
    void readOn();
    TextPart rest() const;
    void take(std::size_t byteCount) { taken_ += byteCount; }
    // Forgets what was taken. False where nothing was.
    bool makeRoom();

    bool isFull() const { return filled_ == memory_.size(); }
    TextPart held() const { return {offset_, {memory_.data(), filled_}, endsInput()}; }
    // With all that is held; a window without room stays.
    PageMemory giveMemory() { return std::move(memory_); }
    void takeMemory(PageMemory memory) { memory_ = std::move(memory); }
    std::size_t capacity() const { return memory_.size(); }

  private:
    bool endsInput() const { return offset_ + filled_ == inputEnd_; }

    const InputPlaces& places_;
    PageMemory memory_;
    std::size_t inputIndex_ = 0;
    std::uint64_t inputEnd_ = 0;
    std::uint64_t offset_ = 0;  // of the first byte that is held
    std::size_t filled_ = 0;
    std::size_t taken_ = 0;
};

}  // namespace tvsort::tools
