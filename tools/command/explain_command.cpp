#include "tools/command/explain_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/data_set.h"
#include "host/sort_method.h"
#include "tools/command/subcommands.h"
#include "tools/files/interrupt.h"
#include "tools/formats/records/record_layout.h"
#include "tools/run/spill_forecast.h"

namespace tvsort::tools {

namespace {

constexpr std::size_t kPieceRecords = 64;
constexpr std::int32_t kFramesMin = 5;
// The frames of a slot are addressed with 32 bits.
constexpr std::int64_t kSlotPagesMax = (std::int64_t{1} << 32) / kPageBytes - 64;
constexpr std::uint64_t kMemoryPagesMax = std::uint64_t{1} << 21;

// What one request would have to do.
struct Question {
    host::RequestBuilder request;
    std::int32_t recordCount = 0;
};

// Reads the records and keeps what the request is about.
class QuestionList {
  public:
    SortStats take(const SortRequest& request, const host::RecordSource& source) {
        Question question = {request.request};
        std::vector<Byte> piece(kPieceRecords * request.recordLength);
        while (const std::size_t count = source(piece.data(), kPieceRecords)) {
            throwIfInterrupted();
            question.recordCount += static_cast<std::int32_t>(count);
        }
        questions_.push_back(std::move(question));
        return {};
    }
    const std::vector<Question>& questions() const { return questions_; }

  private:
    std::vector<Question> questions_;
};

// A question in so much memory.
struct Prospect : SpillForecast {
    host::MethodForecast method;
};

Prospect prospectIn(const MemoryPlan& plan, SortSetup& setup, const Question& question) {
    Prospect prospect = {forecastSpill(plan, setup.processCount(), setup.sort().recordLength(),
                                       question.recordCount),
                         {}};
    prospect.method = host::forecastMethod(question.request, prospect.geometry, prospect.extent,
                                           prospect.frameCount);
    return prospect;
}

// The least number of pages, from `from` on, for which it holds; above kMemoryPagesMax for none.
std::uint64_t leastFor(const std::function<bool(std::uint64_t pages)>& holds, std::uint64_t from) {
    if (holds(from)) return from;
    std::uint64_t low = from;
    std::uint64_t high = 2 * from;
    while (high <= kMemoryPagesMax && !holds(high)) {
        low = high;
        high *= 2;
    }
    while (high <= kMemoryPagesMax && low + 1 < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        (holds(middle) ? high : low) = middle;
    }
    return high;
}

bool fitsWithEntries(const Prospect& prospect) {
    return prospect.method.reason == host::MethodReason::kEntries ||
           prospect.method.reason == host::MethodReason::kCopies;
}

std::string hexLines(const std::vector<Byte>& bytes) {
    constexpr std::size_t kPerLine = 16;
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % kPerLine == 0) text += fmt::format("  {:>5} ", i);
        text += fmt::format(" {:02x}", bytes[i]);
        if (i % kPerLine == kPerLine - 1 || i + 1 == bytes.size()) text += "\n";
    }
    return text;
}

std::string diskLine(SortSetup& setup, const std::string& files) {
    const std::int64_t copies = setup.copiedBytes();
    const std::string rest =
        copies > 0 ? fmt::format(", {} of inputs, copied or unpacked", copies) : "";
    return fmt::format("disk      {}{}\n", files, rest);
}

// --memory as somebody would write it.
std::string memoryWords(std::uint64_t pages) {
    constexpr std::uint64_t kKilo = 1024;
    return fmt::format("--memory {}K", pages * static_cast<std::uint64_t>(kPageBytes) / kKilo);
}

// Of a sort by ordered keys, whose runs are planned from the first rows.
std::string explainRuns(SortSetup& setup, bool hex) {
    const OrderedSort& sort = *setup.orderedSort();
    const RunFacts& facts = sort.facts();
    const RunPlan& plan = sort.plan();
    const auto rows = static_cast<std::int64_t>(
        std::min(facts.rowCount / std::max<std::uint64_t>(plan.chunkCount, 1) + 1, facts.rowCount));
    const SpillForecast slot = forecastSpill(setup.memoryPlan(), 1, sort.recordLength(), rows);
    const auto stays = [&](std::uint64_t pages) {
        PlanSetting setting = setup.planSetting();
        setting.memoryBytes = pages * static_cast<std::uint64_t>(kPageBytes);
        return planRuns(facts, setting).stays;
    };
    const std::string change = memoryWords(leastFor(stays, 1));
    std::string text = fmt::format("record    {} bytes\n{}", sort.recordLength(),
                                   describeLayout(sort.request(), sort.fields()));
    text += fmt::format("rows      {}{}\n", facts.isExact ? "" : "about ", facts.rowCount);
    text +=
        fmt::format("runs      {} of {} rows, made by {} process{}\n", plan.chunkCount,
                    facts.isExact && plan.chunkCount == 1 ? "all" : fmt::format("about {}", rows),
                    plan.workerCount, plan.workerCount == 1 ? "" : "es");
    text +=
        fmt::format("slot      {} bytes of shared memory{}\n", slot.slotBytes,
                    plan.workerCount > 1 ? fmt::format(" in each of {}", plan.workerCount) : "");
    text += plan.stays
                ? fmt::format("fits      yes; runs go to temporary files below {}\n", change)
                : fmt::format(
                      "fits      no, runs go to temporary files; all stay in memory from {} on\n",
                      change);
    const host::MethodForecast method =
        host::forecastMethod(sort.request(), slot.geometry, slot.extent, slot.frameCount);
    text += fmt::format("method    {} in each run{}\n",
                        method.reason == host::MethodReason::kCopies    ? "copy sort"
                        : method.reason == host::MethodReason::kEntries ? "entry sort"
                                                                        : "quicksort",
                        plan.chunkCount > 1 ? ", and a merge" : "");
    text += diskLine(
        setup, plan.stays ? "no temporary file"
                          : fmt::format("about {} bytes of temporary files", facts.inputBytes));
    const std::vector<Byte> bytes = sort.request().build(slot.geometry, slot.extent, 1);
    text += fmt::format("request   {} bytes\n", bytes.size());
    return hex ? text + hexLines(bytes) : text;
}

class Explanation {
  public:
    Explanation(SortSetup& setup, const Question& question)
        : setup_(setup),
          question_(question),
          now_(prospectIn(setup.memoryPlan(), setup, question)) {}

    std::string text(std::size_t requestCount, bool hex) const {
        std::string text = fmt::format("record    {} bytes\n{}", now_.geometry.recordLength,
                                       describeLayout(question_.request, setup_.sort().fields()));
        text += fmt::format("records   {}\n", question_.recordCount);
        text += fmt::format("blocks    {} of {} bytes, {} records each\n", now_.extent.fileBlocks,
                            now_.geometry.blockBytes(), now_.geometry.recordsPerBlock);
        text += fmt::format("frames    {} in {} bytes of memory\n", now_.frameCount,
                            setup_.memoryPlan().pages * kPageBytes);
        text += slot() + "fits      " + fits() + "\nmethod    " + method() + "\n" + disk();
        const std::vector<Byte> bytes = question_.request.build(now_.geometry, now_.extent, 1);
        text += fmt::format("request   {} bytes", bytes.size());
        if (requestCount > 1) {
            text += fmt::format(
                ", the first of {}; the later ones take up the result of the one before",
                requestCount);
        }
        text += "\n";
        return hex ? text + hexLines(bytes) : text;
    }

  private:
    std::string fits() const {
        const std::string change = changeAt([](const Prospect& prospect) { return prospect.fits; });
        if (now_.fits && change.empty()) return "yes, in any memory that makes a pool";
        if (now_.fits) return fmt::format("yes; blocks spill below {}", change);
        return fmt::format(
            "no, {} blocks spill to the work file; all fit from {} on",
            now_.extent.fileBlocks - std::int64_t{now_.frameCount} * setup_.processCount(), change);
    }

    std::string slot() const {
        const int processes = setup_.processCount();
        return fmt::format("slot      {} bytes of shared memory{}\n", now_.slotBytes,
                           processes > 1 ? fmt::format(" in each of {}", processes) : "");
    }

    std::string disk() const {
        const std::string warning = spillWarning(now_.workFileBytes(), setup_.inputBytes());
        return diskLine(setup_, fmt::format("{} bytes of work file", now_.workFileBytes())) +
               (warning.empty() ? "" : "warning   that is " + warning + "\n");
    }

    std::string method() const {
        if (setup_.sortsTypedRuns())
            return "entry or copy sort of runs that fit a slot each, and a merge";
        const auto& keys = question_.request.keys();
        const std::int64_t frames = now_.method.framesWanted;
        switch (now_.method.reason) {
            case host::MethodReason::kEntries:
                return fmt::format(
                    "entry sort: {} frames are enough for the blocks and an entry for each "
                    "record; slower below {}{}",
                    frames, changeAt(fitsWithEntries), floatNote());
            case host::MethodReason::kCopies:
                return fmt::format(
                    "copy sort: {} frames are enough for the blocks and for entries or a copy; "
                    "slower below {}",
                    frames, changeAt(fitsWithEntries));
            case host::MethodReason::kBlocks:
                return fmt::format("block distribution{}; entry or copy sort from {} on{}",
                                   movedNote(), changeAt(fitsWithEntries), floatNote());
            case host::MethodReason::kHierarchy:
                return "hierarchy sort, in any memory";
            case host::MethodReason::kFewRecords:
                return fmt::format("quicksort, in any memory: there are fewer than {} records",
                                   host::kEntryCountMin);
            case host::MethodReason::kKeyType:
                return fmt::format("quicksort, in any memory: key {}, {}, must be compared",
                                   now_.method.keyIndex + 1, typeWord(keys[now_.method.keyIndex]));
            case host::MethodReason::kTooFewFrames:
                break;
        }
        return fmt::format(
            "quicksort{}: entries beside the blocks want {} frames; entry or copy sort from {} "
            "on{}",
            movedNote(), frames, changeAt(fitsWithEntries), floatNote());
    }

    std::string movedNote() const {
        if (now_.fits) return "";
        return fmt::format(", moves about {} bytes between memory and work file",
                           host::forecastMovedBytes(now_.method.reason, now_.geometry, now_.extent,
                                                    now_.frameCount));
    }

    std::string floatNote() const {
        if (!now_.method.unlessFloatsTie) return "";
        return ", and where unlike floats count as equal";
    }

    // The least --memory at which it holds, taken for one from which on it holds; empty where that
    // is the least with which the process sorts.
    std::string changeAt(const std::function<bool(const Prospect&)>& holds) const {
        MemoryRequest request = setup_.memoryRequest();
        const auto holdsIn = [&](std::uint64_t pages) {
            request.memoryBytes = pages * static_cast<std::uint64_t>(kPageBytes);
            const MemoryPlan plan = planMemory(request);
            return plan.pages >= plan.blockPages && plan.pages <= kSlotPagesMax &&
                   holds(prospectIn(plan, setup_, question_));
        };
        const auto makesPool = [&](std::uint64_t pages) {
            request.memoryBytes = pages * static_cast<std::uint64_t>(kPageBytes);
            const MemoryPlan plan = planMemory(request);
            return plan.pages / plan.blockPages >= kFramesMin;
        };
        const std::uint64_t least = leastFor(makesPool, 1);
        const std::uint64_t change = leastFor(holdsIn, least);
        if (change > kMemoryPagesMax) return "no --memory that a process can have";
        if (change == least) return "";
        return memoryWords(change);
    }

    SortSetup& setup_;
    const Question& question_;
    Prospect now_;
};

}  // namespace

void explainSort(const ExplainOptions& options) {
    SortOptions sortOptions = options.sort;
    // Nothing is sorted, and nothing is written there.
    sortOptions.output.clear();
    SortSetup setup(sortOptions);
    const auto print = [&setup](const std::string& text) {
        setup.output().write(reinterpret_cast<const Byte*>(text.data()), text.size());
        setup.output().finish();
    };
    if (setup.orderedSort() != nullptr) return print(explainRuns(setup, options.hex));
    QuestionList list;
    setup.sort().shape([&](const SortRequest& request, const host::RecordSource& source,
                           const host::RecordSink&) { return list.take(request, source); });
    print(setup.errors().report() +
          Explanation(setup, list.questions().front()).text(list.questions().size(), options.hex));
}

void addExplainCommand(CLI::App& app, int& exitStatus) {
    const auto options = std::make_shared<ExplainOptions>();
    CLI::App& command = *app.add_subcommand(
        "explain", "Print what a sort with these options would ask of the process");
    addSortOptions(command, options->sort);
    command.add_flag("--hex", options->hex, "Print the request's bytes too");
    command.callback([options, &exitStatus] {
        explainSort(*options);
        exitStatus = kStatusSuccess;
    });
}

}  // namespace tvsort::tools
