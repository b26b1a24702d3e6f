// What was kept in a spool file, value by value, as often as wanted.

#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "tools/files/spool_file.h"

namespace tvsort::tools {

// Appends a value of a plain type.
template <typename Value>
void writeValue(SpoolFile& file, const Value& value) {
    static_assert(std::has_unique_object_representations_v<Value>);
    file.write(reinterpret_cast<const Byte*>(&value), sizeof value);
}

class SpoolReader {
  public:
    explicit SpoolReader(SpoolFile& file) : input_(file.takeAsInput("a temporary file")) {}

    // False at the end.
    bool read(Byte* target, std::size_t byteCount) {
        while (byteCount > 0) {
            if (next_ == buffer_.size() && !fill()) return false;
            const std::size_t count = std::min(byteCount, buffer_.size() - next_);
            std::copy_n(buffer_.data() + next_, count, target);
            next_ += count;
            target += count;
            byteCount -= count;
        }
        return true;
    }
    template <typename Value>
    bool read(Value& value) {
        static_assert(std::has_unique_object_representations_v<Value>);
        return read(reinterpret_cast<Byte*>(&value), sizeof value);
    }
    void rewind() {
        input_.rewind();
        buffer_.clear();
        next_ = 0;
    }

  private:
    bool fill() {
        constexpr std::size_t kBufferBytes = std::size_t{32} * 1024;
        buffer_.resize(kBufferBytes);
        buffer_.resize(input_.read(buffer_.data(), buffer_.size()));
        next_ = 0;
        return !buffer_.empty();
    }

    InputFile input_;
    std::vector<Byte> buffer_;
    std::size_t next_ = 0;
};

}  // namespace tvsort::tools
