// Inputs that are in order already, merged: one row of each is in memory, and no process is needed.
//
// Each input is checked as it is read, unless its order is taken for granted. Of equal rows those
// of an earlier input come first, so the result is that of a sort.

#pragma once

#include <memory>
#include <vector>

#include "tools/formats/keyed_input.h"
#include "tools/formats/row_writer.h"
#include "tools/ordered/order_check.h"
#include "tools/ordered/row_shaper.h"

namespace tvsort::tools {

class OrderedMerge {
  public:
    // An input for each of the files that the writer knows, in their order, that reads this one
    // alone.
    OrderedMerge(std::vector<std::unique_ptr<KeyedInput>> inputs, RowWriter& writer,
                 RowErrors& errors, bool isChecked);

    // Throws bad use that names the first two rows of an input that are not in order.
    void run(RowShaper& shaper);

  private:
    struct Source {
        std::unique_ptr<KeyedInput> input;
        std::unique_ptr<RowStream> rows;
        KeyedRow row;
        std::unique_ptr<OrderCheck> check;
        bool hasRow = false;
    };
    void advance(Source& source);
    // The one whose row comes next; null at the end of all.
    Source* least();

    RowWriter& writer_;
    bool isChecked_;
    std::vector<Source> sources_;
};

}  // namespace tvsort::tools
