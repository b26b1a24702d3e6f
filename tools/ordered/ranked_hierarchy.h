// A hierarchy of rows by ordered keys, by three requests or more:
//
//     rows -> the order of all (settled_order.h)    -> place and rank of each, in order
//          -> the process, by place                 -> ranks in the order of reading
//          -> the process's hierarchy, by rank      -> rows, siblings in order -> output
//
// A rank is the number of a row's key among all keys, so what the process compares is whole keys,
// however long they are. Rows that are equal have one rank: siblings among them keep the order of
// reading, and a limit knows ties. Records of the second and the third request:
//
//     0   6  place, the most significant byte first: the key
//     6   4  rank
//
//     0  12  header of a levelled record (modes/framed_record.h)
//     12  4  rank: the key
//     16  8  place, 4 bytes of the row
//
// Rows without a level, which are kept where errors put rows last, stand behind the hierarchy.

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/files/spool_file.h"
#include "tools/formats/row_writer.h"
#include "tools/modes/framed_record.h"
#include "tools/ordered/key_record.h"
#include "tools/ordered/levelled_input.h"
#include "tools/ordered/ordered_sort.h"
#include "tools/run/sorting.h"

namespace tvsort::tools {

class RankedHierarchy : public Sorting {
  public:
    RankedHierarchy(std::unique_ptr<LevelledInput> input, const OrderedSort::Setting& setting,
                    std::unique_ptr<RowWriter> writer);

    std::uint16_t recordLength() const override { return KeyRecord(form_).recordLength(); }
    std::vector<RecordField> fields() const override {
        return KeyRecord(form_).fields(input_->keysInWords());
    }
    std::uint64_t memoryShare() const override { return kFetchShare; }
    SortStats run(const SortOnce& sortOnce) override;
    SortStats shape(const SortOnce& sortOnce) override;

  private:
    // Places and ranks in the order of the keys into ranks in the order of places.
    SortStats putBack(const SortOnce& sortOnce, SpoolFile& ranked, SpoolFile& ranks) const;
    SortStats arrange(const SortOnce& sortOnce, SpoolFile& ranks);
    void write(const RowPlace& place);

    std::unique_ptr<LevelledInput> input_;
    OrderedSort::Setting setting_;
    std::unique_ptr<RowWriter> writer_;
    KeyRecord::Form form_;
    FramedRecord frame_;
    std::int64_t rowCount_ = 0;
    std::int64_t writtenCount_ = 0;
};

}  // namespace tvsort::tools
