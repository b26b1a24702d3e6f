#include "tools/command/verify_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "host/host_error.h"
#include "host/private_directory.h"
#include "host/record_order.h"
#include "tools/command/checksum.h"
#include "tools/command/sort_setup.h"
#include "tools/command/subcommands.h"
#include "tools/files/compression.h"
#include "tools/files/input_file.h"
#include "tools/files/interrupt.h"
#include "tools/files/output_file.h"
#include "tools/files/progress.h"
#include "tools/files/text_marks.h"
#include "tools/formats/lines/value_line.h"
#include "tools/formats/records/fixed_records.h"
#include "tools/ordered/order_check.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceBytes = std::size_t{256} * 1024;

// Takes the records one by one.
class Verifier {
  public:
    // `mayFollow` is asked for each record but the first.
    template <typename MayFollow>
    void take(const Byte* record, std::size_t byteCount, const MayFollow& mayFollow) {
        report_.recordCount += 1;
        checksum_.add(record, byteCount);
        if (report_.recordCount > 1 && report_.firstMisplaced == 0 && !mayFollow()) {
            report_.firstMisplaced = report_.recordCount;
        }
        progress_.advance(1);
    }

    VerifyReport report() {
        report_.checksum = checksum_.text();
        return report_;
    }

    Progress& progress() { return progress_; }

  private:
    VerifyReport report_;
    RecordChecksum checksum_;
    Progress progress_;
};

// The largest values and lines that a record could hold, one at a time.
constexpr ValueLineExtent kAnyLine = {host::kPrefixedValueBytesMax, 32763};

void verifyValueLines(InputFile& input, const std::string& as, Verifier& verifier) {
    const KeyText type = parseKey(as, host::ValuePlace::kLine);
    const ValueLineRecord layout(type, kAnyLine);
    const host::RecordOrder order(layout.request());
    std::vector<Byte> previous(layout.recordLength());
    std::vector<Byte> record(layout.recordLength());
    ValueLineSource lines(type, layout, input);
    while (lines.read(record.data(), 1) > 0) {
        const std::string_view line = layout.lineOf(record.data());
        verifier.take(reinterpret_cast<const Byte*>(line.data()), line.size(),
                      [&] { return order.mayFollow(previous.data(), record.data()); });
        previous.swap(record);
    }
}

std::string verifyOrdered(const VerifyOptions& options, Verifier& verifier) {
    SortOptions sortOptions;
    sortOptions.records = options.records;
    sortOptions.inputs = {options.input};
    SortSetup setup(sortOptions);
    const KeyedInput& input = *setup.orderedInput();
    RowStream rows(input, setup.errors());
    OrderCheck check(rows);
    std::string fault;
    std::vector<Byte> text;
    for (KeyedRow row; rows.next(row);) {
        throwIfInterrupted();
        const bool mayFollow = check.mayFollow(row);
        if (!mayFollow && fault.empty()) fault = check.fault();
        text.resize(row.place.byteCount);
        if (row.isHeld) {
            std::copy(row.text.begin(), row.text.end(), text.begin());
        } else {
            input.places().readAt(row.place.offset, text.data(), text.size());
        }
        verifier.take(text.data(), text.size(), [mayFollow] { return mayFollow; });
    }
    return fault;
}

void verifyRecords(InputFile& input, const RecordOptions& options, Verifier& verifier) {
    const std::size_t recordLength = options.recordLength.value();
    const host::RecordOrder order(requestFor(options));
    FixedRecordSource records(input, *options.recordLength);
    const std::size_t recordsMax = std::max<std::size_t>(kPieceBytes / recordLength, 1);
    // The record before the piece stands in front of it.
    std::vector<Byte> piece((recordsMax + 1) * recordLength);
    Byte* const first = piece.data() + recordLength;
    while (const std::size_t count = records.read(first, recordsMax)) {
        for (std::size_t i = 0; i < count; ++i) {
            const Byte* const record = first + i * recordLength;
            verifier.take(record, recordLength,
                          [&] { return order.mayFollow(record - recordLength, record); });
        }
        std::copy_n(first + (count - 1) * recordLength, recordLength, piece.data());
    }
}

bool isOrdered(const RecordOptions& options) {
    if (inputKindOf(options) == InputKind::kRecords) return false;
    const bool isOfWholeLines = options.lines;
    if (isOfWholeLines) return lineKey(options).ordered.has_value();
    return std::all_of(options.keys.begin(), options.keys.end(), [](const std::string& text) {
        return parseKey(text, host::ValuePlace::kColumn).ordered.has_value();
    });
}

// As a sort reads it: lines may be packed by what they begin with, records by their name.
InputFile openTyped(const VerifyOptions& options, Progress& progress) {
    InputFile input(options.input);
    if (options.records.isPlain) input.takeAsPlain();
    const bool isText = inputKindOf(options.records) == InputKind::kLines;
    const Compression compression =
        isText ? compressionMarked(firstBytes(input)) : compressionNamed(options.input);
    input = unpacked(compression, std::move(input), host::defaultTempDirectory(), progress);
    if (isText) refuseWideText(input);
    return input;
}

std::string describe(const VerifyReport& report, const char* unit) {
    std::string verdict = report.firstMisplaced == 0
                              ? "yes"
                              : fmt::format("no: {} {} must not stand behind {} {}", unit,
                                            report.firstMisplaced, unit, report.firstMisplaced - 1);
    if (!report.fault.empty()) verdict += "\nbecause   " + report.fault;
    return fmt::format("in order  {}\nrecords   {}\nchecksum  {}\n", verdict, report.recordCount,
                       report.checksum);
}

}  // namespace

VerifyReport verifyFile(VerifyOptions options) {
    recogniseFormat({options.input}, options.records);
    checkRecordOptions(options.records);
    Verifier verifier;
    if (isOrdered(options.records)) {
        const std::string fault = verifyOrdered(options, verifier);
        VerifyReport report = verifier.report();
        report.fault = fault;
        return report;
    }
    if (inputKindOf(options.records) == InputKind::kRows) {
        throw host::badUse(
            "rows are verified by types that become ordered bytes; the others stand "
            "last in sort --help");
    }
    InputFile input = openTyped(options, verifier.progress());
    verifier.progress().begin("verifying " + input.displayName());
    if (!options.records.as.empty()) {
        verifyValueLines(input, options.records.as, verifier);
    } else {
        verifyRecords(input, options.records, verifier);
    }
    return verifier.report();
}

void addVerifyCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<VerifyOptions>();
    CLI::App& command = *app.add_subcommand(
        "verify", "Say whether a file is in the order of the keys, and print its checksum");
    command.add_option("INPUT", options->input, "File to check; - for standard input")->required();
    addRecordOptions(command, options->records);
    addCsvOptions(command, options->records);
    addTextOptions(command, options->records);
    command.callback([options, &exitStatus] {
        const VerifyReport report = verifyFile(*options);
        RecordOptions records = options->records;
        recogniseFormat({options->input}, records);
        const InputKind kind = inputKindOf(records);
        const char* const unit = kind == InputKind::kLines  ? "line"
                                 : kind == InputKind::kRows ? "row"
                                                            : "record";
        const std::string text = describe(report, unit);
        OutputFile output(kStandardStream);
        output.write(reinterpret_cast<const Byte*>(text.data()), text.size());
        output.finish();
        exitStatus = report.firstMisplaced == 0 ? kStatusSuccess : kStatusNotInOrder;
    });
}

}  // namespace tvsort::tools
