// Every call that the process makes to start, to talk and to end goes wrong in every way.
//
// A conversation is played whole: the server's four messages wait in the socket, and what comes
// back, what the process prints and how it ends is compared with what the failed call calls for.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "host/sort_server.h"
#include "tests/fault/fault_injector.h"
#include "tests/fault/shaped_case.h"
#include "tests/support/collation_bytes.h"

namespace tvsort::test {
namespace {

constexpr host::Timeout kSoon{20000};
constexpr std::size_t kReplyBytes = sizeof(SortReply);
// All in frames: the calls on the work file are another test's.
constexpr host::Geometry kOneFrame = {16, 1, 40};

// What a conversation comes to. All replies but the codes of `opening` carry 0.
struct Outcome {
    std::size_t bytes;  // received from the process
    std::string text;   // printed by it
    int openingFailures = 0;
};

// The hello and two replies.
const Outcome kServed = {3 * kReplyBytes, ""};

bool operator==(const Outcome& left, const Outcome& right) {
    return left.bytes == right.bytes && left.text == right.text &&
           left.openingFailures == right.openingFailures;
}

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.bytes << " bytes, " << outcome.openingFailures << " times code 1401, \""
               << outcome.text << '"';
}

Outcome endedWith(const char* line, int systemError, std::size_t replies = 0) {
    char text[100];
    std::snprintf(text, sizeof text, line, systemError);
    return {replies * kReplyBytes, text};
}

// The collation file is opened first; without it the process does without collations. The name in
// the answer opens the work file, and the names in the requests when that has failed.
Outcome afterOpen(int number, bool once) {
    if (once) return number == 2 ? Outcome{4 * kReplyBytes, "", 1} : kServed;
    return {4 * kReplyBytes, "", 3};
}

// Length word and rest of the answer, of two requests and of "SHUT".
Outcome afterSocketRead(int number, const Fault& fault) {
    constexpr std::size_t kRepliesBefore[] = {1, 1, 1, 1, 2, 2, 3, 3};
    if (fault.deed == Deed::kShort || fault.systemError == EINTR) return kServed;
    if (number > static_cast<int>(std::size(kRepliesBefore))) return kServed;
    return {kRepliesBefore[number - 1] * kReplyBytes, ""};
}

Outcome afterSocketWrite(int number, bool once, const Fault& fault) {
    const auto before = static_cast<std::size_t>(number - 1);
    const std::size_t struck = once ? 1 : 3 - before;
    if (fault.deed == Deed::kNothing) return {(3 - struck) * kReplyBytes, ""};
    if (fault.deed == Deed::kShort) return {3 * kReplyBytes - struck * kReplyBytes / 2, ""};
    if (fault.systemError == EINTR || fault.systemError == EAGAIN) return kServed;
    return endedWith(" TVSORT -- send msg error : %d\n", fault.systemError, before);
}

Outcome expectedOutcome(Call call, int number, bool once, const Fault& fault) {
    switch (call) {
        case Call::kOpen:
            return afterOpen(number, once);
        case Call::kMmap:
        case Call::kFstat:
            return endedWith(" TVSORT 1  -- can't map shm object. Errno %d", fault.systemError);
        case Call::kSocket:
            return endedWith("Tavrin Sort: can't create socket %d\n", fault.systemError);
        case Call::kConnect:
            return endedWith("Tavrin Sort: can't connect to tavrin %d\n", fault.systemError);
        case Call::kSetsockopt:
            return endedWith(number == 1 ? "Tavrin Sort: can't set socket send buffer %d\n"
                                         : "Tavrin Sort: can't set socket recv buffer %d\n",
                             fault.systemError);
        case Call::kReadSocket:
            return afterSocketRead(number, fault);
        case Call::kWriteSocket:
            return afterSocketWrite(number, once, fault);
        default:  // closing, looking at a descriptor, reading the collation file
            return kServed;
    }
}

class ConversationFaults : public testing::Test {
  protected:
    ConversationFaults()
        : memory_({kSmallestMemoryPages, 1}, 1),
          directory_(host::defaultTempDirectory()),
          socket_(directory_.path(), kInstance),
          workFile_(directory_.path(), 1) {
        CollationBytes collation;
        std::ofstream(directory_.path() / "tavucs7", std::ios::binary)
            .write(reinterpret_cast<const char*>(collation.file().data()),
                   static_cast<std::streamsize>(collation.file().size()));
    }

    // The answer, a request for ascending and one for descending order, and "SHUT".
    std::vector<Byte> messages() const {
        std::vector<Byte> all;
        const auto append = [&all](const std::vector<Byte>& message) {
            all.insert(all.end(), message.begin(), message.end());
        };
        append(named("TEMP"));
        for (const auto& keyOf : {host::ascendingKey, host::descendingKey}) {
            host::RequestBuilder request;
            request.setWorkDirectoryName("TEMP").addKey(keyOf(DataType::kInteger, 0, 4));
            append(request.build(kOneFrame, {40, 1}));
        }
        append(named("SHUT"));
        return all;
    }

    static std::vector<Byte> named(const char* name) {
        std::vector<Byte> message(24);
        storeAs<std::uint32_t>(message.data(), 24);
        std::copy_n(name, 4, message.begin() + 20);
        return message;
    }

    void layRecords() const {
        for (std::int32_t i = 0; i < 40; ++i) {
            storeAs(memory_.frames(1).data() + 16 * static_cast<std::size_t>(i), i * 7 % 40);
        }
    }

    void expectDescendingRecords() const {
        for (std::int32_t i = 0; i < 40; ++i) {
            EXPECT_EQ(loadI32(memory_.frames(1).data() + 16 * static_cast<std::size_t>(i)), 39 - i);
        }
    }

    // Plays one conversation with what is armed.
    Outcome converse() {
        layRecords();
        std::vector<std::string> environment = injector_.environment();
        environment.push_back("TAVRIN_TMP=" + directory_.path().string());
        environment.push_back("TAVRIN_MBX=" + std::to_string(kInstance));
        host::SortProcess process({.program = TVSORT_PROGRAM,
                                   .arguments = {std::to_string(kSmallestMemoryPages), "1",
                                                 std::to_string(memory_.descriptor()),
                                                 directory_.path().string() + "/", "1"},
                                   .environment = environment,
                                   .sharedDescriptor = memory_.descriptor()});
        const host::Deadline deadline(kSoon);
        std::vector<Byte> received;
        if (process.waitFor(socket_.descriptor(), POLLIN, deadline, {}) ==
            host::WaitOutcome::kReady) {
            received = exchange(process, deadline);
        }
        EXPECT_TRUE(process.waitForEnd(kSoon)) << "it still runs";
        EXPECT_EQ(process.waitStatus(), 0);
        return {received.size(), process.outputText(), openingFailures(received)};
    }

    // Sends all messages and takes what comes back until the process has hung up.
    std::vector<Byte> exchange(host::SortProcess& process, const host::Deadline& deadline) {
        const host::FileDescriptor connection = socket_.acceptWaiting();
        const std::vector<Byte> sent = messages();
        send(connection.number(), sent.data(), sent.size(), MSG_NOSIGNAL);
        std::vector<Byte> received;
        while (process.waitFor(connection.number(), POLLIN, deadline, {}) ==
               host::WaitOutcome::kReady) {
            Byte piece[kReplyBytes];
            const ssize_t moved = recv(connection.number(), piece, sizeof piece, 0);
            if (moved <= 0) break;
            received.insert(received.end(), piece, piece + moved);
        }
        return received;
    }

    // Of whole replies: how many say that the work file did not open, for the reason that was made.
    int openingFailures(const std::vector<Byte>& received) const {
        int failures = 0;
        for (std::size_t at = 0; received.size() % kReplyBytes == 0 && at < received.size();
             at += kReplyBytes) {
            const auto reply = loadAs<SortReply>(received.data() + at);
            EXPECT_EQ(reply.length, kReplyBytes);
            if (reply.errorCode == 0) continue;
            EXPECT_EQ(reply.errorCode, 1401U);
            EXPECT_EQ(reply.osError, systemError_);
            failures += 1;
        }
        return failures;
    }

    // False when no call was struck.
    bool strike(Call call, int number, bool once, const Fault& fault) {
        const Outcome expected = expectedOutcome(call, number, once, fault);
        // A call that is repeated until it succeeds must succeed in the end.
        const bool isRepeated = expected == kServed && fault.deed == Deed::kFail;
        systemError_ = fault.systemError;
        injector_.arm(call, number, once ? 1 : isRepeated ? kManyTimes : kForEver, fault);
        const Outcome outcome = converse();
        faults_ += injector_.injected();
        runs_ += 1;
        const bool struck = injector_.injected() > 0;
        EXPECT_EQ(outcome, struck ? expected : kServed);
        if (outcome.bytes >= kServed.bytes && outcome.openingFailures < 3) {
            expectDescendingRecords();
        }
        return struck;
    }

    static constexpr int kInstance = 7;
    FaultInjector injector_;
    host::SlotMemory memory_;
    host::PrivateDirectory directory_;
    host::ServerSocket socket_;
    host::WorkFile workFile_;
    int systemError_ = 0;
    int runs_ = 0;
    std::int64_t faults_ = 0;
};

TEST_F(ConversationFaults, EndTheProcessWithStatusZeroAndItsWordsOrAreOvercome) {
    constexpr Call kCalls[] = {Call::kOpen,       Call::kFcntl,      Call::kClose,
                               Call::kFstat,      Call::kMmap,       Call::kReadFile,
                               Call::kSocket,     Call::kConnect,    Call::kSetsockopt,
                               Call::kReadSocket, Call::kWriteSocket};
    for (const Call call : kCalls) {
        const bool moves = call == Call::kReadSocket || call == Call::kWriteSocket;
        int struckCalls = 0;
        for (const Fault& fault : moves ? kFailuresAndShortMoves : kFailures) {
            for (const bool once : {true, false}) {
                bool struck = true;
                for (int number = 1; struck && !HasFailure(); ++number) {
                    SCOPED_TRACE(testing::Message()
                                 << fault.name << " in call " << number << " of kind "
                                 << static_cast<int>(call) << (once ? ", once" : ", for ever"));
                    struck = strike(call, number, once, fault);
                    struckCalls += struck ? 1 : 0;
                }
            }
        }
        EXPECT_GT(struckCalls, 0) << "the process makes no call of kind " << static_cast<int>(call);
    }
    std::printf("%d conversations, %lld faults injected\n", runs_, static_cast<long long>(faults_));
    RecordProperty("conversations", runs_);
    RecordProperty("faultsInjected", std::to_string(faults_));
}

}  // namespace
}  // namespace tvsort::test
