// Writes groups of equal records.
//
//     lines     mark     ann          records   mark     [record][0]   0: the group goes on
//                        ann                             [record][1]   1: its last record
//                                                        [record][1]
//                        bob
//               count    2<tab>ann              count    [record][2 0 0 0]   i32, little-endian
//                        1<tab>bob                       [record][1 0 0 0]
//     rows      mark     1,ann                  count    2,ann
//                        1,ann                           1,bob
//                        2,bob        the number of the group, or its size, in a column in front

#pragma once

#include <cstdint>
#include <vector>

#include "protocol/bytes.h"
#include "tools/formats/record_flow.h"

namespace tvsort::tools {

enum class GroupForm : std::uint8_t { kMark, kCount };

class GroupOutput {
  public:
    // Writes the flow's records to its output.
    GroupOutput(GroupForm groupForm, const RecordFlow& flow);

    // The next record, and whether the process has marked it as the last of its group.
    void take(const Byte* record, bool endsGroup);
    // Ends the last group, which the process does not mark.
    void finish();
    // Ended so far.
    std::int64_t groupCount() const { return endedGroups_; }

  private:
    void mark(const Byte* record);
    void endGroup();

    GroupForm groupForm_;
    InputKind kind_;
    char delimiter_;
    RecordOutput& output_;
    std::vector<Byte> firstOfGroup_;  // kCount only
    std::int32_t groupSize_ = 0;      // so far
    std::int64_t endedGroups_ = 0;
};

}  // namespace tvsort::tools
