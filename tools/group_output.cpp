#include "tools/group_output.h"

#include <fmt/format.h>

#include <algorithm>

namespace tvsort::tools {

GroupOutput::GroupOutput(GroupForm groupForm, RecordForm recordForm, std::size_t recordLength,
                         host::RecordSink writeRecords, OutputFile& output)
    : groupForm_(groupForm),
      recordForm_(recordForm),
      writeRecords_(std::move(writeRecords)),
      output_(output),
      firstOfGroup_(groupForm == GroupForm::kCount ? recordLength : 0) {}

void GroupOutput::take(const Byte* record, bool endsGroup) {
    if (groupForm_ == GroupForm::kCount) {
        if (groupSize_ == 0) {
            std::copy_n(record, firstOfGroup_.size(), firstOfGroup_.begin());
        }
    } else {
        mark(record);
    }
    groupSize_ += 1;
    if (endsGroup) endGroup();
}

void GroupOutput::finish() {
    if (groupSize_ > 0) endGroup();
}

void GroupOutput::write(std::string_view text) {
    output_.write(reinterpret_cast<const Byte*>(text.data()), text.size());
}

// Whether a record ends its group is known only when the next one, or none, has come.
void GroupOutput::mark(const Byte* record) {
    if (recordForm_ == RecordForm::kRecords && groupSize_ > 0) write(std::string_view("\0", 1));
    if (recordForm_ == RecordForm::kLines && groupSize_ == 0 && anyGroupEnded_) write("\n");
    writeRecords_(record, 1);
}

void GroupOutput::endGroup() {
    if (groupForm_ == GroupForm::kMark) {
        if (recordForm_ == RecordForm::kRecords) write("\1");
    } else {
        if (recordForm_ == RecordForm::kLines) write(fmt::format("{}\t", groupSize_));
        writeRecords_(firstOfGroup_.data(), 1);
        if (recordForm_ == RecordForm::kRecords) {
            output_.write(reinterpret_cast<const Byte*>(&groupSize_), sizeof groupSize_);
        }
    }
    groupSize_ = 0;
    anyGroupEnded_ = true;
}

}  // namespace tvsort::tools
