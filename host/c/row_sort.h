// One sort of rows through the slots of a server (include/tvsort.h, tvsort_rows).
//
//     add columns -> [ sample ] -> put ... -> sort -> get ...
//
//     one slot      rows -> records -> slot 1 -> result
//
//     several       rows -> records -> by key range -> slot 1 -> first part of the result
//                                                   -> slot 2 -> the next part
//                                                   -> ...
//
// Records are those of host/c/key_encoder.h. The process sorts them by the key alone where it will
// keep equal records as they come, and has the less to do the shorter the key, and by key and row
// number where it will not. Equal keys come into one part, so what is made of equal rows
// can be made of the records as they are read, one after the other (host/c/row_result.h).

#pragma once

#include <atomic>
#include <optional>
#include <vector>

#include "host/c/handle.h"
#include "host/c/key_encoder.h"
#include "host/c/row_result.h"
#include "host/c/slot_work.h"

namespace tvsort::capi {

class RowSort {
  public:
    // The slots must outlive it. `cancelled` may be set by any thread.
    RowSort(const std::vector<SlotWork*>& slots, const tvsort_rows_options& options,
            const std::atomic<bool>& cancelled);
    ~RowSort();
    RowSort(const RowSort&) = delete;
    RowSort& operator=(const RowSort&) = delete;

    void addColumn(const tvsort_column& column);
    KeyEncoder& encoder() { return encoder_; }
    void sample(std::size_t rowCount);
    void put(std::size_t rowCount, const Byte* payload, std::ptrdiff_t payloadStride);
    void nextOperand();
    void sort();
    std::size_t get(std::size_t rowsMax, Byte* payload, std::ptrdiff_t payloadStride,
                    std::int64_t* numbers);
    const tvsort_statistics& statistics() const { return statistics_; }

  private:
    // kBroken: a put or the sort is at work, or has failed between its rows.
    enum class Stage : std::uint8_t { kColumns, kPut, kGet, kBroken };
    struct Part {
        explicit Part(SlotWork& slotWork) : work(&slotWork) {}
        SlotWork* work;
        std::unique_ptr<host::RecordLoader> loader;
        host::LoadedData loaded;
        host::RequestBuilder request;
        bool isAsked = false;
        std::int64_t resultCount = 0;
        double cpuSeconds = 0;
        std::int64_t peakBytes = 0;
    };
    void needStage(Stage stage, const char* act) const;
    void needWhole() const;
    void beginPut();
    void encode(std::int64_t firstRow, std::size_t rowCount, const Byte* payload,
                std::ptrdiff_t payloadStride, Byte* records);
    void route(const Byte* records, std::size_t rowCount);
    std::size_t partOf(const Byte* record) const;
    void planRequests();
    void ask();
    void askPart(Part& part);

    std::vector<Part> parts_;
    tvsort_rows_options options_;
    Heed heed_;
    KeyEncoder encoder_;
    Stage stage_ = Stage::kColumns;
    RecordShape shape_ = {};
    host::Geometry geometry_;
    std::vector<Byte> splitters_;  // keys, in order
    std::vector<Byte> routed_;     // records on their way to their parts
    std::int64_t rowCount_ = 0;
    std::int64_t operandRows_ = -1;  // of operand 1; -1 as long as there is no other

    std::optional<RowResult> result_;
    tvsort_statistics statistics_ = {};
};

}  // namespace tvsort::capi
