// Files that the command makes, replaces and removes, in folders where others make theirs.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include "tests/system/command_fixture.h"

namespace tvsort::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

constexpr uid_t kNobody = 65534;
const char kSorted[] = "a\nb\nc\n";

class CommandFiles : public CommandTest {
  protected:
    CommandFiles() {
        fs::create_directory(folder() / "temp");
        fs::create_directory(folder() / "public");
        chmod((folder() / "public").c_str(), 01777);
        setenv("TMPDIR", (folder() / "temp").c_str(), 1);
        write("words", "b\nc\na\n");
    }
    ~CommandFiles() override { unsetenv("TMPDIR"); }

    Outcome sortTo(const std::string& output) { return run("sort --lines words -o " + output); }
    mode_t modeOf(const std::string& name) const {
        struct stat status = {};
        EXPECT_EQ(stat((folder() / name).c_str(), &status), 0);
        return status.st_mode & 07777;
    }
    void link(const fs::path& target, const std::string& name, uid_t owner) const {
        fs::create_symlink(target, folder() / name);
        EXPECT_EQ(lchown((folder() / name).c_str(), owner, static_cast<gid_t>(-1)), 0);
    }
};

TEST_F(CommandFiles, OfTheUserInTheTemporaryFolderSurvive) {
    const char* const kept[] = {"temp/tvsort-host-backup/thesis.txt",
                                "temp/tvsort-host-aaaaaa/1.51",
                                "temp/tvsort-host-bbbbbb/deep/1.51"};
    for (const fs::path name : kept) {
        fs::create_directories((folder() / name).parent_path());
        chmod((folder() / name).parent_path().c_str(), 0700);
        write(name, "mine");
    }
    EXPECT_EQ(sortTo("out").status, 0);
    for (const char* const name : kept)
        EXPECT_EQ(read(name), "mine") << name;
}

// From here on a call with these flags (its third argument) fails, here and in all that is run.
bool refuse(unsigned call, unsigned flags, unsigned error) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, flags),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, flags, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(CommandFiles, FailOrTakeAnotherWayWhereTheFileSystemCannotDoAll) {
    constexpr int kNoFilter = 77;
    const std::string lock = "cannot lock " + (folder() / "temp/tvsort-host-").string();
    struct Case {
        unsigned call, flags, error;
        int status;
        std::vector<std::string> parts;
    };
    const Case cases[] = {
        {SYS_flock, 0, ENOLCK, 2, {lock, "No locks available; choose"}},
        {SYS_linkat, 0, EEXIST, 2, {"cannot give the output its name out: File exists"}},
        {SYS_openat, O_TMPFILE, EOPNOTSUPP, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.call);
        const pid_t id = fork();
        if (id == 0) {
            if (!refuse(c.call, c.flags, c.error)) _exit(kNoFilter);
            _exit(run("--version; cat words | '" TVSORT_HOST_PROGRAM
                      "' sort --lines - -o out 2>.errors")
                      .status);
        }
        int status = 0;
        ASSERT_EQ(waitpid(id, &status, 0), id);
        if (WEXITSTATUS(status) == kNoFilter) GTEST_SKIP() << "no calls can be refused here";
        EXPECT_EQ(WEXITSTATUS(status), c.status);
        for (const std::string& part : c.parts)
            EXPECT_THAT(read(".errors"), HasSubstr(part));
        EXPECT_TRUE(fs::is_empty(folder() / "temp"));
        EXPECT_EQ(read("out"), c.status == 0 ? kSorted : "");
        for (const auto& entry : fs::directory_iterator(folder()))
            EXPECT_FALSE(entry.path().filename().string().starts_with(".out.")) << entry.path();
    }
}

TEST_F(CommandFiles, HaveNamesThatNobodyForesees) {
    const std::string words = "cd '" + folder().string() +
                              "' && sh -c 'echo mine >.out.$$; exec \"" TVSORT_HOST_PROGRAM
                              "\" sort --lines words -o out'";
    EXPECT_EQ(std::system(words.c_str()), 0);
    EXPECT_EQ(read("out"), kSorted);
    int kept = 0;
    for (const auto& entry : fs::directory_iterator(folder())) {
        const std::string name = entry.path().filename();
        if (name.starts_with(".out.")) kept += read(name) == "mine\n" ? 1 : 100;
    }
    EXPECT_EQ(kept, 1) << "the file of a user who guessed";
}

TEST_F(CommandFiles, NeverPassOnTheRightToActAsTheirOwner) {
    struct Case {
        mode_t before, after;
    };
    for (const Case& c : {Case{06755, 0755}, Case{04711, 0711}, Case{02640, 0640},
                          Case{01666, 0666}, Case{0604, 0604}}) {
        write("out", "before");
        ASSERT_EQ(chmod((folder() / "out").c_str(), c.before), 0);
        EXPECT_EQ(sortTo("out").status, 0);
        EXPECT_EQ(modeOf("out"), c.after);
    }
    const mode_t mask = umask(027);
    EXPECT_EQ(sortTo("masked").status, 0);
    umask(mask);
    EXPECT_EQ(modeOf("masked"), 0640U);
}

TEST_F(CommandFiles, AreNotWrittenThroughAnothersLinkInAPublicFolder) {
    if (geteuid() != 0) GTEST_SKIP() << "only root has other users";
    const fs::path victim = folder() / "victim";
    fs::create_directory(folder() / "home");
    link(victim, "public/file", kNobody);
    link(folder() / "home", "public/way", kNobody);
    link(folder() / "home/new", "public/dangling", kNobody);
    link("/dev/null", "public/null", kNobody);
    link("public/file", "to-file", 0);  // the user's own, which leads to the other's
    link("../public/way", "home/to-way", 0);
    for (const char* const name :
         {"public/file", "public/way/out", "public/dangling", "public/null", "to-file",
          "home/to-way/out", "public/../public/./file"}) {
        SCOPED_TRACE(name);
        write("victim", "before");
        const Outcome outcome = sortTo(name);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.errors,
                    AllOf(HasSubstr(std::string("cannot create the output ") + name + ": "),
                          HasSubstr("is a symbolic link of another user"),
                          HasSubstr("; name the file that is meant")));
        EXPECT_EQ(read("victim"), "before");
        EXPECT_TRUE(fs::is_symlink(folder() / "public/file"));
        EXPECT_FALSE(fs::exists(folder() / "home/out") || fs::exists(folder() / "home/new"));
    }
}

TEST_F(CommandFiles, AreWrittenThroughLinksThatMayBeTrusted) {
    fs::create_directory(folder() / "home");
    fs::create_directory(folder() / "open");
    chmod((folder() / "open").c_str(), 0777);   // not sticky
    chmod((folder() / "home").c_str(), 01775);  // not for everybody
    const uid_t user = geteuid();
    const uid_t other = user == 0 ? kNobody : user;
    link("../home/own", "public/own", user);
    link("../home/open", "open/link", other);
    link("../home/group", "home/link", other);
    link("home", "way", other);
    link("public/own", "chain", user);
    link("home/later", "dangling", user);
    fs::create_directory(folder() / "theirs");
    link("../home/theirs", "theirs/link", other);
    chmod((folder() / "theirs").c_str(), 01777);
    EXPECT_EQ(chown((folder() / "theirs").c_str(), other, static_cast<gid_t>(-1)), 0);
    struct Case {
        const char *name, *file;
    };
    for (const Case& c :
         {Case{"public/own", "home/own"}, Case{"open/link", "home/open"},
          Case{"home/link", "home/group"}, Case{"way/new", "home/new"}, Case{"chain", "home/own"},
          Case{"dangling", "home/later"}, Case{"theirs/link", "home/theirs"}}) {
        SCOPED_TRACE(c.name);
        write(c.file, "before");
        if (std::string(c.name) == "dangling") fs::remove(folder() / c.file);
        const bool isLink = fs::is_symlink(folder() / c.name);
        EXPECT_EQ(sortTo(c.name).errors, "");
        EXPECT_EQ(fs::is_symlink(folder() / c.name), isLink);
        EXPECT_FALSE(fs::is_symlink(folder() / c.file));
        EXPECT_EQ(read(c.file), kSorted);
    }
    link("round", "round", user);
    EXPECT_THAT(sortTo("round").errors, HasSubstr("symbolic links"));
    EXPECT_THAT(sortTo("words/out").errors, HasSubstr("Not a directory"));
    EXPECT_THAT(sortTo("home/").errors, HasSubstr("Is a directory"));
    EXPECT_THAT(sortTo("no/").errors, HasSubstr("No such file"));
}

TEST_F(CommandFiles, MayBeInputsPipesDevicesAndStreams) {
    EXPECT_EQ(run("sort --lines words -o words").status, 0);
    EXPECT_EQ(read("words"), kSorted);
    fs::create_hard_link(folder() / "words", folder() / "second");
    write("more", "0\n");
    EXPECT_EQ(run("sort --lines words more -o words").status, 0);
    EXPECT_EQ(read("words"), "0\na\nb\nc\n");
    EXPECT_EQ(read("second"), kSorted) << "a second name keeps what it had";
    write("words", "b\nc\na\n");
    EXPECT_EQ(sortTo("/dev/null").status, 0);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_EQ(sortTo("/dev/stdout").output, kSorted);
    const std::string again = "--version; '" TVSORT_HOST_PROGRAM "' sort --lines words -o ";
    EXPECT_EQ(run(again + "/dev/stdout | cat >piped").status, 0);
    EXPECT_EQ(read("piped"), kSorted);
    EXPECT_EQ(sortTo("/dev/fd/7 7>seven").status, 0);
    EXPECT_EQ(read("seven"), kSorted);
    EXPECT_EQ(sortTo("/proc/self/cwd/there").status, 0);
    EXPECT_EQ(read("there"), kSorted);
    ASSERT_EQ(mkfifo((folder() / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(run(again + "fifo & cat fifo >from-fifo").status, 0);
    EXPECT_EQ(read("from-fifo"), kSorted);
    EXPECT_TRUE(fs::is_fifo(folder() / "fifo"));
    const std::string longName(255, 'x');
    EXPECT_EQ(sortTo(longName).errors, "");
    EXPECT_EQ(read(longName), kSorted);
}

}  // namespace
}  // namespace tvsort::test
