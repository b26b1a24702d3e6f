// The command on bad days: after every failure words, a status, and nothing left behind.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "host/file_descriptor.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const char kByKey[] = "--record-length 100 --key bytes:0:10 ";

void waitUntil(const std::function<bool()>& isDone) {
    for (int i = 0; i < 1000; ++i) {
        if (isDone()) return;
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    FAIL() << "waited for 10 seconds";
}

// The running command. Its standard input is a pipe that the test holds, so that it can be met in
// the middle of its work; standard output is one that nobody reads.
class Running {
  public:
    Running(const std::filesystem::path& folder, const std::string& words) {
        int input[2];
        int output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) abort();
        const std::string line =
            "cd '" + folder.string() + "' && exec '" TVSORT_HOST_PROGRAM "' 2>.errors " + words;
        id_ = fork();
        if (id_ < 0) abort();
        if (id_ == 0) {
            // Whoever runs the tests in the background has them ignored.
            for (const int number : {SIGINT, SIGTERM, SIGHUP})
                signal(number, SIG_DFL);
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            _exit(127);
        }
        input_ = host::FileDescriptor(input[1]);
        output_ = host::FileDescriptor(output[0]);
        close(input[0]);
        close(output[1]);
    }
    ~Running() { sendSignal(SIGKILL); }

    // Answers when all of it is in the pipe.
    void send(const std::string& bytes) const {
        const auto sent = ::write(input_.number(), bytes.data(), bytes.size());
        ASSERT_EQ(sent, static_cast<ssize_t>(bytes.size()));
    }
    void endInput() { input_.close(); }
    void sendSignal(int number) const {
        if (!ended_) kill(id_, number);
    }
    int waitForStatus() {
        waitUntil([this] { return (ended_ = waitpid(id_, &status_, WNOHANG) == id_); });
        return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
    }
    bool hasWritten() const {
        pollfd polled = {output_.number(), POLLIN, 0};
        return poll(&polled, 1, 0) == 1;
    }

  private:
    host::FileDescriptor input_;
    host::FileDescriptor output_;
    pid_t id_ = -1;
    int status_ = 0;
    bool ended_ = false;
};

class FailingCommand : public CommandTest {
  protected:
    FailingCommand() {
        std::filesystem::create_directory(folder() / "temp");
        setenv("TMPDIR", (folder() / "temp").c_str(), 1);
        write("process", "#!/bin/sh\necho $$ >process-id\nexec '" TVSORT_PROGRAM "' \"$@\"\n");
        chmod((folder() / "process").c_str(), 0755);
        write("out", "before");
        signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(run("generate --records 3000 --seed 7 -o records").errors, "");
    }
    ~FailingCommand() override { unsetenv("TMPDIR"); }

    // Neither process nor directory, socket or work file, nor a part of an output.
    void expectNothingLeft() const {
        EXPECT_TRUE(std::filesystem::is_empty(folder() / "temp"));
        EXPECT_EQ(read("out"), "before");
        for (const auto& entry : std::filesystem::directory_iterator(folder()))
            EXPECT_FALSE(entry.path().filename().string().starts_with(".out.")) << entry.path();
        EXPECT_FALSE(processId() > 0 && kill(processId(), 0) == 0) << "the process still runs";
    }
    pid_t processId() const { return std::atoi(read("process-id").c_str()); }
    // To the sort process, as soon as it runs.
    void signalProcess(int number) const {
        waitUntil([this] { return read("process-id").ends_with("\n"); });
        ASSERT_GT(processId(), 0);
        kill(processId(), number);
    }
};

TEST_F(FailingCommand, EveryFailureSaysWhatAndWhereAndLeavesNothing) {
    write("short", std::string(1234, 'x'));
    struct Case {
        std::string words;
        std::vector<const char*> parts;  // of the message
    };
    const Case cases[] = {
        {"sort missing -o out", {"input missing: No such file"}},
        {"sort records missing -o out", {"input missing: No such file"}},
        {"sort . -o out", {"input .: Is a directory"}},
        {"sort short -o out", {"short ends with a short record: record 13 has 34 of 100 bytes"}},
        {"sort - -o out <short", {"standard input ", "record 13 has 34 of 100 bytes"}},
        {"sort records -o no/out", {"output no/out: No such file"}},
        {"sort records -o .", {"output .: Is a directory"}},
        {"sort records -o /dev/full", {"output /dev/full: No space left", "make room"}},
        {"sort records -o - >/dev/full", {"standard output: No space left", "make room"}},
        {"sort records -o out --temp-dir no", {"directory under ", "/no: No such file"}},
        {"sort records -o out --memory 16K", {"20480 bytes"}},
        {"sort records -o out --process no", {"--process no: there is no such program"}},
        {"sort records -o out --process /bin/false", {"slot 1", "ended with status 1"}},
        {"sort records -o out --key int32:97", {"--key int32:97", "byte 101", "100 bytes"}},
        {"sort records -o out --key number:0", {"no type \"number\"", "int32"}},
        {"sort records -o out --key string:10:4", {"code 1411", "check the key's offset"}},
        {"sort records -o out --weights records", {"--weights records", "256 bytes"}},
        {"sort records -o out --stats=xml", {"xml", "--help"}},
        {"verify missing", {"input missing: No such file"}},
        {"verify short", {"record 13 has 34 of 100 bytes"}},
        {"verify records >/dev/full", {"standard output: No space left"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words);
        const Outcome outcome = run(c.words + " " + kByKey);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_THAT(outcome.errors, testing::StartsWith("tvsort-host: "));
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
        for (const char* const words : c.parts)
            EXPECT_THAT(outcome.errors, HasSubstr(words));
        expectNothingLeft();
    }
    // Words that have nowhere to go do not end up in a file, and the status holds.
    for (const char* const errors : {" 2>/dev/full ", " <&- 2>&- "})
        EXPECT_EQ(run(std::string("sort missing -o out") + errors + kByKey).status, 2) << errors;
    for (const char* const words : {"--stats <&- 2>&- ", "--stats 2>/dev/full ",
                                    "--stats=json 2>/dev/full ", "--groups 2>/dev/full "}) {
        EXPECT_EQ(run(std::string("sort records -o out ") + words + kByKey).status, 0) << words;
        EXPECT_GE(read("out").size(), 300000U);
        write("out", "");
    }
    EXPECT_EQ(run("--help >/dev/full").status, 2);
}

TEST_F(FailingCommand, AFullDiskIsNamedByTheFileThatDidNotFit) {
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small = {100000, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const Outcome work =
        run(std::string("sort records -o out --memory 20K --block-pages 1 ") + kByKey);
    const Outcome output = run("generate --records 3000 -o out");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(work.status, 2);
    EXPECT_THAT(work.errors, AllOf(HasSubstr("work file " + (folder() / "temp").string()),
                                   HasSubstr("File too large; make room")));
    EXPECT_EQ(output.status, 2);
    EXPECT_THAT(output.errors, HasSubstr("output out: File too large; make room"));
    expectNothingLeft();
}

TEST_F(FailingCommand, ASignalEndsEveryStageInGoodOrder) {
    const std::string words = std::string("sort - --process ./process --memory 20K ") + kByKey;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        for (const char* const stage : {"loading", "sorting", "writing"}) {
            SCOPED_TRACE(std::string(stage) + ", signal " + std::to_string(number));
            write("process-id", "");
            const bool writes = std::strcmp(stage, "writing") == 0;
            Running command(folder(), words + (writes ? "" : "-o out"));
            command.send(read("records"));  // more than a pipe holds: it has begun to load
            signalProcess(std::strcmp(stage, "sorting") == 0 ? SIGSTOP : SIGCONT);
            if (std::strcmp(stage, "loading") != 0) command.endInput();
            std::this_thread::sleep_for(std::chrono::milliseconds{50});
            if (writes) waitUntil([&] { return command.hasWritten(); });
            command.sendSignal(number);
            EXPECT_EQ(command.waitForStatus(), 128 + number);
            EXPECT_THAT(read(".errors"), HasSubstr("interrupted by signal"));
            expectNothingLeft();
        }
    }
}

TEST_F(FailingCommand, AProcessThatDiesOrHangsIsNamedAndLeavesNothing) {
    struct Case {
        int signalNumber;
        std::vector<const char*> parts;
    };
    const Case cases[] = {{SIGKILL, {"slot 1", "ended by signal 9"}},
                          {SIGSTOP, {"slot 1", "let the time run out", "reply was awaited"}}};
    for (const Case& c : cases) {
        write("process-id", "");
        Running command(folder(),
                        std::string("sort - -o out --timeout 3 --process ./process ") + kByKey);
        command.send(read("records"));
        signalProcess(c.signalNumber);
        command.endInput();
        EXPECT_EQ(command.waitForStatus(), 2);
        for (const char* const words : c.parts)
            EXPECT_THAT(read(".errors"), HasSubstr(words));
        EXPECT_THAT(read(".errors"), HasSubstr("(process " + std::to_string(processId()) + ")"));
        expectNothingLeft();
    }
}

}  // namespace
}  // namespace tvsort::test
