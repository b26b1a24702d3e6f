// The command, in this program, beside a process that lies as the input says.
//
// One input is a way to sort and up to three lies. An error that the command foresees is one way
// out, success the other; anything else ends the fuzzer.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fuzz/fuzz_input.h"
#include "host/host_error.h"
#include "tests/lies/lies.h"
#include "tests/lies/ways.h"
#include "tools/command/subcommands.h"

namespace {

using namespace tvsort;

// More than this is no result of the inputs that there are.
constexpr std::uintmax_t kOutputBytesMax = 4000000;

// A folder with the inputs, which goes away with the fuzzer.
class Folder {
  public:
    Folder() {
        std::string pattern = std::filesystem::temp_directory_path() / "tvsort-lies-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path_ = pattern;
        for (const auto& [name, content] : test::inputFiles())
            std::ofstream(path_ / name, std::ios::binary) << content;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// The words name the inputs as seen from their folder; the engine has files to find from its own.
class Inside {
  public:
    explicit Inside(const std::filesystem::path& folder)
        : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder);
    }
    ~Inside() {
        std::error_code ignored;
        std::filesystem::current_path(before_, ignored);
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    std::filesystem::path before_;
};

void sortBeside(const std::string& words) {
    int exitStatus = 0;
    CLI::App app;
    tools::addSortCommand(app, exitStatus);
    app.parse("sort -o out --timeout 2 --process " TVSORT_LYING_PROGRAM " " + words);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    const Inside inside(folder.path());
    fuzz::FuzzInput input(data, size);
    const test::Way& way = test::kWays[input.below(std::size(test::kWays))];
    const std::string told = test::lies(input);
    setenv("TVSORT_LIES", told.c_str(), 1);
    try {
        sortBeside(way.words);
    } catch (const host::HostError&) {
        return 0;
    }
    if (std::filesystem::file_size("out") > kOutputBytesMax) {
        std::fprintf(stderr, "%s with %s: too much came out\n", way.name, told.c_str());
        std::abort();
    }
    return 0;
}
