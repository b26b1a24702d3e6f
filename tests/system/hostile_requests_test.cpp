// What a server may do to the process over the socket, by intent or by dying. The process answers,
// or ends with status 0; it never ends otherwise and never waits for what cannot come.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <set>

#include "tests/system/numbers_sorted.h"

namespace tvsort::host {
namespace {

// A message of which nothing is set but what its length word says.
std::vector<Byte> messageOf(std::uint32_t length, std::size_t bytes) {
    std::vector<Byte> message(bytes);
    storeAs(message.data(), length);
    return message;
}

void expectEnd(SortSlot& slot, const std::string& text) {
    EXPECT_TRUE(slot.process().waitForEnd(kSoon));
    EXPECT_EQ(slot.process().waitStatus(), 0);
    EXPECT_EQ(slot.process().outputText(), text);
}

TEST(HostileLengths, ThoseThatCannotBeEndTheProcessWithALine) {
    SortServer server(optionsFor(40, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    for (const std::uint32_t length : {0U, 1U, 2U, 3U, 4U, 65529U, 0x80000000U, 0xffffffffU}) {
        SCOPED_TRACE(length);
        slot.start();
        slot.connection().send(messageOf(length, 4), kSoon);
        expectEnd(slot, std::string("WARNING: TVSORT - too ") + (length > 5 ? "long" : "short") +
                            " message received - " + std::to_string(static_cast<int>(length)) +
                            " size. \n");
    }
}

TEST(HostileLengths, ThoseThatCanBeAreAnswered) {
    SortServer server(optionsFor(40, 8));
    SortSlot& slot = server.slot(1);
    for (const std::uint32_t length : {5U, 24U, 83U, 84U, 8192U, 8193U, 65528U}) {
        SCOPED_TRACE(length);
        slot.connection().send(messageOf(length, length), kSoon);
        const std::uint32_t code = slot.connection().receiveReply(kSoon).errorCode;
        EXPECT_EQ(code, length < 84 ? 1406U : 1410U);  // too short for a request, or no keys in it
    }
    expectSorts(slot, 100);
}

TEST(HostileMessages, SingleBytesAndTheLargestSizeAreServed) {
    SortServer server(optionsFor(40, 8));
    SortSlot& slot = server.slot(1);
    const std::vector<Byte> records = shuffledRecords(3);
    const Geometry geometry = chooseGeometry(kRecordBytes, 1);
    const LoadedData loaded = slot.load(geometry, sourceOf(records));
    std::vector<Byte> message = byNumber().build(geometry, loaded.extent);
    for (const Byte byte : message)
        slot.connection().send({&byte, 1}, kSoon);
    EXPECT_EQ(slot.connection().receiveReply(kSoon).errorCode, 0U);
    slot.load(geometry, sourceOf(records));
    message.resize(65528, 0xcc);  // what follows the items is not looked at
    storeAs(message.data(), std::uint32_t{65528});
    slot.connection().send(message, kSoon);
    EXPECT_EQ(slot.connection().receiveReply(kSoon).errorCode, 0U);
}

// In the answer to the hello, and in a request: in its length word, its fields, its keys, behind
// it.
TEST(HostileServer, HangingUpAtEveryByteEndsTheProcessInSilence) {
    SortServer server(optionsFor(40, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    const std::vector<Byte> answer = messageOf(24, 24);
    for (std::size_t sent = 0; sent <= answer.size(); ++sent) {
        SCOPED_TRACE(sent);
        slot.startUnanswered();
        slot.connection().send(std::span(answer).first(sent), kSoon);
        slot.connection().close();
        EXPECT_TRUE(slot.process().waitForEnd(kSoon));
        EXPECT_EQ(slot.process().waitStatus(), 0);
    }
    const std::vector<Byte> records = shuffledRecords(100);
    const Geometry geometry = chooseGeometry(kRecordBytes, 1);
    const LoadedData loaded = slot.load(geometry, sourceOf(records));
    const std::vector<Byte> request = byNumber().build(geometry, loaded.extent);
    for (std::size_t sent = 0; sent < request.size(); ++sent) {
        SCOPED_TRACE(sent);
        slot.start();
        slot.connection().send(std::span(request).first(sent), kSoon);
        slot.connection().close();
        expectEnd(slot, "");
    }
    slot.start();
    expectSorts(slot, 100);
}

TEST(HostileServer, HangingUpWithTheReplyToComeEndsTheProcessWithALine) {
    SortServer server(optionsFor(40, 8));
    SortSlot& slot = server.slot(1);
    const std::vector<Byte> records = shuffledRecords(100000);
    const Geometry geometry = chooseGeometry(kRecordBytes, 1);
    const LoadedData loaded = slot.load(geometry, sourceOf(records));
    slot.connection().send(byNumber().build(geometry, loaded.extent), kSoon);
    slot.connection().close();
    expectEnd(slot, " TVSORT -- send msg error : 32\n");
}

TEST(HostileServer, CuttingTheSharedObjectEndsTheProcessWithALine) {
    // The host library's own object is sealed: this is a server that does not do so.
    const PrivateDirectory directory(std::filesystem::temp_directory_path());
    const WorkFile workFile(directory.path(), 1);
    ServerSocket socket(directory.path(), 7);
    const FileDescriptor object(memfd_create("slot", MFD_CLOEXEC));
    ASSERT_EQ(ftruncate(object.number(), SlotLayout{5, 8}.slotBytes()), 0);
    SortProcess process({.program = TVSORT_PROGRAM,
                         .arguments = {"40", "1", std::to_string(object.number()), "/tmp/", "8"},
                         .environment = {"TAVRIN_TMP=" + directory.path().string(), "TAVRIN_MBX=7",
                                         "TVWK=" + directory.path().string()},
                         .sharedDescriptor = object.number()});
    const WhileWaiting nothing;
    ASSERT_EQ(process.waitFor(socket.descriptor(), POLLIN, Deadline(kSoon), nothing),
              WaitOutcome::kReady);
    Connection connection(socket.acceptWaiting(), process, 1, nothing);
    connection.receiveReply(kSoon);
    connection.sendAnswer("TVWK", kSoon);
    // The message can still be taken in; what follows the buffer is gone.
    ASSERT_EQ(ftruncate(object.number(), 8192), 0);
    const Geometry geometry = chooseGeometry(kRecordBytes, 1);
    connection.send(byNumber().build(geometry, {100, 3}), kSoon);
    ASSERT_TRUE(process.waitForEnd(kSoon));
    EXPECT_EQ(process.waitStatus(), 0);
    EXPECT_EQ(process.outputText(), " TVSORT -- mapped memory is gone\n");
}

std::set<std::string> filesBelow(const std::filesystem::path& directory) {
    std::set<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory))
        paths.insert(entry.path());
    return paths;
}

// A small request may stand for days of work; nobody waits for it any more.
TEST(HostileServer, HangingUpDuringALongRequestEndsTheProcess) {
    SortServer server(optionsFor(40, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    const Geometry geometry = {.recordLength = kRecordBytes, .blockPages = 1, .recordsPerBlock = 1};
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    for (const SortMode mode : {SortMode::kOrder, SortMode::kDistinct, SortMode::kIntersect}) {
        slot.start();
        RequestBuilder request = byNumber();
        request.setMode(mode);
        slot.connection().send(request.build(geometry, {kMost, kMost}), kSoon);
        slot.connection().close();
        expectEnd(slot, " TVSORT -- send msg error : 32\n");
    }
}

// In memory too: siblings that floats tell apart, and behind those values that complain, have all
// to be compared with one another.
TEST(HostileServer, HangingUpDuringALongRequestInMemoryEndsTheProcess) {
    constexpr std::int32_t kRecords = 200000;
    constexpr std::uint16_t kLength = 26;
    const auto source = [n = 0](Byte* target, std::size_t recordsMax) mutable {
        std::size_t count = 0;
        for (; count < recordsMax && n < kRecords; ++count, target += kLength) {
            storeAs(target + 12, std::int32_t{1});
            storeAs(target + 16, static_cast<double>(++n));
            storeAs(target + 24, std::int16_t{99});
        }
        return count;
    };
    SortServer server(optionsFor(2000, 8), Processes::kLeave);
    SortSlot& slot = server.slot(1);
    slot.start();
    const Geometry geometry = chooseGeometry(kLength, 1);
    const LoadedData loaded = slot.load(geometry, source);
    RequestBuilder request;
    request.addKey(KeyDescriptor{})
        .addKey(ascendingKey(DataType::kFloat, 16, 8))
        .addKey(ascendingKey(DataType::kString, 24, 2))
        .setMode(SortMode::kHierarchy);
    slot.connection().send(request.build(geometry, loaded.extent), kSoon);
    slot.connection().close();
    expectEnd(slot, " TVSORT -- send msg error : 32\n");
}

// A server in a process of its own: asks for a long sort, tells who sorts, and is killed.
[[noreturn]] void serveAndDie(const std::filesystem::path& directory, int toParent) {
    ServerOptions options = optionsFor(5, 1);
    options.tempDirectory = directory;
    options.endsWithStarter = false;  // what the process itself does is looked at here
    SortServer server(options);
    SortSlot& slot = server.slot(1);
    const std::vector<Byte> records = shuffledRecords(200000);
    const Geometry geometry = chooseGeometry(kRecordBytes, 1);
    const LoadedData loaded = slot.load(geometry, sourceOf(records));
    slot.connection().send(byNumber().build(geometry, loaded.extent), kSoon);
    const pid_t sorter = slot.process().id();
    if (write(toParent, &sorter, sizeof sorter) != sizeof sorter) _exit(1);
    raise(SIGKILL);
    _exit(1);
}

TEST(HostileServer, KilledInTheMiddleOfASortLeavesAProcessThatEndsAndNothingElse) {
    std::string name = std::filesystem::temp_directory_path() / "tvsort-killed-XXXXXX";
    const std::filesystem::path directory = mkdtemp(name.data());
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the orphan becomes this process's child
    int fromServer[2];
    ASSERT_EQ(pipe(fromServer), 0);
    const pid_t serverId = fork();
    if (serverId == 0) serveAndDie(directory, fromServer[1]);
    close(fromServer[1]);
    pid_t sorter = -1;
    ASSERT_EQ(read(fromServer[0], &sorter, sizeof sorter), static_cast<ssize_t>(sizeof sorter));
    close(fromServer[0]);
    int status = 0;
    EXPECT_EQ(waitpid(serverId, &status, 0), serverId);
    EXPECT_TRUE(WIFSIGNALED(status));
    const std::set<std::string> left = filesBelow(directory);
    EXPECT_EQ(waitpid(sorter, &status, 0), sorter);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(filesBelow(directory), left);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace tvsort::host
