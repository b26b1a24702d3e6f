// A hierarchy of rows by ordered keys, by three requests or more:
//
//     rows -> the order of all (ordered_sort.h)    -> place and rank of each, in order
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
#include "tools/ordered/levelled_input.h"
#include "tools/ordered/ordered_sort.h"
#include "tools/run/sorting.h"

namespace tvsort::tools {

class RankedHierarchy : public OrderedSort {
  public:
    RankedHierarchy(std::unique_ptr<LevelledInput> input, const RowShaper::Form& shape,
                    const PlanSetting& setting, std::unique_ptr<RowWriter> writer,
                    RowErrors& errors, Progress& progress);

    SortStats shape(const SortOnce& sortOnce) override;

  private:
    // Places and ranks in the order of the keys into ranks in the order of places.
    SortStats putBack(const SortOnce& sortOnce, SpoolFile& ranked, SpoolFile& ranks) const;
    SortStats arrange(const SortOnce& sortOnce, SpoolFile& ranks);
    void write(const RowPlace& place);

    FramedRecord frame_;
    std::int64_t rowCount_ = 0;
    std::int64_t writtenCount_ = 0;
};

}  // namespace tvsort::tools
