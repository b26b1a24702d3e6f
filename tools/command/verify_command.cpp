#include "tools/command/verify_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "host/host_error.h"
#include "host/record_order.h"
#include "tools/command/checksum.h"
#include "tools/command/subcommands.h"
#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/files/progress.h"
#include "tools/formats/lines/line_input.h"
#include "tools/formats/lines/value_line.h"
#include "tools/formats/records/fixed_records.h"

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

void verifyLines(InputFile& input, Verifier& verifier) {
    LineInput lines(input);
    std::string previous;
    for (std::string_view line; lines.next(line);) {
        // Compares bytes as unsigned, the shorter of two that begin alike first.
        verifier.take(reinterpret_cast<const Byte*>(line.data()), line.size(),
                      [&] { return previous <= line; });
        previous.assign(line);
    }
}

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

void verifyOrderedLines(InputFile& input, const host::KeyForm& form, Verifier& verifier) {
    host::OrderedKey key(form);
    host::KeyBytes previous;
    host::KeyBytes bytes;
    LineInput lines(input);
    for (std::string_view line; lines.next(line); previous.swap(bytes)) {
        bytes.clear();
        try {
            if (line.empty() && !key.takesEmptyText()) {
                key.appendNull(bytes);
            } else {
                key.append(line, bytes);
            }
        } catch (const host::HostError& error) {
            throw host::badUse(fmt::format("line {} of {}: {}", lines.lineNumber(),
                                           input.displayName(), error.what()));
        }
        verifier.take(reinterpret_cast<const Byte*>(line.data()), line.size(),
                      [&] { return previous <= bytes; });
    }
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

std::optional<host::KeyForm> orderedForm(const RecordOptions& options) {
    if (options.as.empty()) return std::nullopt;
    return parseKey(options.as, host::ValuePlace::kLine).ordered;
}

std::string describe(const VerifyReport& report, const char* unit) {
    const std::string verdict =
        report.firstMisplaced == 0
            ? "yes"
            : fmt::format("no: {} {} must not stand behind {} {}", unit, report.firstMisplaced,
                          unit, report.firstMisplaced - 1);
    return fmt::format("in order  {}\nrecords   {}\nchecksum  {}\n", verdict, report.recordCount,
                       report.checksum);
}

}  // namespace

VerifyReport verifyFile(const VerifyOptions& options) {
    checkRecordOptions(options.records);
    InputFile input(options.input);
    Verifier verifier;
    verifier.progress().begin("verifying " + input.displayName());
    if (const auto form = orderedForm(options.records); form.has_value()) {
        verifyOrderedLines(input, *form, verifier);
    } else if (!options.records.as.empty()) {
        verifyValueLines(input, options.records.as, verifier);
    } else if (options.records.lines) {
        verifyLines(input, verifier);
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
    command.callback([options, &exitStatus] {
        const VerifyReport report = verifyFile(*options);
        const std::string text = describe(report, options->records.lines ? "line" : "record");
        OutputFile output(kStandardStream);
        output.write(reinterpret_cast<const Byte*>(text.data()), text.size());
        output.finish();
        exitStatus = report.firstMisplaced == 0 ? kStatusSuccess : kStatusNotInOrder;
    });
}

}  // namespace tvsort::tools
