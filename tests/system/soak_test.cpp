// Many requests of changing shape in one process: its memory, its mappings and its descriptors stay
// what they were, and it never asks for heap memory.
//
// TVSORT_SOAK_REQUESTS sets another number of requests (scripts/soak).

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

#include "tests/fault/fault_injector.h"
#include "tests/fault/shaped_case.h"

#if defined(__SANITIZE_ADDRESS__)
#define TVSORT_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TVSORT_SANITIZED 1
#endif
#endif

namespace tvsort::test {
namespace {

#if defined(TVSORT_SANITIZED)
constexpr bool kSanitized = true;
constexpr int kRequestsDefault = 2000;
#else
constexpr bool kSanitized = false;
constexpr int kRequestsDefault = 10000;
#endif

constexpr std::int32_t kPagesPerBlock = 4;
constexpr int kStackKilobytes = 64;
// Arguments, environment and the dynamic loader's own use included.
constexpr std::int64_t kStackUsedKilobytesMax = 40;

// What a process is given to do.
struct Load {
    const char* name;
    std::int32_t memoryPages;
    std::vector<std::int32_t> scales;  // hundreds of records
    std::size_t recordLengthMax;
    int requestsPerHundred;  // of the number that is asked for
    // Every page that requests can touch has been touched by then.
    int warmUpRequests;
};

std::ostream& operator<<(std::ostream& out, const Load& load) {
    return out << load.name;
}

// A pool that most data sets exceed, and one that holds them twice, so that all but the smallest
// are sorted by entries or by a copy.
const Load kLoads[] = {{"Spilling", 20, {1, 2, 4}, 700, 100, 1000},
                       {"Fitting", 256, {1, 100, 120}, 60, 10, 3000}};

int requestCount(const Load& load) {
    const char* const text = std::getenv("TVSORT_SOAK_REQUESTS");
    const int asked = text == nullptr ? kRequestsDefault : std::atoi(text);
    return load.warmUpRequests + asked / 100 * load.requestsPerHundred;
}

// What the system knows of a running process.
class Proc {
  public:
    explicit Proc(pid_t id) : directory_("/proc/" + std::to_string(id)) {}

    std::string text(const char* name) const {
        std::ifstream file(directory_ / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::map<std::string, std::string> descriptors() const {
        std::map<std::string, std::string> open;
        for (const auto& entry : std::filesystem::directory_iterator(directory_ / "fd"))
            open[entry.path().filename()] = std::filesystem::read_symlink(entry.path());
        return open;
    }
    // The number behind `name`, in kilobytes, in a text of "Name: number kB" lines, from the line
    // that contains `from` on.
    std::int64_t kilobytes(const char* file, const std::string& from,
                           const std::string& name) const {
        const std::string all = text(file);
        const std::size_t place = all.find("\n" + name + ":", all.find(from));
        if (place == std::string::npos) return -1;
        return std::atoll(all.c_str() + place + name.size() + 2);
    }
    std::int64_t residentKilobytes() const { return kilobytes("smaps_rollup", "", "Rss"); }
    std::int64_t stackKilobytes() const { return kilobytes("smaps", "[stack]", "Rss"); }

  private:
    std::filesystem::path directory_;
};

host::ServerOptions optionsFor(const Load& load, const FaultInjector& counter) {
    host::ServerOptions options;
    options.processPath = TVSORT_PROGRAM;
    options.memoryPages = load.memoryPages;
    options.pagesPerBlock = kPagesPerBlock;
    options.requestTimeout = host::Timeout{20000};
    options.environment = counter.environment();
    if (!kSanitized) {
        options.launcher = {
            "/bin/sh", "-c",
            "ulimit -s " + std::to_string(kStackKilobytes) + " && exec \"$0\" \"$@\""};
    }
    return options;
}

class Soak : public testing::TestWithParam<Load> {
  protected:
    Soak()
        : server_(optionsFor(GetParam(), counter_)),
          slot_(server_.slot(1)),
          proc_(slot_.process().id()) {
        for (const std::int32_t scale : GetParam().scales) {
            for (ShapedCase& shaped : shapedCases(scale))
                cases_.push_back(std::move(shaped));
        }
    }

    // Any case, in records and blocks of any size; now and then one that is refused.
    void serveAny() {
        const ShapedCase& shaped = cases_[below(cases_.size())];
        const auto recordLength =
            static_cast<std::uint16_t>(24 + below(GetParam().recordLengthMax - 23));
        const auto blockPages = static_cast<std::int32_t>(1 + below(kPagesPerBlock));
        const host::Geometry geometry = host::chooseGeometry(recordLength, blockPages);
        if (below(20) == 0) {
            const host::LoadedData loaded = shaped.load(slot_, geometry);
            ASSERT_EQ(slot_.ask({}, geometry, loaded.extent).errorCode, 1410U);
        } else {
            shaped.expectServed(slot_, geometry);
        }
    }
    std::size_t below(std::size_t bound) { return random_() % bound; }

    std::mt19937 random_{20261};
    FaultInjector counter_;
    host::SortServer server_;
    host::SortSlot& slot_;
    Proc proc_;
    std::vector<ShapedCase> cases_;
};

TEST_P(Soak, MemoryMappingsAndDescriptorsStayWhatTheyWere) {
    const int warmUp = GetParam().warmUpRequests;
    const int requests = requestCount(GetParam());
    for (int i = 0; i < warmUp; ++i)
        ASSERT_NO_FATAL_FAILURE(serveAny());
    const std::string mappings = proc_.text("maps");
    const auto descriptors = proc_.descriptors();
    const std::int64_t resident = proc_.residentKilobytes();
    for (int i = warmUp; i < requests; ++i)
        ASSERT_NO_FATAL_FAILURE(serveAny());
    const std::int64_t stack = proc_.stackKilobytes();
    std::printf("%d requests, %lld kB resident, %lld kB of stack\n", requests,
                static_cast<long long>(resident), static_cast<long long>(stack));
    RecordProperty("requests", requests);
    RecordProperty("residentKilobytes", std::to_string(resident));
    RecordProperty("stackKilobytes", std::to_string(stack));

    EXPECT_EQ(proc_.descriptors(), descriptors);
    if (kSanitized) return;  // which has a heap, mappings and a stack of its own
    EXPECT_GT(resident, 0);
    EXPECT_LE(proc_.residentKilobytes(), resident);
    EXPECT_EQ(proc_.text("maps"), mappings);
    EXPECT_THAT(mappings, testing::Not(testing::HasSubstr("[heap]")));
    EXPECT_EQ(counter_.heapCalls(), 0);
    EXPECT_THAT(proc_.text("limits"), testing::ContainsRegex("Max stack size +65536 "));
    EXPECT_GT(stack, 0);
    EXPECT_LE(stack, kStackUsedKilobytesMax);
}

INSTANTIATE_TEST_SUITE_P(OfLoads, Soak, testing::ValuesIn(kLoads),
                         [](const auto& load) { return load.param.name; });

// The count above would show a heap call.
TEST(HeapCalls, OfAProgramThatMakesSomeAreCounted) {
    const FaultInjector counter;
    host::SortProcess shell({.program = "/bin/sh",
                             .arguments = {"-c", "test -n a"},
                             .environment = counter.environment()});
    ASSERT_TRUE(shell.waitForEnd(host::Timeout{20000}));
    EXPECT_EQ(shell.waitStatus(), 0);
    EXPECT_GT(counter.heapCalls(), 0);
}

}  // namespace
}  // namespace tvsort::test
