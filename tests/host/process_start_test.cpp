// The walls around a process, seen from the system's side.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "host/sort_server.h"

namespace tvsort::host {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

#ifdef __has_feature
constexpr bool kIsSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

constexpr Timeout kSoon{20000};
constexpr Geometry kTenPerPage = {400, 1, 10};

ServerOptions smallOptions() {
    ServerOptions options;
    options.processPath = TVSORT_PROGRAM;
    options.memoryPages = 5;
    options.pagesPerBlock = 1;
    options.requestTimeout = kSoon;
    return options;
}

std::filesystem::path procOf(pid_t id) {
    return "/proc/" + std::to_string(id);
}

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The line of /proc/PID/limits, with the soft and the hard limit behind its name.
std::string limitLine(pid_t id, const std::string& name) {
    const std::string limits = contentOf(procOf(id) / "limits");
    const std::size_t start = limits.find(name);
    return limits.substr(start, limits.find('\n', start) - start);
}

// So many records of 400 bytes, their numbers falling.
RecordSource falling(std::int32_t count) {
    return [count](Byte* target, std::size_t recordsMax) mutable {
        std::size_t made = 0;
        for (; made < recordsMax && count > 0; ++made, --count) {
            std::fill_n(target + made * 400, 400, Byte{0});
            storeAs(target + made * 400, count);
        }
        return made;
    };
}

RequestBuilder byNumber() {
    return RequestBuilder().addKey(ascendingKey(DataType::kInteger, 0, 4));
}

TEST(ProcessWalls, StandAroundEveryProcess) {
    ServerOptions options = smallOptions();
    options.fileBytesMax = 1234567;
    SortServer server(options);
    const pid_t id = server.slot(1).process().id();
    EXPECT_THAT(limitLine(id, "Max core file size"), ContainsRegex("size +0 +0 "));
    EXPECT_THAT(limitLine(id, "Max file size"), ContainsRegex("1234567 +1234567"));
    if (kIsSanitized) return;
    const std::int64_t limit = server.memory().layout().slotBytes() + kProcessOwnBytes;
    EXPECT_THAT(limitLine(id, "Max address space"), HasSubstr(" " + std::to_string(limit) + " "));
    const std::string status = contentOf(procOf(id) / "status");
    const std::int64_t own = std::atoll(status.c_str() + status.find("VmPeak:") + 7) * 1024 -
                             server.memory().layout().slotBytes();
    RecordProperty("ownBytes", std::to_string(own));
    EXPECT_LT(own, kProcessOwnBytes * 3 / 4) << "the reserve is used up";
}

TEST(ProcessWalls, TheFilesEndWhereTheDataSetDoesWhileARequestIsServed) {
    SortServer* watched = nullptr;
    std::string during;
    ServerOptions options = smallOptions();
    options.whileWaiting = [&] {
        if (watched == nullptr) return;
        const std::string line = limitLine(watched->slot(1).process().id(), "Max file size");
        if (during.empty()) during = line;
    };
    SortServer server(options);
    SortSlot& slot = server.slot(1);
    const LoadedData loaded = slot.load(kTenPerPage, falling(95));
    // A process that is stopped serves for as long as the test looks.
    slot.process().sendSignal(SIGSTOP);
    watched = &server;
    std::thread later([id = slot.process().id()] {
        std::this_thread::sleep_for(std::chrono::milliseconds{200});
        kill(id, SIGCONT);
    });
    EXPECT_EQ(slot.ask(byNumber(), kTenPerPage, loaded.extent).errorCode, 0U);
    later.join();
    EXPECT_THAT(during, ContainsRegex("size +40960 +unlimited"));
    EXPECT_THAT(limitLine(slot.process().id(), "Max file size"),
                ContainsRegex("unlimited +unlimited"));
}

TEST(ProcessWalls, TheSharedObjectsSizeIsSealedAndTheProcessHoldsItNoMore) {
    SortServer server(smallOptions());
    const int object = server.memory().descriptor();
    EXPECT_NE(ftruncate(object, 0), 0);
    EXPECT_NE(ftruncate(object, 1 << 30), 0);
    EXPECT_NE(fcntl(object, F_ADD_SEALS, F_SEAL_WRITE), 0);
    SortSlot& slot = server.slot(1);
    slot.sort(byNumber(), kTenPerPage, falling(95));  // the process has mapped it
    for (const auto& entry :
         std::filesystem::directory_iterator(procOf(slot.process().id()) / "fd")) {
        EXPECT_THAT(std::filesystem::read_symlink(entry).string(),
                    testing::Not(HasSubstr("memfd:")));
    }
}

// A host that starts a process, says its id, and then waits or lets the starting thread end.
pid_t startInHost(pid_t& host, bool inEndingThread, bool endsWithStarter) {
    int ends[2];
    if (pipe(ends) != 0) abort();
    host = fork();
    if (host == 0) {
        const auto start = [&] {
            SortProcess* const child =
                new SortProcess({.program = "/bin/sleep",
                                 .arguments = {"60"},
                                 .environment = {},
                                 .limits = {.fileBytes = kNoLimit,
                                            .addressBytes = kNoLimit,
                                            .endsWithStarter = endsWithStarter}});
            const pid_t id = child->id();
            if (write(ends[1], &id, sizeof id) < 0) _exit(1);
        };
        if (inEndingThread) {
            std::thread(start).join();
        } else {
            start();
        }
        for (;;)
            pause();
    }
    pid_t id = 0;
    EXPECT_EQ(read(ends[0], &id, sizeof id), static_cast<ssize_t>(sizeof id));
    close(ends[0]);
    close(ends[1]);
    return id;
}

bool endsSoon(pid_t id) {
    for (int i = 0; i < 200; ++i) {
        const std::string status = contentOf(procOf(id) / "status");
        if (status.empty() || status.find("State:\tZ") != std::string::npos) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    return false;
}

TEST(ProcessWalls, AProcessEndsWithWhoStartedIt) {
    pid_t host = 0;
    const pid_t child = startInHost(host, false, true);
    EXPECT_TRUE(std::filesystem::exists(procOf(child)));
    kill(host, SIGKILL);
    waitpid(host, nullptr, 0);
    EXPECT_TRUE(endsSoon(child));
}

TEST(ProcessWalls, TheStarterIsTheThreadUnlessTurnedOff) {
    pid_t host = 0;
    EXPECT_TRUE(endsSoon(startInHost(host, true, true)));
    kill(host, SIGKILL);
    waitpid(host, nullptr, 0);

    const pid_t child = startInHost(host, true, false);
    std::this_thread::sleep_for(std::chrono::milliseconds{200});
    EXPECT_THAT(contentOf(procOf(child) / "status"), HasSubstr("State:\tS"));
    kill(child, SIGKILL);
    kill(host, SIGKILL);
    waitpid(host, nullptr, 0);
}

TEST(ProcessStart, AProgramIsLookedUpAndWhatCannotRunIsNamed) {
    SortProcess found({.program = "true", .arguments = {}, .environment = {}});
    EXPECT_TRUE(found.waitForEnd(kSoon));
    EXPECT_EQ(found.waitStatus(), 0);
    for (const char* const program : {"/no/such/program", "no-such-program", "/etc/passwd"}) {
        try {
            SortProcess process({.program = program, .arguments = {}, .environment = {}});
            ADD_FAILURE() << program;
        } catch (const HostError& error) {
            EXPECT_EQ(error.systemError(), program[1] == 'e' ? EACCES : ENOENT);
            EXPECT_THAT(error.what(), HasSubstr(program));
        }
    }
}

bool stopsChildren = false;

// Stopped before its program runs, a child tells nobody anything.
TEST(ProcessStart, OfAStoppedChildIsGivenUp) {
    ASSERT_EQ(pthread_atfork(nullptr, nullptr,
                             [] {
                                 if (stopsChildren) raise(SIGSTOP);
                             }),
              0);
    struct GivenUp {};
    ServerOptions inTime = smallOptions();
    inTime.startTimeout = Timeout{50};
    ServerOptions onAsking = smallOptions();
    onAsking.whileWaiting = [] { throw GivenUp(); };
    stopsChildren = true;
    try {
        const SortServer server(inTime);
        ADD_FAILURE() << "it has started";
    } catch (const HostError& error) {
        EXPECT_EQ(error.kind(), FailureKind::kTimedOut);
        EXPECT_THAT(error.what(),
                    ContainsRegex("process [0-9]+. let the time run out while it was"));
    }
    EXPECT_THROW(SortServer{onAsking}, GivenUp);
    stopsChildren = false;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

// Whatever the host ignores or holds back.
TEST(ProcessStart, HostsNeedNoStandardStreams) {
    constexpr int kServed = 7;
    for (const int last : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const pid_t host = fork();
        if (host == 0) {
            ProcessStart absent;
            absent.program = "/absent/program";
            constexpr int kOutput = 10;
            dup2(open("/dev/null", O_WRONLY), kOutput);
            for (int stream = STDIN_FILENO; stream <= last; ++stream)
                close(stream);
            try {
                startProcess(absent, kOutput);
                _exit(3);
            } catch (const HostError& error) {
                if (error.systemError() != ENOENT) _exit(1);
            }
            try {
                SortServer server(smallOptions());
                const SortResult result = server.slot(1).sort(byNumber(), kTenPerPage, falling(95));
                _exit(result.reply.recordCount == 95 ? kServed : 2);
            } catch (const HostError&) {
                _exit(4);
            }
        }
        int status = 0;
        ASSERT_EQ(waitpid(host, &status, 0), host);
        EXPECT_EQ(WEXITSTATUS(status), kServed) << last;
    }
}

TEST(ProcessStart, SignalsAreAsAtFirst) {
    sigset_t held;
    sigset_t before;
    sigemptyset(&held);
    sigaddset(&held, SIGUSR1);
    sigprocmask(SIG_BLOCK, &held, &before);
    const auto handler = signal(SIGUSR2, SIG_IGN);
    SortServer server(smallOptions());
    const std::string status = contentOf(procOf(server.slot(1).process().id()) / "status");
    signal(SIGUSR2, handler);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    EXPECT_THAT(status, HasSubstr("SigBlk:\t0000000000000000"));
    // The process itself ignores SIGPIPE (13) and SIGXFSZ (25).
    EXPECT_THAT(status, HasSubstr("SigIgn:\t0000000001001000"));
}

// One that never stops printing must not stop the clock.
TEST(ProcessOutput, WithoutEndLetsTheTimeRunOut) {
    SortProcess process({.program = "yes", .arguments = {}, .environment = {}});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(process.waitForEnd(Timeout{300}));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{5});
    EXPECT_LE(process.outputText().size(), 65536U);
}

}  // namespace
}  // namespace tvsort::host
