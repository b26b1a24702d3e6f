// The rows of a result, from the records of all parts one after the other.
//
//     all          every record
//     distinct     of records with equal keys the first
//     intersect    of records with equal keys the first, if it is of operand 1 and one of operand 2
//                  follows
//     except       the same, if none follows
//
// Equal keys stand together, and among them the rows as they were put, those of operand 1 first. So
// the first of them is held until it is known whether it is a row of the result.

#pragma once

#include <span>
#include <vector>

#include "host/c/handle.h"
#include "host/c/slot_work.h"

namespace tvsort::capi {

struct RecordShape {
    std::size_t keyBytes;
    std::size_t payloadOffset;
    std::size_t payloadBytes;
    std::size_t recordBytes;
};

inline constexpr std::size_t kRowNumberBytes = 4;

// The number that stands behind the key.
void storeRowNumber(Byte* target, std::int64_t number);
std::int64_t loadRowNumber(const Byte* source);

struct ResultRules {
    std::int32_t result;       // TVSORT_ALL ...
    std::int64_t limit;        // rows; 0: all
    std::int64_t rowCount;     // that were put
    std::int64_t operandRows;  // of operand 1; -1: there is no other
};

class RowResult {
  public:
    // `parts`: the results of the slots, in order.
    RowResult(const RecordShape& shape, const ResultRules& rules, std::vector<ResultReader> parts)
        : shape_(shape), rules_(rules), parts_(std::move(parts)) {}

    // As tvsort_rows_get has it. A record of a row that was not put is kProtocolBroken.
    std::size_t get(std::size_t rowsMax, Byte* payload, std::ptrdiff_t payloadStride,
                    std::int64_t* numbers, Heed& heed);

  private:
    // Where the next row goes.
    struct Target {
        Byte* payload;
        std::ptrdiff_t payloadStride;
        std::int64_t* numbers;
        std::size_t left;
    };

    bool nextRecords();
    void pass(std::size_t recordCount) {
        unread_ = unread_.subspan(recordCount * shape_.recordBytes);
    }
    void emit(const Byte* record, Target& target);
    void emitAll(Target& target, Heed& heed);
    void emitChosen(Target& target, Heed& heed);
    void emitHeld(Target& target);
    bool followsHeld(const Byte* record) const;

    RecordShape shape_;
    ResultRules rules_;
    std::vector<ResultReader> parts_;
    std::size_t partIndex_ = 0;
    std::span<const Byte> unread_;
    std::int64_t given_ = 0;
    std::vector<Byte> held_;  // the first record of those that are equal
    bool mayCount_ = false;   // it may yet be a row of the result
};

}  // namespace tvsort::capi
