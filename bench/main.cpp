// tvsort_bench: the running process beside everybody else. Run it by scripts/bench.

#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>

#include "bench/sections.h"

namespace {

using namespace tvsort::bench;

// By the name under which a part of the run can be asked for, in the order in which they run.
const std::vector<std::pair<std::string, void (*)(const Options&)>> kSections = {
    {"memory", showInMemory},   {"spilling", showSpilling},      {"growth", showGrowth},
    {"curve", showCurve},       {"requests", showSmallRequests}, {"programs", showOtherPrograms},
    {"uncached", showUncached}, {"command", showCommand},
};

// The parts that consist of workloads in situations: chosen ones leave the others out.
const std::vector<std::string> kChoiceSections = {"memory", "spilling"};

const std::map<std::string, PeerSet> kPeerSets = {{"none", PeerSet::kNone},
                                                  {"std", PeerSet::kStd},
                                                  {"usual", PeerSet::kUsual},
                                                  {"all", PeerSet::kAll}};

// Every part, quickly: the smallest count for which the distribution sort is taken, and small
// blocks, so that little memory still holds several.
void makeSmall(Options& options) {
    options.small = true;
    options.recordCount = 10'000;
    options.rounds = 1;
    options.blockPages = 1;
}

// Removed with all that is in it.
class WorkFolder {
  public:
    explicit WorkFolder(const std::filesystem::path& parent) {
        std::string name = (parent / "tvsort-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a folder in " + parent.string() +
                                     "; name another with --temp");
        }
        path_ = name;
        // The database's user passes through it.
        std::filesystem::permissions(path_, std::filesystem::perms(0755));
    }
    ~WorkFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

void runSections(Options options, const std::filesystem::path& tempDirectory,
                 std::vector<std::string> wanted) {
    if (wanted.empty() && !(options.workloads.empty() && options.situations.empty()))
        wanted = kChoiceSections;
    const WorkFolder folder(tempDirectory);
    options.workDirectory = folder.path();
    std::filesystem::create_directories(options.resultDirectory);
    for (const auto& [name, show] : kSections) {
        if (wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end()) {
            show(options);
        }
    }
}

std::vector<std::string> sectionNames() {
    std::vector<std::string> names(kSections.size());
    std::transform(kSections.begin(), kSections.end(), names.begin(),
                   [](const auto& section) { return section.first; });
    return names;
}

// A check that a text is part of one of the names.
template <typename Named>
auto partOfName(const std::vector<Named>& all) {
    return [all](const std::string& text) {
        std::string names;
        for (const Named& one : all) {
            if (one.name.find(text) != std::string::npos) return std::string();
            names += "\n  " + one.name;
        }
        return "\"" + text + "\" is in none of these names:" + names;
    };
}

std::vector<Situation> allSituations() {
    std::vector<Situation> situations = inMemory();
    for (const Situation& situation : spilling())
        situations.push_back(situation);
    return situations;
}

Build buildOf(const std::string& text) {
    const std::size_t sign = text.find('=');
    if (sign == 0 || sign == std::string::npos)
        throw std::runtime_error("--beside wants NAME=PATH, not \"" + text + "\"");
    return {text.substr(0, sign), text.substr(sign + 1)};
}

int run(int argumentCount, char** arguments) {
    Options options;
    options.builds = {{"tvsort", ""}};
    std::vector<std::string> beside;
    bool small = false;
    bool cpu = false;
    std::vector<std::string> wanted;
    std::string peers;
    std::filesystem::path tempDirectory = std::filesystem::temp_directory_path();
    CLI::App app("Measures the sort process beside its peers");
    app.add_option("--process", options.builds[0].program, "the built tvsort")->required();
    app.add_option("--beside", beside,
                   "NAME=PATH, another build of it, measured as the peers are; repeatable");
    app.add_option("--results", options.resultDirectory, "folder for the tables' values")
        ->required();
    app.add_option("--records", options.recordCount, "records of a data set")
        ->capture_default_str()
        ->check(CLI::Range(10'000, 40'000'000));
    app.add_option("--rounds", options.rounds)->capture_default_str()->check(CLI::Range(1, 1000));
    app.add_option("--block-pages", options.blockPages, "pages of 4096 bytes per block")
        ->capture_default_str()
        ->check(CLI::Range(1, 16));
    app.add_option("--temp", tempDirectory, "folder for work files")->capture_default_str();
    app.add_option("--section", wanted, "parts to run; all when none is named")
        ->check(CLI::IsMember(sectionNames()));
    app.add_option("--workload", options.workloads,
                   "rows of the parts memory and spilling, by a name or a part of it; repeatable")
        ->check(partOfName(workloads()));
    app.add_option("--situation", options.situations, "likewise, tables of these parts")
        ->check(partOfName(allSituations()));
    app.add_option("--peers", peers, "none, std, usual or all of them, in these parts")
        ->check(CLI::IsMember(kPeerSets));
    app.add_option("--node-modules", options.nodeModules,
                   "a folder into which npm has put @duckdb/node-api and nodejs-polars, for the "
                   "part command");
    app.add_flag("--cpu", cpu, "print processor times, for a machine that is not idle");
    app.add_flag("--small", small, "every part with little data; times then mean nothing");
    CLI11_PARSE(app, argumentCount, arguments);
    if (small) makeSmall(options);
    if (cpu) options.clock = Clock::kCpu;
    if (!peers.empty()) options.peers = kPeerSets.at(peers);
    for (const std::string& text : beside)
        options.builds.push_back(buildOf(text));
    runSections(options, tempDirectory, wanted);
    return 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        return run(argumentCount, arguments);
    } catch (const std::exception& error) {
        std::fputs("tvsort_bench: ", stderr);
        std::fputs(error.what(), stderr);
        std::fputs("\n", stderr);
        return 1;
    }
}
