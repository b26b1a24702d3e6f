// Sorts by several threads and processes of which one, or what they need, fails at any moment. They
// give the right bytes, or say what went wrong, leave the output as it was and nothing behind, and
// end in time.
//
// TVSORT_FAILURE_ROUNDS=N makes each loop N times as long.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "host/file_descriptor.h"
#include "tests/support/small_disk.h"
#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ContainsRegex;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr Seconds kPatience{20};
[[maybe_unused]] constexpr uid_t kOtherUser = 54321;

#ifdef TVSORT_SANITIZED_HOST
constexpr int kSlower = 3;  // the command under sanitizers
#else
constexpr int kSlower = 1;
#endif

int rounds(int usual) {
    const char* const times = std::getenv("TVSORT_FAILURE_ROUNDS");
    return usual / kSlower * (times == nullptr ? 1 : std::max(std::atoi(times), 1));
}

bool waitUntil(const std::function<bool()>& isDone) {
    for (const auto end = Clock::now() + kPatience; Clock::now() < end;) {
        if (isDone()) return true;
        usleep(300);
    }
    return false;
}

// The command while it runs.
class Job {
  public:
    // `limits`: words for the shell before it.
    Job(const std::filesystem::path& folder, const std::string& words,
        const std::string& limits = "", int output = -1, uid_t user = 0) {
        const std::string line = "cd '" + folder.string() + "' && exec 2>.errors && " + limits +
                                 " exec '" TVSORT_HOST_PROGRAM "' " + words;
        std::filesystem::remove(folder / ".errors");
        id_ = fork();
        if (id_ != 0) return;
        for (const int number : {SIGINT, SIGTERM, SIGPIPE})
            signal(number, SIG_DFL);
        // In a build with sanitizers the search for leaks is one more child, and none to stop.
        setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
        dup2(output >= 0 ? output : open("/dev/null", O_WRONLY), STDOUT_FILENO);
        if (user != 0 && setuid(user) != 0) _exit(126);
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }
    ~Job() {
        if (!hasEnded_) kill(id_, SIGKILL);
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    void sendSignal(int number) const { kill(id_, number); }
    // Of its sort processes, one of those that run, or the first one that does soon.
    void signalChild(int number, std::mt19937& random) const {
        for (int i = 0; i < 100 && !signalOne(number, random); ++i)
            usleep(1000);
    }
    // The signal's number below zero where one has ended it.
    int end() {
        int status = 0;
        hasEnded_ = waitUntil([&] { return waitpid(id_, &status, WNOHANG) == id_; });
        EXPECT_TRUE(hasEnded_) << "it hangs";
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

  private:
    bool signalOne(int number, std::mt19937& random) const {
        std::vector<pid_t> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::string name;
            std::string state;
            pid_t id = 0;
            pid_t parent = 0;
            std::ifstream(entry.path() / "stat") >> id >> name >> state >> parent;
            if (parent == id_ && state != "Z") found.push_back(id);
        }
        return !found.empty() && kill(found[random() % found.size()], number) == 0;
    }

    pid_t id_ = -1;
    bool hasEnded_ = false;
};

struct Way {
    std::string words;
    std::string alone;  // by one process
    std::string input;
    std::string expected;
    Seconds time = {};
};

// What came of the rounds of a loop, by when they were disturbed: 0 and 1 in the first and second
// half of the time that the command needs, 2 later. How many fall into each half is the machine's:
// a fast one has few sort processes left in the second.
struct Tally {
    int failed[3] = {};
    int succeeded = 0;
    bool hasBoth() const { return failed[0] + failed[1] > 0 && succeeded > 0; }
};

class ParallelFailures : public CommandTest {
  protected:
    ParallelFailures() {
        std::filesystem::create_directory(folder() / "temp");
        setenv("TMPDIR", (folder() / "temp").c_str(), 1);
        prctl(PR_SET_CHILD_SUBREAPER, 1);  // processes that lose their parent come here
        std::mt19937 random(11);
        std::string csv = "number,key,word\n";
        std::string lines;
        std::string records;
        for (int i = 0; i < 60000; ++i) {
            const std::string key = std::to_string(random() % 9000);
            const std::string word(random() % 40, static_cast<char>('a' + random() % 26));
            csv += std::to_string(i * 7919 % 60000) + "," + key + ",\"" + word + "\n\"\n";
            lines += word + key + "\n";
            records += std::to_string(1000000 + random() % 30000) + std::to_string(100000 + i) +
                       std::string(23, '.');
        }
        write("in.csv", csv);
        write("lines", lines);
        write("records", records);
        write("out", "before");
    }
    ~ParallelFailures() override {
        unsetenv("TMPDIR");
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    }

    // One of the ways to sort: what, in memory or not, by how many.
    Way& way(std::mt19937& random) {
        static constexpr const char* kForms[][2] = {
            {"in.csv", "--key key:int"},
            {"in.csv", "--key word:desc --key key:decimal:0"},
            {"lines", "--lines"},
            {"records", "--record-length 36 --key bytes:0:7"},
            {"in.csv", "--key key:int --distinct"},
            {"lines", "--lines --groups=count"},
            {"in.csv", "--key number:int --unique"},
            {"in.csv", "--key key:int --limit 9000"},
        };
        static constexpr const char* kMeans[] = {
            " --memory 1G --processes 2", " --memory 1G --processes 3",
            " --memory 1M --processes 2", " --memory 2M --processes 3"};
        const auto& [input, keys] = kForms[random() % std::size(kForms)];
        const std::string words = std::string("sort ") + input + " " + keys;
        const std::string means = kMeans[random() % std::size(kMeans)];
        Way& found = ways_[words + means];
        if (!found.expected.empty()) return found;
        std::string& expected = expected_[words];
        if (expected.empty()) expected = run(words + " --processes 1").output;
        found = {words + means, words + " --processes 1", input, expected};
        const auto start = Clock::now();
        Job job(folder(), found.words + " -o out");
        EXPECT_FALSE(hasFailed(job, found, {}, ""));
        found.time = Clock::now() - start;
        return found;
    }

    // The end of a command, good or bad. It may fail with these statuses and words.
    bool hasFailed(Job& job, const Way& way, const std::vector<int>& statuses,
                   const std::string& words) {
        const int status = job.end();
        errors_ = read(".errors");
        SCOPED_TRACE(way.words + ": " + std::to_string(status) + ": " + errors_);
        expectNothingLeft();
        if (status == 0) {
            EXPECT_THAT(errors_, testing::MatchesRegex("([0-9]+ groups\n)?"));
            EXPECT_TRUE(read(outName_) == way.expected);
            write(outName_, "before");
        } else if (status == -SIGINT || status == -SIGTERM) {
            EXPECT_EQ(errors_, "") << "before it can say anything";
            EXPECT_THAT(statuses, Contains(128 - status));
        } else {
            EXPECT_THAT(statuses, Contains(status));
            EXPECT_THAT(errors_, ContainsRegex("^tvsort-host: .*(" + words + ").*\n$"));
            EXPECT_EQ(std::count(errors_.begin(), errors_.end(), '\n'), 1);
        }
        EXPECT_EQ(read(outName_), "before");
        return status != 0;
    }

    // Neither file nor process, unless a file that the output would have replaced.
    void expectNothingLeft() {
        EXPECT_TRUE(waitUntil([] { return waitpid(-1, nullptr, WNOHANG) < 0; }))
            << "a process is left";
        EXPECT_TRUE(std::filesystem::is_empty(temp_));
        const auto outFolder = (folder() / outName_).parent_path();
        for (const auto& entry : std::filesystem::directory_iterator(outFolder))
            EXPECT_FALSE(entry.path().filename().string().starts_with(".out.")) << entry.path();
    }

    // Calls `round` with a seed for each, and until both kinds of end were met.
    void loop(int count, Tally& tally, const std::function<void(std::mt19937&)>& round) {
        for (int i = 0; i < count || (i < 4 * count && !tally.hasBoth()); ++i) {
            SCOPED_TRACE("seed " + std::to_string(i));
            std::mt19937 random(static_cast<unsigned>(i));
            round(random);
            if (HasFailure()) return;
        }
        std::printf("failed %d, %d and %d times, succeeded %d times\n", tally.failed[0],
                    tally.failed[1], tally.failed[2], tally.succeeded);
        EXPECT_TRUE(tally.hasBoth());
    }

    // Disturbs a sort at a random moment.
    void disturb(int count, const std::vector<int>& statuses, const std::string& words,
                 const std::function<void(Job&, std::mt19937&)>& fault) {
        Tally tally;
        loop(count, tally, [&](std::mt19937& random) {
            const Way& chosen = way(random);
            const double part = static_cast<double>(random() % 1200) / 1000;
            Job job(folder(), chosen.words + " --timeout 2 -o out");
            std::this_thread::sleep_for(chosen.time * part);
            fault(job, random);
            if (hasFailed(job, chosen, statuses, words)) {
                tally.failed[static_cast<int>(part * 2)] += 1;
            } else {
                tally.succeeded += 1;
            }
        });
    }

    std::filesystem::path temp_ = folder() / "temp";
    std::string outName_ = "out";
    std::string errors_;
    std::map<std::string, std::string> expected_;
    std::map<std::string, Way> ways_;
};

TEST_F(ParallelFailures, AProcessThatDiesOrStopsIsNamed) {
    disturb(rounds(20), {2}, ".process [0-9]+. (was ended by signal 9|let the time run out)",
            [](Job& job, std::mt19937& random) {
                job.signalChild(random() % 16 == 0 ? SIGSTOP : SIGKILL, random);
            });
}

TEST_F(ParallelFailures, ASignalOrTwoEndThemAtAnyMoment) {
    disturb(rounds(20), {128 + SIGINT, 128 + SIGTERM},
            "interrupted by signal (2|15); no output file was changed",
            [](Job& job, std::mt19937& random) {
                job.sendSignal(random() % 2 == 0 ? SIGINT : SIGTERM);
                if (random() % 2 == 0) return;
                std::this_thread::sleep_for(std::chrono::microseconds{random() % 10000});
                job.sendSignal(random() % 2 == 0 ? SIGINT : SIGTERM);
            });
}

// Ctrl-C reaches any of the threads; the one that waits for a reader may be another.
TEST_F(ParallelFailures, ASignalEndsThemWhileNobodyReads) {
    std::mt19937 random(1);
    for (int i = 0; i < 8; ++i) {
        const Way& chosen = way(random);
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const host::FileDescriptor reader(ends[0]);
        host::FileDescriptor writer(ends[1]);
        Job job(folder(), chosen.words, "", ends[1]);
        writer.close();
        pollfd polled = {ends[0], POLLIN, 0};
        ASSERT_EQ(poll(&polled, 1, 10000), 1);
        usleep(20000);
        job.sendSignal(SIGTERM);
        EXPECT_TRUE(hasFailed(job, chosen, {128 + SIGTERM}, "interrupted by signal 15"));
        if (HasFailure()) break;
    }
}

TEST_F(ParallelFailures, AReaderThatGoesEndsThemWithoutAWord) {
    Tally tally;
    loop(rounds(14), tally, [&](std::mt19937& random) {
        const Way& chosen = way(random);
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        host::FileDescriptor reader(ends[0]);
        host::FileDescriptor writer(ends[1]);
        fcntl(ends[1], F_SETPIPE_SZ, 4096);
        Job job(folder(), chosen.words, "", ends[1]);
        writer.close();
        const std::size_t size = chosen.expected.size();
        const std::size_t wanted = random() % (size + size / 4);
        std::string bytes(wanted, '\0');
        std::size_t got = 0;
        for (ssize_t moved = 1; got < wanted && moved > 0; got += static_cast<std::size_t>(moved))
            moved = ::read(ends[0], bytes.data() + got, wanted - got);
        reader.close();
        EXPECT_TRUE(bytes.substr(0, got) == chosen.expected.substr(0, got));
        const int status = job.end();
        EXPECT_THAT(status, AnyOf(0, 128 + SIGPIPE));
        EXPECT_THAT(read(".errors"), testing::MatchesRegex("([0-9]+ groups\n)?"));
        expectNothingLeft();
        if (status == 0) {
            EXPECT_GE(got + 8192, size);
            tally.succeeded += 1;
        } else {
            tally.failed[got * 2 / (size + 1)] += 1;
        }
    });
}

TEST_F(ParallelFailures, KilledThemselvesTheyLeaveNoProcessAndWhatTheNextOneSweeps) {
    Tally tally;
    loop(rounds(12), tally, [&](std::mt19937& random) {
        const Way& chosen = way(random);
        const double part = static_cast<double>(random() % 1500) / 1000;
        Job job(folder(), chosen.words + " -o out");
        std::this_thread::sleep_for(chosen.time * part);
        job.sendSignal(SIGKILL);
        const int status = job.end();
        EXPECT_THAT(status, AnyOf(0, -SIGKILL));
        const std::string out = read("out");
        EXPECT_TRUE(out == "before" || out == chosen.expected);
        if (status == 0) {
            tally.succeeded += 1;
        } else {
            tally.failed[static_cast<int>(part * 2)] += 1;
        }
        write("out", "before");
        Job next(folder(), chosen.words + " -o out");
        EXPECT_FALSE(hasFailed(next, chosen, {}, ""));
    });
}

// Where the runs are kept, where the output is to be.
TEST_F(ParallelFailures, AFullDiskIsNamedByWhatDidNotFit) {
    std::filesystem::create_directory(folder() / "disk");
    const SmallDisk disk(folder() / "disk", "size=16M");
    if (!disk.isMounted()) GTEST_SKIP() << "nothing may be mounted here";
    for (const bool isOutput : {false, true}) {
        Tally tally;
        loop(rounds(14), tally, [&](std::mt19937& random) {
            const Way& chosen = way(random);
            if (isOutput) outName_ = "disk/out";
            write(outName_, "before");
            const std::uint64_t needed = chosen.expected.size() / kDiskPage;
            const std::uint64_t pages = random() % (needed + needed / 2 + 2);
            disk.fillUpTo(pages);
            Job job(folder(),
                    chosen.words + (isOutput ? " -o disk/out" : " --temp-dir disk -o out"));
            const bool failed = hasFailed(
                job, chosen, {2},
                isOutput ? "(write|name) the output disk/out: No space left on device; make room"
                         : "cannot keep records in .*disk: No space left on device; make room");
            if (failed) {
                tally.failed[pages * 2 / (needed * 3 / 2 + 2)] += 1;
            } else {
                tally.succeeded += 1;
            }
            disk.makeRoom();
            outName_ = "out";
        });
    }
}

TEST_F(ParallelFailures, AFullStandardOutputIsNamed) {
    const host::FileDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    std::mt19937 random(2);
    for (int i = 0; i < 8; ++i) {
        const Way& chosen = way(random);
        Job job(folder(), chosen.words, "", full.number());
        EXPECT_TRUE(hasFailed(job, chosen, {2}, "standard output: No space left on device"));
    }
}

// Descriptors, memory, the size of a file, threads and processes: with ever more of them.
TEST_F(ParallelFailures, WhatRunsOutIsNamed) {
    std::filesystem::permissions(folder(), std::filesystem::perms::all);
    std::filesystem::permissions(temp_, std::filesystem::perms::all);
    struct Case {
        const char* limit;
        int first;
        int last;
        int step;
        const char* words;
        uid_t user;
    };
    const Case cases[] = {
#if !defined(TVSORT_SANITIZED_HOST)  // which look at memory through pipes
        {"ulimit -n ", 4, 40, 2,
         "Too many open files; close other files or raise the limit of open files", 0},
        {"ulimit -v ", 40000, 1000000, 64000, "less --memory|less memory|out of memory|signal 11",
         0},
        {"ulimit -p ", 1, 16, 1, "unavailable; (raise the limit|give fewer --processes)",
         kOtherUser},
#endif
        {"ulimit -f ", 8, 9000, 700, "File too large", 0},
    };
    for (const Case& c : cases) {
        if (c.user != 0 && getuid() != 0) continue;
        int failed = 0;
        int succeeded = 0;
        std::mt19937 random(3);
        for (int amount = c.first; amount <= c.last; amount += c.step) {
            const Way& chosen = way(random);
            const std::string limits = c.limit + std::to_string(amount) + " &&";
            const auto limited = [&](const std::string& words) -> std::unique_ptr<Job> {
                return std::make_unique<Job>(folder(), words, limits, -1, c.user);
            };
            std::filesystem::permissions(folder() / "out", std::filesystem::perms::all);
            if (limited("--version")->end() != 0) continue;  // it does not even start
            (hasFailed(*limited(chosen.words + " -o out"), chosen, {2}, c.words) ? failed
                                                                                 : succeeded) += 1;
        }
        std::printf("%s: failed %d times, succeeded %d times\n", c.limit, failed, succeeded);
        EXPECT_GT(failed, 0) << c.limit;
        EXPECT_GT(succeeded, 0) << c.limit;
    }
}

// What they had read of it, or that it was changed, or what it is now.
TEST_F(ParallelFailures, AnInputThatChangesMeanwhileIsNoticed) {
    int noticed = 0;
    int done = 0;
    for (int i = 0; i < rounds(20); ++i) {
        SCOPED_TRACE("seed " + std::to_string(i));
        std::mt19937 random(static_cast<unsigned>(i));
        const Way& chosen = way(random);
        const std::string content = read(chosen.input);
        Job job(folder(), chosen.words + " -o out");
        std::this_thread::sleep_for(chosen.time * (static_cast<double>(random() % 1000) / 1000));
        if (random() % 2 == 0) {
            std::filesystem::resize_file(folder() / chosen.input, random() % content.size());
        } else {
            std::ofstream(folder() / chosen.input, std::ios::app) << content;
        }
        const int status = job.end();
        const std::string errors = read(".errors");
        const std::string output = read("out");
        expectNothingLeft();
        if (errors.find("was changed while it was being read; leave it alone") !=
            std::string::npos) {
            EXPECT_EQ(status, 2);
            EXPECT_EQ(output, "before");
            noticed += 1;
        } else if (output == chosen.expected) {
            EXPECT_EQ(status, 0);
            done += 1;
        } else {
            write("out", "before");
            const Outcome again = run(chosen.alone + " -o out");
            EXPECT_EQ(status, again.status) << chosen.words;
            EXPECT_EQ(errors, again.errors) << chosen.words;
            EXPECT_TRUE(output == read("out")) << chosen.words;
        }
        write(chosen.input, content);
        write("out", "before");
        if (HasFailure()) break;
    }
    std::printf("noticed %d times, not met %d times\n", noticed, done);
    EXPECT_GT(noticed, 0);
    EXPECT_GT(done, 0);
}

}  // namespace
}  // namespace tvsort::test
