#include "tools/modes/group_output.h"

#include <fmt/format.h>

#include <algorithm>

namespace tvsort::tools {

GroupOutput::GroupOutput(GroupForm groupForm, const RecordFlow& flow)
    : groupForm_(groupForm),
      kind_(flow.kind),
      delimiter_(flow.delimiter),
      output_(*flow.output),
      firstOfGroup_(groupForm == GroupForm::kCount ? flow.recordLength : 0) {}

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

// Whether a record ends its group is known only when the next one, or none, has come.
void GroupOutput::mark(const Byte* record) {
    if (kind_ == InputKind::kRecords && groupSize_ > 0) output_.writeText({"\0", 1});
    if (kind_ == InputKind::kLines && groupSize_ == 0 && endedGroups_ > 0) output_.writeText("\n");
    if (kind_ == InputKind::kRows) {
        output_.writeText(fmt::format("{}{}", endedGroups_ + 1, delimiter_));
    }
    output_.write(record, 1);
}

void GroupOutput::endGroup() {
    if (groupForm_ == GroupForm::kCount) {
        if (kind_ == InputKind::kLines) output_.writeText(fmt::format("{}\t", groupSize_));
        if (kind_ == InputKind::kRows) {
            output_.writeText(fmt::format("{}{}", groupSize_, delimiter_));
        }
        output_.write(firstOfGroup_.data(), 1);
        if (kind_ == InputKind::kRecords) {
            output_.writeText({reinterpret_cast<const char*>(&groupSize_), sizeof groupSize_});
        }
    } else if (kind_ == InputKind::kRecords) {
        output_.writeText("\1");
    }
    groupSize_ = 0;
    endedGroups_ += 1;
}

}  // namespace tvsort::tools
