#include "tools/command/collation_command.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

#include "host/host_error.h"
#include "tools/command/subcommands.h"
#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/files/spoken.h"

namespace tvsort::tools {

namespace {

constexpr char kPrimary[] = "primary";
constexpr char kSecondary[] = "secondary";
constexpr char kTertiary[] = "tertiary";

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

// More than any collation file has: pages of 1536 bytes start below byte 65536 of the table.
constexpr std::size_t kFileBytesMax = std::size_t{1} << 20;

std::vector<Byte> readFile(const std::string& name) {
    InputFile file(name);
    std::vector<Byte> bytes;
    std::vector<Byte> piece(kPieceBytes);
    while (const std::size_t read = file.read(piece.data(), piece.size())) {
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(read));
        if (bytes.size() > kFileBytesMax) break;
    }
    const std::string fault = host::collationFileFault(bytes);
    if (!fault.empty()) {
        throw host::badUse(fmt::format(
            "{} is no collation file: {}; make one with tvsort-host collation", name, fault));
    }
    return bytes;
}

host::CollationStrength strengthOf(const std::string& name) {
    if (name == kPrimary) return host::CollationStrength::kPrimary;
    return name == kSecondary ? host::CollationStrength::kSecondary
                              : host::CollationStrength::kTertiary;
}

bool hasUnitKey(const host::RequestBuilder& request) {
    return std::any_of(request.keys().begin(), request.keys().end(), [](const KeyDescriptor& key) {
        const auto type = static_cast<DataType>(key.dataType);
        return type == DataType::kUnits || type == DataType::kUnitString;
    });
}

std::string report(const host::CollationFile& file) {
    std::string text =
        fmt::format("{} units have weights in ICU's order; the others weigh their own value\n",
                    file.exactUnits() - file.displacedUnits - file.unmappedUnits);
    if (file.mergedUnits > 0) {
        text +=
            fmt::format("{} of them are variants of an ideograph or syllable and weigh the same\n",
                        file.mergedUnits);
    }
    if (file.displacedUnits > 0) {
        text += fmt::format("{} units stand behind the ideographs, where ICU puts them before\n",
                            file.displacedUnits);
    }
    if (file.unmappedUnits > 0) {
        text += fmt::format("{} units are equal to one another and last, for lack of weights\n",
                            file.unmappedUnits);
    }
    return text;
}

}  // namespace

void writeCollation(const CollationOptions& options) {
    const host::CollationFile file =
        host::makeCollationFile(host::collationOrder(options.locale, strengthOf(options.strength)));
    OutputFile output(options.output);
    output.write(file.bytes.data(), file.bytes.size());
    output.finish();
    speak(report(file));
}

std::unique_ptr<host::CollationDirectory> putCollationInForce(const std::string& name,
                                                              const host::RequestBuilder& request,
                                                              host::ServerOptions& options) {
    if (name.empty()) return nullptr;
    if (!hasUnitKey(request)) {
        throw host::badUse(
            "--collation orders UCS-2 text, and there is no such key: name one with --key "
            "ucs2... or --lines --as ucs2, or leave --collation out");
    }
    const std::vector<Byte> file =
        std::filesystem::exists(name)
            ? readFile(name)
            : host::makeCollationFile(
                  host::collationOrder(name, host::CollationStrength::kTertiary))
                  .bytes;
    auto directory =
        std::make_unique<host::CollationDirectory>(options.tempDirectory, options.instance, file);
    options.directoryPrefix = directory->prefix();
    return directory;
}

void addCollationCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<CollationOptions>();
    CLI::App& command = *app.add_subcommand(
        "collation", "Write a collation file: the order of UCS-2 text in a language, from ICU");
    command
        .add_option("LOCALE", options->locale,
                    "A language tag such as fr, sv or de-u-co-phonebk; root for the order that all "
                    "languages start from")
        ->required();
    command.add_option("-o,--output", options->output, "File to write")->required();
    command
        .add_option("--strength", options->strength,
                    "What tells units apart: letters (primary), also accents (secondary), also "
                    "case (tertiary, the default)")
        ->check(CLI::IsMember({kPrimary, kSecondary, kTertiary}));
    command.callback([options, &exitStatus] {
        writeCollation(*options);
        exitStatus = kStatusSuccess;
    });
}

}  // namespace tvsort::tools
