// Writes groups of equal records.
//
//     lines     mark     ann          records   mark     [record][0]   0: the group goes on
//                        ann                             [record][1]   1: its last record
//                                                        [record][1]
//                        bob
//               count    2<tab>ann              count    [record][2 0 0 0]   i32, little-endian
//                        1<tab>bob                       [record][1 0 0 0]

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/data_set.h"
#include "service/bytes.h"
#include "tools/output_file.h"

namespace tvsort::tools {

enum class GroupForm : std::uint8_t { kMark, kCount };
enum class RecordForm : std::uint8_t { kLines, kRecords };

class GroupOutput {
  public:
    // `writeRecords` writes user records of `recordLength` bytes to `output`.
    GroupOutput(GroupForm groupForm, RecordForm recordForm, std::size_t recordLength,
                host::RecordSink writeRecords, OutputFile& output);

    // The next record, and whether the process has marked it as the last of its group.
    void take(const Byte* record, bool endsGroup);
    // Ends the last group, which the process does not mark.
    void finish();

  private:
    void write(std::string_view text);
    void mark(const Byte* record);
    void count(const Byte* record);
    void endGroup();

    GroupForm groupForm_;
    RecordForm recordForm_;
    host::RecordSink writeRecords_;
    OutputFile& output_;
    std::vector<Byte> firstOfGroup_;  // kCount only
    std::int32_t groupSize_ = 0;      // so far
    bool anyGroupEnded_ = false;
};

}  // namespace tvsort::tools
