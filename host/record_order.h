// Whether two neighbours of a result stand in the order that a request asks for.
//
// This is a second, plain definition of the order, written from the meaning of the keys
// (protocol/data_type.h) and sharing no code with the process's comparator: what sorts and
// what checks are not to make the same mistake. It takes its time.
//
// Ascending floating-point keys compare with a tolerance in the process, so their order is not
// transitive: two neighbours that the sort never compared with one another, only with a pivot
// between them, may stand up to twice the tolerance apart the wrong way round, and no later key of
// theirs can be judged then. Such a pair passes.
//
// Keys compare without a collation table. Geometry keys cannot be judged here.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/request_builder.h"
#include "protocol/bytes.h"
#include "protocol/messages.h"

namespace tvsort::host {

class RecordOrder {
  public:
    // The keys, null indicators and weight tables of the request, its keys taken in the order in
    // which they were added. A key that cannot be judged is bad use.
    explicit RecordOrder(const RequestBuilder& request);

    // Whether `next` may stand right behind `previous`. A key value that breaks the rules of its
    // type (a stated length above the key's, an invalid decimal) is thrown as bad use.
    bool mayFollow(const Byte* previous, const Byte* next) const;

    // How two values of a key stand to one another, in ascending sense.
    enum class Verdict : std::int8_t { kBefore, kEqual, kAfter, kUndecided };
    struct Key {
        KeyDescriptor descriptor;
        bool ascending;
        std::optional<std::array<std::uint8_t, 256>> weights;
    };

  private:
    Verdict compareKey(std::size_t keyIndex, const Byte* left, const Byte* right) const;

    std::vector<Key> keys_;
    std::optional<std::uint16_t> nullIndicatorsOffset_;
};

}  // namespace tvsort::host
