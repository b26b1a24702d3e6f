#include "tools/modes/set_combination.h"

#include <memory>

#include "tools/files/input_file.h"
#include "tools/files/spool_file.h"
#include "tools/formats/records/fixed_records.h"
#include "tools/modes/operand_input.h"

namespace tvsort::tools {

namespace {

bool isIntersection(SortMode mode) {
    return mode == SortMode::kIntersect || mode == SortMode::kIntersectAll;
}

// One request. The sources give framed records, flagged as first and other operand.
SortStats combineTwo(const SetCombination& combination, const SortOnce& sortOnce,
                     const host::RecordSource& first, const host::RecordSource& other,
                     const TakeFramed& take) {
    const FramedRecord& frame = combination.frame;
    host::RequestBuilder request = frame.request();
    request.setMode(combination.mode);
    std::size_t loaded = 0;
    bool firstEnded = false;
    const host::RecordSource source = [&](Byte* target, std::size_t recordsMax) {
        std::size_t records = firstEnded ? 0 : first(target, recordsMax);
        firstEnded = records == 0;
        if (firstEnded) records = other(target, recordsMax);
        loaded += records;
        return records;
    };
    const auto sink = [&](const Byte* records, std::size_t recordCount) {
        // Of a data set of one, the record may be the other operand's, and has no partner.
        if (loaded == 1 && isIntersection(combination.mode)) return;
        for (std::size_t i = 0; i < recordCount; ++i) {
            const Byte* const framed = records + i * frame.recordLength();
            if (frame.flagOf(framed) == kFirstOperand) take(framed);
        }
    };
    return sortOnce({request, frame.recordLength(), {}}, source, sink);
}

// An earlier request's result as the first operand of the next: its records keep their headers.
host::RecordSource framedSource(SpoolFile& spool, std::uint16_t recordLength) {
    const auto file = std::make_shared<InputFile>(spool.takeAsInput("an intermediate result"));
    return [file, records = FixedRecordSource(*file, recordLength)](
               Byte* target, std::size_t recordsMax) mutable {
        return records.read(target, recordsMax);
    };
}

// The operands that each request combines with the first one, or with the result so far.
std::vector<OperandInput> othersByRequest(const SetCombination& combination) {
    const std::vector others(combination.operands.begin() + 1, combination.operands.end());
    if (!isIntersection(combination.mode)) return {OperandInput(others)};
    std::vector<OperandInput> byRequest;
    byRequest.reserve(others.size());
    for (const std::shared_ptr<Operand>& other : others)
        byRequest.push_back(OperandInput({other}));
    return byRequest;
}

}  // namespace

SortStats combine(const SetCombination& combination, const SortOnce& sortOnce,
                  const TakeFramed& take) {
    const FramedRecord& frame = combination.frame;
    std::int64_t nextNumber = 1;
    OperandInput firstInput({combination.operands.front()});
    host::RecordSource first = numberedSource(firstInput, frame, kFirstOperand, nextNumber);
    std::vector<OperandInput> requests = othersByRequest(combination);
    SortStats stats;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const host::RecordSource other =
            numberedSource(requests[i], frame, kOtherOperand, nextNumber);
        if (i + 1 == requests.size()) {
            stats.addRequest(combineTwo(combination, sortOnce, first, other, take));
            break;
        }
        SpoolFile result(combination.tempDirectory);
        stats.addRequest(combineTwo(combination, sortOnce, first, other, [&](const Byte* framed) {
            result.write(framed, frame.recordLength());
        }));
        first = framedSource(result, frame.recordLength());
    }
    return stats;
}

}  // namespace tvsort::tools
