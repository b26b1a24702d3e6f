#include "tools/modes/equal_records.h"

#include <string>

#include "host/host_error.h"

namespace tvsort::tools {

std::optional<EqualRecords> findEqualRecords(const FramedRecord& frame, Nulls nulls,
                                             OperandInput& input, const SortOnce& sortOnce) {
    host::RequestBuilder request = frame.request();
    request.setMode(SortMode::kGroups);
    std::optional<EqualRecords> found;
    std::optional<std::int32_t> previousNumber;  // of a record in the same group
    std::int64_t nextNumber = 1;
    const host::RecordSource source = numberedSource(input, frame, kFirstOperand, nextNumber);
    sortOnce({request, frame.recordLength(), {}}, source,
             [&](const Byte* records, std::size_t recordCount) {
                 for (std::size_t i = 0; i < recordCount && !found.has_value(); ++i) {
                     const Byte* const framed = records + i * frame.recordLength();
                     const std::int32_t number = frame.numberOf(framed);
                     if (number < 1 || number >= nextNumber) {
                         throw host::brokenResult("gave back record " + std::to_string(number) +
                                                  " of " + std::to_string(nextNumber - 1));
                     }
                     const bool counts = nulls == Nulls::kEqual || !frame.hasNull(framed);
                     if (previousNumber.has_value() && counts) found = {*previousNumber, number};
                     previousNumber = number;
                     if (frame.endsGroup(framed)) previousNumber.reset();
                 }
             });
    return found;
}

}  // namespace tvsort::tools
