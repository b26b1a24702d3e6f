// The built process from outside: start-up, channel, and what it costs the operating system.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "protocol/slot_layout.h"
#include "tests/system/numbers_sorted.h"

namespace tvsort::host {
namespace {

using testing::HasSubstr;

struct Ended {
    int status;
    std::string text;
};

Ended runToEnd(const std::vector<std::string>& arguments) {
    SortProcess process({.program = TVSORT_PROGRAM, .arguments = arguments, .environment = {}});
    EXPECT_TRUE(process.waitForEnd(kSoon));
    return {process.waitStatus().value_or(-1), process.outputText()};
}

TEST(StartUp, ArgumentsThatCannotBeUsedAreRefusedWithStatusZero) {
    constexpr char kLine[] =
        " Bad sorting process arguments (only %s memory pages, %s pages per block)\n";
    struct Case {
        std::vector<std::string> arguments;
        const char* pages;
        const char* perBlock;
    };
    const Case cases[] = {
        {{"39", "1", "5", "/tmp/", "8"}, "39", "8"},
        {{"39", "1", "5", "/tmp/", "0x8"}, "39", "8"},
        {{"39", "1", "5", "/tmp/", "010"}, "39", "8"},
        {{"40x", "1", "5", "/tmp/", "8"}, "40", "8"},
        {{"", "1", "5", "/tmp/", "8"}, "0", "8"},
        {{"40", "0", "5", "/tmp/", "8"}, "40", "8"},
        {{"40", "65536", "5", "/tmp/", "8"}, "40", "8"},
        {{"40", "1", "five", "/tmp/", "8"}, "40", "8"},
        {{"40", "1", "5", "/tmp/", "0"}, "40", "0"},
        {{"40", "1", "5", "/tmp/", "-8"}, "40", "-8"},
        {{"99999999999", "1", "5", "/tmp/", "8"}, "2147483647", "8"},
        {{"1048576", "1", "5", "/tmp/", "1"}, "1048576", "1"},  // positions beyond 32 bits
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        char line[120];
        std::snprintf(line, sizeof line, kLine, c.pages, c.perBlock);
        const Ended ended = runToEnd(c.arguments);
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.text, line);
    }
    EXPECT_EQ(runToEnd({"40", "1", "5", "/tmp/"}).text, "");
}

TEST(StartUp, AnObjectTooShortForTheSlotIsNotMapped) {
    const int object = memfd_create("short", 0);
    ASSERT_EQ(ftruncate(object, SlotLayout{5, 8}.slotBytes() - 4096), 0);
    SortProcess process({.program = TVSORT_PROGRAM,
                         .arguments = {"40", "1", std::to_string(object), "/tmp/", "8"},
                         .environment = {},
                         .sharedDescriptor = object});
    EXPECT_TRUE(process.waitForEnd(kSoon));
    EXPECT_EQ(process.waitStatus(), 0);
    EXPECT_EQ(process.outputText(), " TVSORT 1  -- can't map shm object. Errno 6");
    close(object);
}

TEST(StartUp, SocketsThatCannotBeReachedAreNamedByTheSystemError) {
    const int object = memfd_create("slot", 0);
    ASSERT_EQ(ftruncate(object, SlotLayout{5, 8}.slotBytes()), 0);
    struct Case {
        std::string directory;
        int systemError;
    };
    const Case cases[] = {
        {"/tmp/no-such-directory", ENOENT},
        {"/" + std::string(90, 'x'), ENAMETOOLONG},  // 108 characters with the socket's name
        {"/" + std::string(88, 'x'), ENOENT},
        {"/" + std::string(226, 'x'), ENAMETOOLONG},
        {"/" + std::string(227, 'x'), ENOENT},  // too long to be taken: /tmp/tavrin instead
    };
    for (const Case& c : cases) {
        SortProcess process({.program = TVSORT_PROGRAM,
                             .arguments = {"40", "1", std::to_string(object), "/tmp/", "8"},
                             .environment = {"TAVRIN_TMP=" + c.directory, "TAVRIN_MBX=7"},
                             .sharedDescriptor = object});
        EXPECT_TRUE(process.waitForEnd(kSoon));
        EXPECT_EQ(process.waitStatus(), 0);
        EXPECT_EQ(process.outputText(),
                  "Tavrin Sort: can't connect to tavrin " + std::to_string(c.systemError) + "\n");
    }
    close(object);
}

TEST(Channel, ShutdownEndsTheProcessEvenAsTheAnswerToItsHello) {
    SortServer server(optionsFor(40, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    const SortReply hello = slot.startUnanswered();
    EXPECT_EQ(hello.errorCode, 0U);
    EXPECT_EQ(hello.processId, slot.process().id());
    slot.connection().sendShutdown(kSoon);
    EXPECT_TRUE(slot.process().waitForEnd(kSoon));
    EXPECT_EQ(slot.process().waitStatus(), 0);
}

TEST(Channel, AWorkFileThatDoesNotOpenIsReportedAndTriedAgain) {
    SortServer server(optionsFor(40, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    const std::filesystem::path path = slot.workFile().path();
    std::filesystem::rename(path, path.string() + ".away");
    slot.startUnanswered();
    slot.connection().sendAnswer("TEMP", kSoon);
    const SortReply refused = slot.connection().receiveReply(kSoon);
    EXPECT_EQ(refused.errorCode, static_cast<std::uint32_t>(ErrorCode::kWorkFileOpen));
    EXPECT_EQ(refused.osError, ENOENT);
    std::filesystem::rename(path.string() + ".away", path);
    expectSorts(slot, 10);
}

TEST(Slots, SeveralProcessesServeTheirOwn) {
    SortServer server(optionsFor(40, 8, 3));
    for (const std::size_t count : {2000U, 20000U, 50U}) {
        for (int number = 1; number <= 3; ++number)
            expectSorts(server.slot(number), count);
    }
    EXPECT_NE(server.slot(1).process().id(), server.slot(2).process().id());
}

TEST(Slots, AKilledProcessIsReportedAndReplaced) {
    SortServer server(optionsFor(5, 1));
    SortSlot& slot = server.slot(1);
    slot.process().sendSignal(SIGKILL);
    try {
        expectSorts(slot, 5000);
        FAIL() << "nobody noticed";
    } catch (const HostError& error) {
        EXPECT_EQ(error.kind(), FailureKind::kProcessDied);
        EXPECT_THAT(error.what(), HasSubstr("signal 9"));
    }
    slot.start();
    expectSorts(slot, 5000);
}

TEST(Cost, ARequestInMemoryCostsThreeCallsAndNoByteOfTheWorkFile) {
    SortServer server(optionsFor(4000, 8));
    SortSlot& slot = server.slot(1);
    expectSorts(slot, 100);
    const ProcessUsage before = slot.process().usage();
    expectSorts(slot, 20000);
    const ProcessUsage after = slot.process().usage();
    // The length word, the rest of the request, the reply.
    EXPECT_EQ(after.readCalls - before.readCalls, 2);
    EXPECT_EQ(after.writeCalls - before.writeCalls, 1);
    EXPECT_EQ(after.readBytes - before.readBytes, 98);
    EXPECT_EQ(after.writtenBytes - before.writtenBytes, 80);
    EXPECT_EQ(std::filesystem::file_size(slot.workFile().path()), 0U);
}

TEST(Cost, ADiskThatIsFullIsAnErrorAndNeverAMissingRecord) {
    ServerOptions options = optionsFor(5, 1);
    SortServer server(options, Processes::kLeave);
    SortSlot& slot = server.slot(1);
    slot.start();
    const rlimit small = {64 * 4096, 64 * 4096};
    ASSERT_EQ(prlimit(slot.process().id(), RLIMIT_FSIZE, &small, nullptr), 0);
    try {
        expectSorts(slot, 10000);
        FAIL() << "answered 0 with a full disk";
    } catch (const HostError& error) {
        EXPECT_EQ(error.errorCode(), ErrorCode::kWorkFileWrite);
        EXPECT_EQ(error.systemError(), EFBIG);
    }
    expectSorts(slot, 3000);  // 47 blocks fit
}

TEST(Cost, NoHeapIsUsedFromStartToShutdown) {
    const std::filesystem::path log =
        std::filesystem::temp_directory_path() / ("tvsort-valgrind-" + std::to_string(getpid()));
    if (std::system("valgrind --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no valgrind";
    for (const char* instrumented : {"sanitize", "coverage"}) {
        if (std::strstr(TVSORT_PROGRAM, instrumented) != nullptr) GTEST_SKIP() << "its own heap";
    }
    {
        ServerOptions options = optionsFor(40, 8);
        options.launcher = {"valgrind", "--log-file=" + log.string(), "--error-exitcode=9"};
        options.environment = {"TVSORT_FILTER=off"};  // valgrind's calls are the process's
        SortServer server(options);
        for (const std::size_t count : {10U, 5000U, 20000U})
            expectSorts(server.slot(1), count);
        server.slot(1).stop();
    }
    std::stringstream text;
    text << std::ifstream(log).rdbuf();
    std::filesystem::remove(log);
    EXPECT_THAT(text.str(), HasSubstr("total heap usage: 0 allocs, 0 frees"));
    EXPECT_THAT(text.str(), HasSubstr("ERROR SUMMARY: 0 errors"));
}

}  // namespace
}  // namespace tvsort::host
