// The inputs of a sort as one range of bytes, in which each has its part.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "protocol/bytes.h"
#include "tools/files/input_file.h"
#include "tools/formats/row_place.h"

namespace tvsort::tools {

class InputPlaces {
  public:
    // Inputs, which are regular files, are needed as long as it is.
    explicit InputPlaces(const std::vector<InputFile>& inputs, char lineEnd = '\n');

    std::size_t inputCount() const { return inputs_.size(); }
    char lineEnd() const { return lineEnd_; }
    const InputFile& input(std::size_t index) const { return inputs_[index]; }
    // Of an input, and of all.
    std::uint64_t startOf(std::size_t index) const { return starts_[index]; }
    std::uint64_t endOf(std::size_t index) const { return starts_[index + 1]; }
    std::uint64_t end() const { return starts_.back(); }
    // Of the input that holds the byte.
    std::size_t indexOf(std::uint64_t offset) const;

    // A place that came back from a process; one that does not lie inside one input is
    // kProtocolBroken.
    void check(const RowPlace& place) const;
    void readAt(std::uint64_t offset, Byte* target, std::size_t byteCount) const;
    // The same where the input is known.
    void readOf(std::size_t index, std::uint64_t offset, Byte* target, std::size_t byteCount) const;
    // An input that has another size than it had is thrown: it was changed.
    void checkSize(std::size_t index) const;
    // Whether the row is the last of an input and lacks its line end.
    bool lacksLineEnd(const RowPlace& place) const;
    // "line 3 of b.txt".
    std::string nameOf(std::uint64_t offset) const;
    // In its input, from 1. Reads the input from its start.
    std::int64_t lineNumberOf(std::uint64_t offset) const;

  private:
    const std::vector<InputFile>& inputs_;
    char lineEnd_;
    std::vector<std::uint64_t> starts_;    // and the end of the last one
    std::vector<std::uint64_t> openEnds_;  // of inputs whose last byte ends no line
};

}  // namespace tvsort::tools
