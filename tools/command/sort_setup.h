// What a sort and its explanation have in common: the options, understood, and the inputs, opened
// and measured.

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/key_ranges.h"
#include "tools/files/input_file.h"
#include "tools/files/output_file.h"
#include "tools/files/progress.h"
#include "tools/formats/keyed_input.h"
#include "tools/formats/ordered_flow.h"
#include "tools/modes/shaped_sort.h"
#include "tools/options/mode_options.h"
#include "tools/options/record_options.h"
#include "tools/options/row_errors.h"
#include "tools/ordered/ordered_sort.h"
#include "tools/run/memory_plan.h"

namespace tvsort::tools {

struct SortOptions {
    RecordOptions records;
    ModeOptions mode;
    std::vector<std::string> inputs;
    std::string output;     // empty: standard output
    std::string collation;  // file or locale; empty: UCS-2 keys compare by code unit
    std::uint64_t memoryBytes = std::uint64_t{64} * 1024 * 1024;
    std::optional<std::int32_t> blockPages;
    std::string tempDirectory;
    std::optional<double> timeoutSeconds;
    std::string process;
    std::string stats;  // empty, "text" or "json"
    std::optional<int> processCount;
    std::string hugePages = "off";
    std::optional<std::uint64_t> randomSeed;
    std::string
        check;  // kOnlyCheck: nothing is sorted; kNoCheck: nor is the order of merged inputs
    bool isMerged = false;  // the inputs are in order already
};

inline constexpr char kOnlyCheck[] = "only";
inline constexpr char kNoCheck[] = "off";

// Adds the options of a sort.
void addSortOptions(CLI::App& command, SortOptions& options);

std::filesystem::path tempDirectoryOf(const SortOptions& options);

class SortSetup {
  public:
    // Checks the options, opens inputs and output, and reads the inputs where they must be
    // measured.
    explicit SortSetup(const SortOptions& options);
    SortSetup(const SortSetup&) = delete;
    SortSetup& operator=(const SortSetup&) = delete;

    // With the format recognised.
    const SortOptions& options() const { return options_; }
    const MemoryPlan& memoryPlan() const { return memoryPlan_; }
    // What the plan was made from, for other amounts of memory.
    MemoryRequest memoryRequest() const;
    // As the user's records have them, of so many bytes; empty where keys are ordered bytes.
    const host::RequestBuilder& userRequest() const { return userRequest_; }
    std::uint16_t userRecordLength() const { return userRecordLength_; }
    // The parts of several processes; none for one, and where ordered keys have their own. Reads
    // the inputs once more.
    std::optional<host::KeyRanges> keyRanges();
    const StageCost& readCost() const { return readCost_; }
    // Merges inputs that are in order to the output, without a process; answers how many rows it
    // wrote.
    std::int64_t merge();
    // Of inputs that are files, as they are read.
    std::int64_t inputBytes() const;
    // Of inputs that lie in the temporary directory, copied or unpacked.
    std::int64_t copiedBytes() const { return copiedBytes_; }
    RowErrors& errors() { return errors_; }
    int processCount() const { return processCount_; }
    // Whether typed records are sorted in runs that are merged.
    bool sortsTypedRuns() const;

    Sorting& sort() { return *sort_; }
    // Null where keys are not ordered bytes.
    const KeyedInput* orderedInput() { return orderedInput_; }
    const OrderedSort* orderedSort() { return orderedSort_; }
    PlanSetting planSetting() const;
    OutputFile& output() { return output_; }
    Progress& progress() { return progress_; }

  private:
    void makeInputsRereadable();
    int chooseProcesses() const;
    bool isPlainOrder() const;
    // Sorted runs of typed records can be.
    bool canBeMerged() const;
    Progress::Position inputPosition() const;
    // Whether keys are made into ordered bytes, and not compared by the process one by one.
    bool isOrdered() const;
    void checkWordsOfOrderedKeys() const;
    std::unique_ptr<Sorting> makeOrderedSort();
    OrderedFlow makeOrderedFlow(std::vector<InputFile>& inputs);
    std::unique_ptr<Sorting> makeShapedSort();
    RecordFlow makeFlow();
    RecordFlow makeFlowAgain();

    SortOptions options_;
    std::vector<InputFile> inputs_;
    OutputFile output_;
    Progress progress_;
    RowErrors errors_;
    host::RequestBuilder userRequest_;
    std::uint16_t userRecordLength_ = 0;
    std::unique_ptr<Sorting> sort_;
    const KeyedInput* orderedInput_ = nullptr;  // of the sort
    const OrderedSort* orderedSort_ = nullptr;  // the sort, where it is one
    MemoryPlan memoryPlan_ = {};
    int processCount_ = 1;
    std::int64_t copiedBytes_ = 0;
    StageCost readCost_;
};

}  // namespace tvsort::tools
