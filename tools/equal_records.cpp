#include "tools/equal_records.h"

namespace tvsort::tools {

std::optional<EqualRecords> findEqualRecords(const FramedRecord& frame, Nulls nulls,
                                             const host::RecordSource& source,
                                             const SortOnce& sortOnce) {
    host::RequestBuilder request = frame.request();
    request.setMode(SortMode::kGroups);
    std::optional<EqualRecords> found;
    std::optional<std::int32_t> previousNumber;  // of a record in the same group
    sortOnce(request, source, [&](const Byte* records, std::size_t recordCount) {
        for (std::size_t i = 0; i < recordCount && !found.has_value(); ++i) {
            const Byte* const framed = records + i * frame.recordLength();
            const bool counts = nulls == Nulls::kEqual || !frame.hasNull(framed);
            if (previousNumber.has_value() && counts) {
                found = {*previousNumber, frame.numberOf(framed)};
            }
            previousNumber = frame.numberOf(framed);
            if (frame.endsGroup(framed)) previousNumber.reset();
        }
    });
    return found;
}

}  // namespace tvsort::tools
