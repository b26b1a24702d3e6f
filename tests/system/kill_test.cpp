// Processes killed at any moment: the next one on the slot, and the next run of the command, are
// not disturbed by what they leave.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

#include "protocol/slot_layout.h"
#include "tests/fault/shaped_case.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr int kKills = 300;
constexpr std::int32_t kMemoryPages = 20;

// One server, whose processes are killed in the middle of their requests.
class KilledProcess : public testing::Test {
  protected:
    KilledProcess() : server_(options()), slot_(server_.slot(1)) {}

    static host::ServerOptions options() {
        host::ServerOptions options;
        options.processPath = TVSORT_PROGRAM;
        options.memoryPages = kMemoryPages;
        options.pagesPerBlock = 1;
        options.requestTimeout = host::Timeout{20000};
        return options;
    }

    // The shortest of a few.
    microseconds timeOf(const ShapedCase& shaped) {
        microseconds least = microseconds::max();
        for (int i = 0; i < 5; ++i) {
            const host::LoadedData loaded = shaped.load(slot_, kTenRecordsPerPage);
            const auto start = Clock::now();
            EXPECT_EQ(slot_.ask(shaped.request(), kTenRecordsPerPage, loaded.extent).errorCode, 0U);
            const auto time = Clock::now() - start;
            least = std::min(least, std::chrono::duration_cast<microseconds>(time));
        }
        return least;
    }

    // True when the kill came before the reply.
    bool killAfter(const ShapedCase& shaped, microseconds delay) {
        const host::LoadedData loaded = shaped.load(slot_, kTenRecordsPerPage);
        slot_.connection().send(shaped.request().build(kTenRecordsPerPage, loaded.extent),
                                host::Timeout{20000});
        const auto end = Clock::now() + delay;
        while (Clock::now() < end)
            continue;  // a sleep would take longer than the sort
        slot_.process().kill();
        EXPECT_EQ(slot_.process().waitStatus(), SIGKILL);
        try {
            slot_.connection().receiveReply(host::Timeout{0});
            return false;
        } catch (const host::HostError& error) {
            EXPECT_EQ(error.kind(), host::FailureKind::kProcessDied);
            return true;
        }
    }

    // What a process that died while it wrote them could leave in its descriptors and hash table.
    void spoilTables(std::mt19937& random) {
        const auto tables = server_.memory().slot(1).subspan(
            static_cast<std::size_t>(SlotLayout{kMemoryPages, 1}.pageDescriptorsOffset()));
        for (Byte& byte : tables)
            byte = static_cast<Byte>(random());
    }

    host::SortServer server_;
    host::SortSlot& slot_;
};

TEST_F(KilledProcess, LeavesNothingThatDisturbsTheNextOne) {
    const std::vector<ShapedCase> cases = shapedCases(10);
    std::vector<microseconds> times;
    times.reserve(cases.size());
    for (const ShapedCase& shaped : cases)
        times.push_back(timeOf(shaped));
    int beforeReply = 0;
    for (unsigned seed = 1; seed <= kKills; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const std::size_t chosen = random() % cases.size();
        const microseconds delay{random() % static_cast<unsigned>(times[chosen].count() + 1)};
        beforeReply += killAfter(cases[chosen], delay) ? 1 : 0;
        if (seed % 2 == 0) spoilTables(random);
        slot_.start();
        cases[random() % cases.size()].expectServed(slot_, kTenRecordsPerPage);
        if (HasFailure()) return;
    }
    std::printf("%d processes killed (seeds 1 to %d), %d of them before their reply\n", kKills,
                kKills, beforeReply);
    RecordProperty("killedBeforeReply", beforeReply);
    EXPECT_GT(beforeReply, kKills / 4);
}

class KilledCommand : public CommandTest {
  protected:
    KilledCommand() {
        std::filesystem::create_directory(folder() / "temp");
        setenv("TMPDIR", (folder() / "temp").c_str(), 1);
        // A sort process with a killer behind it.
        write("process",
              "#!/bin/sh\n(sleep $KILL_AFTER; kill -9 $$) </dev/null >/dev/null 2>&1 &\n"
              "exec '" TVSORT_PROGRAM "' \"$@\"\n");
        chmod((folder() / "process").c_str(), 0755);
        EXPECT_EQ(run("generate --records 20000 --seed 7 -o records").errors, "");
    }
    ~KilledCommand() override {
        unsetenv("TMPDIR");
        unsetenv("KILL_AFTER");
    }

    Outcome sort(const std::string& more) {
        return run(
            "sort records -o out --record-length 100 --key bytes:0:10 --memory 20K "
            "--block-pages 1 " +
            more);
    }
    std::vector<std::string> hiddenOutputs() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            const std::string name = entry.path().filename();
            if (name.starts_with(".out.")) names.push_back(name);
        }
        return names;
    }
};

TEST_F(KilledCommand, IsSweptUpByTheNextOne) {
    // Its input never ends; it is killed with a work file and a beginning of an output.
    const std::string line = "cd '" + folder().string() + "' && mkfifo endless && exec '" +
                             TVSORT_HOST_PROGRAM
                             "' sort - -o out --record-length 100 "
                             "--key bytes:0:10 <>endless";
    const pid_t command = fork();
    if (command == 0) {
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }
    const auto leftovers = [this] {
        using Entries = std::filesystem::recursive_directory_iterator;
        return std::distance(Entries(folder() / "temp"), Entries());
    };
    for (int i = 0; i < 1000 && leftovers() < 4; ++i)
        usleep(10000);
    const Outcome meanwhile = sort("");
    EXPECT_EQ(meanwhile.status, 0) << meanwhile.errors;
    EXPECT_EQ(leftovers(), 4) << "a directory, its marker, a socket and a work file, all in use";
    kill(command, SIGKILL);
    waitpid(command, nullptr, 0);
    EXPECT_EQ(leftovers(), 4);
    EXPECT_EQ(sort("").status, 0);
    EXPECT_EQ(leftovers(), 0);
    const int nameless = open(folder().c_str(), O_TMPFILE | O_WRONLY, 0600);
    if (nameless < 0) return;  // here an output needs a name from the beginning
    close(nameless);
    EXPECT_THAT(hiddenOutputs(), testing::IsEmpty());
}

TEST_F(KilledCommand, ReportsItsKilledProcessAndSucceedsWhenRunAgain) {
    const auto start = Clock::now();
    ASSERT_EQ(sort("").status, 0);
    const std::chrono::duration<double> whole = Clock::now() - start;
    std::filesystem::remove(folder() / "out");
    int reported = 0;
    for (unsigned seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const double delay = whole.count() * static_cast<double>(random() % 700) / 1000;
        setenv("KILL_AFTER", std::to_string(delay).c_str(), 1);
        const Outcome killed = sort("--process ./process");
        EXPECT_TRUE(std::filesystem::is_empty(folder() / "temp"));
        EXPECT_THAT(hiddenOutputs(), testing::IsEmpty());
        if (killed.status == 0) {  // it was done before
            std::filesystem::remove(folder() / "out");
            continue;
        }
        reported += 1;
        EXPECT_EQ(killed.status, 2);
        EXPECT_THAT(killed.errors, testing::HasSubstr("signal 9"));
        EXPECT_FALSE(std::filesystem::exists(folder() / "out"));
        EXPECT_EQ(sort("").status, 0);
        EXPECT_EQ(run("verify out --record-length 100 --key bytes:0:10").status, 0);
        std::filesystem::remove(folder() / "out");
    }
    std::printf("%d of 20 commands lost their process\n", reported);
    EXPECT_GT(reported, 0);
}

}  // namespace
}  // namespace tvsort::test
