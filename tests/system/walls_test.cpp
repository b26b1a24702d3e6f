// What holds the built process in, and what must not hold it up.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

#include "host/private_directory.h"
#include "protocol/slot_layout.h"
#include "tests/fault/fault_injector.h"
#include "tests/support/filter_expected.h"
#include "tests/system/numbers_sorted.h"

namespace tvsort::host {
namespace {

// The number behind `name` in what the system tells of a process.
int statusNumber(const std::string& process, const std::string& name) {
    std::ifstream file("/proc/" + process + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name + ":")) return std::stoi(line.substr(name.size() + 1));
    }
    return -1;
}

// Those that it has of its own, where the system tells the number.
void expectFilters(SortSlot& slot, int count) {
    const int inherited = statusNumber("self", "Seccomp_filters");
    if (inherited < 0) return;
    EXPECT_EQ(statusNumber(std::to_string(slot.process().id()), "Seccomp_filters"),
              inherited + count);
}

TEST(Filter, StandsBeforeTheHelloAndIsTighterOnceTheWorkFileIsOpen) {
    if (!test::filterExpected()) GTEST_SKIP() << "no filter in this build or kernel";
    SortServer server(optionsFor(40, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    const std::filesystem::path path = slot.workFile().path();
    std::filesystem::rename(path, path.string() + ".away");
    slot.startUnanswered();
    const std::string id = std::to_string(slot.process().id());
    EXPECT_TRUE(slot.process().isFiltered());
    EXPECT_EQ(statusNumber(id, "Seccomp"), 2);
    EXPECT_EQ(statusNumber(id, "NoNewPrivs"), 1);
    slot.connection().sendAnswer("TEMP", kSoon);
    EXPECT_EQ(slot.connection().receiveReply(kSoon).errorCode, 1401U);
    expectFilters(slot, 1);
    std::filesystem::rename(path.string() + ".away", path);
    expectSorts(slot, 10);
    expectFilters(slot, 2);
    expectSorts(slot, 50000);
    expectFilters(slot, 2);
}

TEST(Filter, IsLeftOutWhereTheEnvironmentSaysSo) {
    ServerOptions options = optionsFor(40, 8);
    options.environment = {"TVSORT_FILTER=off"};
    SortServer server(options);
    EXPECT_FALSE(server.slot(1).process().isFiltered());
    expectSorts(server.slot(1), 1000);
}

// Standard output of a process: a pipe that is full and that nobody empties.
class FullPipe : public testing::Test {
  protected:
    FullPipe() : directory_(defaultTempDirectory()), path_(directory_.path() / "full") {
        mkfifo(path_.c_str(), 0600);
        pipe_ = FileDescriptor(open(path_.c_str(), O_RDWR | O_NONBLOCK));
        const std::vector<char> bytes(65536, 'x');
        while (write(pipe_.number(), bytes.data(), bytes.size()) > 0)
            filledBytes_ = fcntl(pipe_.number(), F_GETPIPE_SZ);
        object_ = FileDescriptor(memfd_create("slot", 0));
        EXPECT_EQ(ftruncate(object_.number(), SlotLayout{5, 8}.slotBytes()), 0);
    }

    std::vector<std::string> launcher() const {
        return {"/bin/sh", "-c", "exec \"$0\" \"$@\" >" + path_.string()};
    }

    // A process that does not come as far as to its hello.
    void expectStartEnds(const char* what, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment = {}) {
        SCOPED_TRACE(what);
        std::vector<std::string> words = launcher();
        words.erase(words.begin());
        words.emplace_back(TVSORT_PROGRAM);
        words.insert(words.end(), arguments.begin(), arguments.end());
        SortProcess process({.program = "/bin/sh",
                             .arguments = words,
                             .environment = environment,
                             .sharedDescriptor = object_.number()});
        expectEnds(process);
    }

    // A process that a server does something to.
    void expectConversationEnds(const char* what,
                                const std::function<void(SortServer& server)>& scene) {
        SCOPED_TRACE(what);
        ServerOptions options = optionsFor(40, 8);
        options.launcher = launcher();
        SortServer server(options);
        scene(server);
        expectEnds(server.slot(1).process());
    }

    static void expectEnds(SortProcess& process) {
        EXPECT_TRUE(process.waitForEnd(kSoon)) << "waits for room in the pipe";
        EXPECT_EQ(process.waitStatus(), 0);
    }

    PrivateDirectory directory_;
    std::filesystem::path path_;
    FileDescriptor pipe_;
    int filledBytes_ = 0;
    FileDescriptor object_;
};

TEST_F(FullPipe, HoldsUpNoProcessThatCannotStart) {
    const std::string object = std::to_string(object_.number());
    const std::vector<std::string> good = {"40", "1", object, "/tmp/", "8"};
    ASSERT_GE(filledBytes_, 4096);
    expectStartEnds("arguments", {"39", "1", object, "/tmp/", "8"});
    expectStartEnds("slot", {"40", "2", object, "/tmp/", "8"});
    expectStartEnds("instance", good, {"TAVRIN_MBX=" + std::string(5000, '7')});
    expectStartEnds("no server", good, {"TAVRIN_TMP=/tmp/no-such-directory"});
    // The socket's failures that no server can bring about.
    const ServerSocket socket(directory_.path(), 7);
    test::FaultInjector injector;
    std::vector<std::string> environment = injector.environment();
    environment.push_back("TAVRIN_TMP=" + directory_.path().string());
    environment.push_back("TAVRIN_MBX=7");
    for (const auto call : {test::Call::kSocket, test::Call::kSetsockopt}) {
        for (const int number : {1, 2}) {
            if (call == test::Call::kSocket && number == 2) continue;
            injector.arm(call, number, 1, {"EIO", test::Deed::kFail, EIO});
            expectStartEnds("socket", good, environment);
            EXPECT_EQ(injector.injected(), 1);
        }
    }
}

TEST_F(FullPipe, HoldsUpNoProcessWhoseServerIsAtFault) {
    for (const std::uint32_t length : {0U, 65529U}) {
        expectConversationEnds("length", [length](SortServer& server) {
            Byte word[4];
            storeAs(word, length);
            server.slot(1).connection().send(word, kSoon);
        });
    }
    const std::vector<Byte> records = shuffledRecords(100000);
    for (const bool busError : {false, true}) {
        expectConversationEnds(busError ? "bus error" : "hung up", [&](SortServer& server) {
            SortSlot& slot = server.slot(1);
            const Geometry geometry = chooseGeometry(kRecordBytes, 1);
            const LoadedData loaded = slot.load(geometry, sourceOf(records));
            slot.connection().send(byNumber().build(geometry, loaded.extent), kSoon);
            if (!busError) slot.connection().close();
            if (busError) kill(slot.process().id(), SIGBUS);
        });
    }
}

}  // namespace
}  // namespace tvsort::host
