// Every call that a request makes on its work file goes wrong in every way, for every way of
// shaping a result: the n-th call, for n = 1, 2, 3, ... until a request passes without a fault,
// once alone and once with all calls behind it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "protocol/slot_layout.h"
#include "tests/fault/fault_injector.h"
#include "tests/fault/shaped_case.h"

namespace tvsort::test {
namespace {

constexpr host::Timeout kSoon{10000};
constexpr Byte kServersByte = 0xa5;

// What a request is to be answered with.
struct Answer {
    ErrorCode code;
    int systemError;
};

bool operator==(const Answer& left, const Answer& right) {
    return left.code == right.code && left.systemError == right.systemError;
}

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << "code " << static_cast<int>(answer.code) << ", system error "
               << answer.systemError;
}

// What the server's own bytes hold where no system error is reported.
constexpr int kUntouched = static_cast<int>(0xa5a5a5a5U);
constexpr Answer kServed = {ErrorCode::kSuccess, kUntouched};

// The call that `fault` strikes, and for a seek the call that it was made for, decide:
//
//     call     failing with error E   short count   count of 0
//     seek     1402 or 1403, E
//     read     1402, E                served        served: the file ends there
//     write    1403, E                served        1403, ENOSPC
Answer expectedAnswer(Call call, const Fault& fault) {
    const bool writes = call == Call::kWriteFile;
    if (fault.deed == Deed::kShort) return kServed;
    if (fault.deed == Deed::kNothing) {
        return writes ? Answer{ErrorCode::kWorkFileWrite, ENOSPC} : kServed;
    }
    return {writes ? ErrorCode::kWorkFileWrite : ErrorCode::kWorkFileRead, fault.systemError};
}

// Where call number `number` of a kind stands among all.
std::size_t placeOf(const std::vector<Call>& calls, Call call, std::int32_t number) {
    std::size_t place = 0;
    while (place < calls.size() &&
           ((calls[place] != call && call != Call::kAnyOnFile) || --number > 0)) {
        ++place;
    }
    return place;
}

// What the call at `place` of a clean request was made for: a seek for the call behind it.
Call purposeOf(const std::vector<Call>& calls, std::size_t place) {
    if (place < calls.size() && calls[place] == Call::kSeek) ++place;
    return place < calls.size() ? calls[place] : Call::kReadFile;
}

class RequestFaults : public testing::TestWithParam<int> {
  protected:
    explicit RequestFaults(std::int32_t memoryPages = kSmallestMemoryPages)
        : memoryPages_(memoryPages), server_(options()), slot_(server_.slot(1)) {}

    host::ServerOptions options() const {
        host::ServerOptions options;
        options.processPath = TVSORT_PROGRAM;
        options.memoryPages = memoryPages_;
        options.pagesPerBlock = 1;
        options.requestTimeout = kSoon;
        options.environment = injector_.environment();
        return options;
    }

    // One request with what is armed; all bytes that are the server's own are told apart.
    SortReply ask(const ShapedCase& shaped) { return ask(shaped, shaped.request()); }
    SortReply ask(const ShapedCase& shaped, const host::RequestBuilder& request) {
        const host::LoadedData loaded = shaped.load(slot_, kTenRecordsPerPage);
        std::vector<Byte> message = request.build(kTenRecordsPerPage, loaded.extent);
        std::fill(message.begin() + 12, message.begin() + 20, kServersByte);
        std::fill(message.begin() + 24, message.begin() + 60, kServersByte);
        slot_.connection().send(message, kSoon);
        const SortReply reply = slot_.connection().receiveReply(kSoon);
        expectUntouched(message, reply);
        expectPoolAtRest();
        return reply;
    }

    static void expectUntouched(const std::vector<Byte>& message, const SortReply& reply) {
        Byte bytes[sizeof reply];
        std::memcpy(bytes, &reply, sizeof reply);
        const auto same = [&](std::size_t from, std::size_t to) {
            return std::equal(bytes + from, bytes + to,
                              message.begin() + static_cast<std::ptrdiff_t>(from));
        };
        EXPECT_TRUE(same(12, 44) && same(48, 60) && same(78, sizeof reply));
        EXPECT_TRUE(reply.errorCode == 0 || same(60, sizeof reply));
    }

    // The first blocks in the frames, none of them pinned.
    void expectPoolAtRest() const {
        const Byte* const descriptors =
            server_.memory().slot(1).data() + SlotLayout{memoryPages_, 1}.pageDescriptorsOffset();
        for (std::int32_t frame = 0; frame < memoryPages_; ++frame) {
            const auto descriptor = loadAs<PageDescriptor>(
                descriptors + static_cast<std::size_t>(frame) * sizeof(PageDescriptor));
            EXPECT_EQ(descriptor.pinned, 0) << "frame " << frame;
            EXPECT_EQ(descriptor.block, frame + 1);
        }
    }

    // Strikes the call from its first to its last; false when it was struck no more.
    bool strike(const ShapedCase& shaped, Call call, std::int32_t number, std::int32_t times,
                const Fault& fault) {
        injector_.arm(call, number, times, fault);
        const SortReply reply = ask(shaped);
        const std::int32_t injected = injector_.injected();
        faults_ += injected;
        struckRequests_ += injected > 0 ? 1 : 0;
        const std::vector<Call> calls = injector_.fileCalls();
        injector_.disarm();
        const Answer answer = {static_cast<ErrorCode>(reply.errorCode), reply.osError};
        const Call meant = purposeOf(cleanCalls_, placeOf(cleanCalls_, call, number));
        const Answer expected = injected == 0 ? kServed : expectedAnswer(meant, fault);
        // Records that the file did not give are whatever the frame held: no order can be expected,
        // and levels may contradict one another.
        const bool readsOldBytes =
            injected > 0 && call == Call::kReadFile && fault.deed == Deed::kNothing;
        if (readsOldBytes && answer.code == ErrorCode::kHierarchyInvalid) {
            EXPECT_EQ(shaped.mode, SortMode::kHierarchy);
        } else {
            EXPECT_EQ(answer, expected);
        }
        if (expected == kServed && !readsOldBytes) {
            shaped.expectResult(slot_, kTenRecordsPerPage, reply.recordCount);
        }
        if (reply.errorCode != 0 && !readsOldBytes) {
            // A failed request changes the file no more.
            const std::size_t struck = placeOf(calls, call, number) + 1;
            EXPECT_EQ(std::count(calls.begin() + static_cast<std::ptrdiff_t>(struck), calls.end(),
                                 Call::kWriteFile),
                      0);
        }
        return injected > 0;
    }

    // The n-th call for n = 1, 1 + `step`, ..., until none is struck.
    void strikeEach(const ShapedCase& shaped, Call call, std::int32_t times, const Fault& fault,
                    std::int32_t step = 1) {
        for (std::int32_t number = 1;; number += step) {
            SCOPED_TRACE(testing::Message() << shaped.name << ": " << fault.name << " in call "
                                            << number << " of kind " << static_cast<int>(call)
                                            << (times == 1 ? ", once" : ", for ever"));
            bool struck = false;
            try {
                struck = strike(shaped, call, number, times, fault);
                shaped.expectServed(slot_, kTenRecordsPerPage);
            } catch (const host::HostError& error) {
                ADD_FAILURE() << error.what();
            }
            if (!struck || HasFailure()) return;
        }
    }

    std::int32_t memoryPages_;
    FaultInjector injector_;
    host::SortServer server_;
    host::SortSlot& slot_;
    std::vector<Call> cleanCalls_;
    std::int64_t faults_ = 0;
    int struckRequests_ = 0;
};

TEST_P(RequestFaults, AreAnsweredWithTheirCodeAndTheNextRequestIsServed) {
    const ShapedCase shaped = shapedCases(1)[static_cast<std::size_t>(GetParam())];
    injector_.disarm();
    shaped.expectServed(slot_, kTenRecordsPerPage);
    cleanCalls_ = injector_.fileCalls();
    ASSERT_GT(cleanCalls_.size(), 20U) << "hardly spills";
    for (const Call call : {Call::kSeek, Call::kReadFile, Call::kWriteFile}) {
        for (const Fault& fault : call == Call::kSeek ? kFailures : kFailuresAndShortMoves) {
            for (const std::int32_t times : {1, kForEver})
                strikeEach(shaped, call, times, fault);
        }
    }
    // From one call on, the file is gone: the first failure is the one that is reported.
    for (const Fault& fault : kFailures)
        strikeEach(shaped, Call::kAnyOnFile, kForEver, fault);
    slot_.connection().sendShutdown(kSoon);
    EXPECT_TRUE(slot_.process().waitForEnd(kSoon));
    EXPECT_EQ(slot_.process().waitStatus(), 0);
    std::printf("%s: %zu calls on the work file, %d requests struck by %lld faults\n", shaped.name,
                cleanCalls_.size(), struckRequests_, static_cast<long long>(faults_));
    RecordProperty("requestsStruck", struckRequests_);
    RecordProperty("faultsInjected", std::to_string(faults_));
    EXPECT_GT(struckRequests_, 100);
}

INSTANTIATE_TEST_SUITE_P(OfEveryShape, RequestFaults, testing::Range(0, 7),
                         [](const testing::TestParamInfo<int>& shape) {
                             return shapedCases(1)[static_cast<std::size_t>(shape.param)].name;
                         });

// Blocks that are distributed: the fault may come in either pass, and while a block is moved out of
// the way.
class BlockFaults : public RequestFaults {
  protected:
    BlockFaults() : RequestFaults(64) {}
};

TEST_F(BlockFaults, AreAnsweredWithTheirCodeAndTheNextRequestIsServed) {
    const ShapedCase shaped = plainCase(100);
    injector_.disarm();
    shaped.expectServed(slot_, kTenRecordsPerPage);
    cleanCalls_ = injector_.fileCalls();
    ASSERT_GT(cleanCalls_.size(), 4000U);
    constexpr std::int32_t kStep = 197;
    for (const Call call : {Call::kSeek, Call::kReadFile, Call::kWriteFile}) {
        for (const Fault& fault : call == Call::kSeek ? kFailures : kFailuresAndShortMoves) {
            for (const std::int32_t times : {1, kForEver})
                strikeEach(shaped, call, times, fault, kStep);
        }
    }
    EXPECT_GT(struckRequests_, 100);
}

// A hierarchy that meets a value which cannot be compared looks for the one to report, and reads
// on.
using SettledErrors = RequestFaults;

TEST_F(SettledErrors, KeepTheSystemErrorNumberThatIsNotTheirs) {
    ShapedCase roots = plainCase(1);
    roots.mode = SortMode::kHierarchy;
    for (ShapedRow& row : roots.rows)
        row.key = 1;
    // The filler behind the key is no string: its length is the key's low byte, twice.
    const KeyDescriptor key = host::ascendingKey(DataType::kInteger, 16, 4);
    host::RequestBuilder request;
    request.addKey(key).addKey(key).addKey(host::ascendingKey(DataType::kString, 20, 100));
    request.setMode(SortMode::kHierarchy);
    int complaints = 0;
    for (const std::int32_t times : {1, kForEver}) {
        for (std::int32_t number = 1, struck = 1; struck > 0; ++number) {
            injector_.arm(Call::kReadFile, number, times, {"EIO", Deed::kFail, EIO});
            const SortReply reply = ask(roots, request);
            struck = injector_.injected();
            injector_.disarm();
            const Answer answer = {static_cast<ErrorCode>(reply.errorCode), reply.osError};
            const Answer unread = {ErrorCode::kWorkFileRead, EIO};
            if (struck > 0 && answer == unread) continue;
            EXPECT_EQ(answer, (Answer{ErrorCode::kValueTooLong, kUntouched})) << "read " << number;
            complaints += struck;
        }
    }
    EXPECT_GT(complaints, 20);
}

}  // namespace
}  // namespace tvsort::test
