#include "tools/command/generate_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>

#include "host/host_error.h"
#include "tools/command/subcommands.h"
#include "tools/files/output_file.h"
#include "tools/files/progress.h"

namespace tvsort::tools {

namespace {

constexpr std::uint64_t kPopularKeys = 256;
constexpr std::uint64_t kFewKeys = 16;
constexpr std::size_t kNumberDigits = 16;
constexpr std::size_t kLetters = 26;

// SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators, 2014): one step
// of the state, and its scrambled value.
constexpr std::uint64_t kStateStep = 0x9e3779b97f4a7c15;

std::uint64_t scramble(std::uint64_t value) {
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
    value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
    return value ^ (value >> 31);
}

struct NamedDistribution {
    const char* name;
    KeyDistribution distribution;
};

constexpr std::array kDistributions = {
    NamedDistribution{"random", KeyDistribution::kRandom},
    NamedDistribution{"skewed", KeyDistribution::kSkewed},
    NamedDistribution{"sorted", KeyDistribution::kSorted},
    NamedDistribution{"reversed", KeyDistribution::kReversed},
    NamedDistribution{"few-distinct", KeyDistribution::kFewDistinct},
    NamedDistribution{"equal", KeyDistribution::kEqual},
};

KeyDistribution distributionNamed(const std::string& name) {
    std::string names;
    for (const NamedDistribution& known : kDistributions) {
        if (known.name == name) return known.distribution;
        names += fmt::format(" {}", known.name);
    }
    throw host::badUse(
        fmt::format("--kind {}: there is no such kind; the kinds are{}", name, names));
}

}  // namespace

RecordGenerator::RecordGenerator(const GenerateOptions& options)
    : options_(options), state_(options.seed) {}

std::uint64_t RecordGenerator::random() {
    state_ += kStateStep;
    return scramble(state_);
}

// A key of its own for each state.
void RecordGenerator::randomKey(Byte* key, std::uint64_t state) const {
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < options_.keyLength; ++i) {
        if (i % sizeof bits == 0) bits = scramble(state += kStateStep);
        key[i] = static_cast<Byte>(bits >> (8 * (i % sizeof bits)));
    }
}

// The digits of rank / recordCount in base 256, so that all ranks together fill the range of keys.
void RecordGenerator::risingKey(Byte* key, std::uint64_t rank) const {
    const auto count = static_cast<std::uint64_t>(options_.recordCount);
    constexpr std::uint64_t kBase = 256;
    for (std::size_t i = 0; i < options_.keyLength; ++i) {
        rank *= kBase;
        key[i] = static_cast<Byte>(rank / count);
        rank %= count;
    }
}

void RecordGenerator::fillKey(Byte* key) {
    const auto last = static_cast<std::uint64_t>(options_.recordCount) - 1;
    switch (options_.distribution) {
        case KeyDistribution::kRandom:
            return randomKey(key, random());
        case KeyDistribution::kSkewed: {
            const std::uint64_t choice = random();
            const bool popular = (choice & 1) == 0;
            return randomKey(key,
                             popular ? options_.seed + (choice >> 1) % kPopularKeys : random());
        }
        case KeyDistribution::kSorted:
            return risingKey(key, number_);
        case KeyDistribution::kReversed:
            return risingKey(key, last - number_);
        case KeyDistribution::kFewDistinct:
            return randomKey(key, options_.seed + random() % kFewKeys);
        case KeyDistribution::kEqual:
            return randomKey(key, options_.seed);
    }
}

void RecordGenerator::next(Byte* record) {
    fillKey(record);
    Byte* const rest = record + options_.keyLength;
    const std::size_t restBytes = options_.recordLength - options_.keyLength;
    const std::string digits = fmt::format("{:016X}", number_);
    std::copy_n(digits.begin(), std::min(restBytes, kNumberDigits), rest);
    for (std::size_t i = kNumberDigits; i < restBytes; ++i) {
        rest[i] = static_cast<Byte>('A' + (number_ + i / 4) % kLetters);
    }
    number_ += 1;
}

void generateFile(const GenerateOptions& options) {
    if (options.keyLength > options.recordLength) {
        throw host::badUse(
            fmt::format("a key of {} bytes does not fit a record of {}; make "
                        "--key-length smaller or --record-length larger",
                        options.keyLength, options.recordLength));
    }
    OutputFile output(options.output);
    Progress progress;
    progress.begin("generating");
    RecordGenerator generator(options);
    std::vector<Byte> record(options.recordLength);
    for (std::int64_t i = 0; i < options.recordCount; ++i) {
        generator.next(record.data());
        output.write(record.data(), record.size());
        progress.advance(1);
    }
    output.finish();
}

void addGenerateCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<GenerateOptions>();
    CLI::App& command =
        *app.add_subcommand("generate", "Make records in the style of the sort benchmarks");
    command.add_option("--records", options->recordCount, "How many")
        ->required()
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{1} << 40));
    command.add_option("--seed", options->seed, "The same seed makes the same records")
        ->capture_default_str();
    const auto kind = std::make_shared<std::string>("random");
    command.add_option("--kind", *kind, "random, skewed, sorted, reversed, few-distinct or equal")
        ->capture_default_str();
    command.add_option("--record-length", options->recordLength, "Bytes per record")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command.add_option("--key-length", options->keyLength, "Bytes of the key at a record's start")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command.add_option("-o,--output", options->output, "File to write; standard output without it");
    command.callback([options, kind, &exitStatus] {
        options->distribution = distributionNamed(*kind);
        generateFile(*options);
        exitStatus = kStatusSuccess;
    });
}

}  // namespace tvsort::tools
