// Files that the command makes, replaces and removes, in folders where others make theirs.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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

TEST_F(CommandFiles, AreNotWhatAnotherLaidUnderTheirNameInAPublicFolder) {
    if (geteuid() != 0) GTEST_SKIP() << "only root has other users";
    for (const bool isPipe : {false, true}) {
        const std::string path = folder() / "public/out";
        ASSERT_EQ(mknod(path.c_str(), (isPipe ? S_IFIFO : S_IFREG) | 0666U, 0), 0);
        ASSERT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
        const Outcome outcome = sortTo("public/out");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.errors, HasSubstr("output public/out: it belongs to another user"));
        ASSERT_EQ(chown((folder() / "public").c_str(), kNobody, kNobody), 0);
        if (!isPipe) {
            EXPECT_EQ(sortTo("public/out").status, 0) << "the folder's owner is trusted";
        }
        ASSERT_EQ(chown((folder() / "public").c_str(), 0, 0), 0);
        fs::remove(path);
    }
}

// Bits for a group mean its members, and beside an access list the most that the list gives.
TEST_F(CommandFiles, GiveNobodyRightsWhoHadNoneToTheEarlierFile) {
    if (geteuid() != 0) GTEST_SKIP() << "only root has other groups";
    const fs::path path = folder() / "out";
    const auto groupOf = [&] {
        struct stat status = {};
        return stat(path.c_str(), &status) == 0 ? status.st_gid : 0;
    };
    write("out", "before");
    ASSERT_EQ(chown(path.c_str(), 0, 77), 0);
    ASSERT_EQ(chmod(path.c_str(), 0664), 0);
    EXPECT_EQ(sortTo("out").status, 0);
    EXPECT_EQ(groupOf(), 77U);
    EXPECT_EQ(modeOf("out"), 0664U);
    // A user who is not of the group cannot give the file to it.
    const std::string asNobody =
        "cd '" + folder().string() +
        "' && chmod 711 . && chmod 777 temp "
        "public && chmod 644 words && mv out public/own && chown 65534:77 public/own && "
        "setpriv --reuid 65534 --regid 65534 --clear-groups '" TVSORT_HOST_PROGRAM
        "' sort --lines words -o public/own 2>.errors";
    if (std::system(asNobody.c_str()) == 0) {
        EXPECT_EQ(modeOf("public/own"), 0644U);
    } else {
        EXPECT_THAT(read(".errors"), HasSubstr("ermission")) << "programs of another user's folder";
    }
    // user::rw-, user:77:rw-, group::---, mask::rw-, other::---
    const unsigned char list[] = {2, 0,  0,   0,   1,   0,   6,  0, 255, 255, 255, 255, 2,   0,  6,
                                  0, 77, 0,   0,   0,   4,   0,  0, 0,   255, 255, 255, 255, 16, 0,
                                  6, 0,  255, 255, 255, 255, 32, 0, 0,   0,   255, 255, 255, 255};
    constexpr char kAccessList[] = "system.posix_acl_access";
    write("out", "before");
    if (setxattr(path.c_str(), kAccessList, list, sizeof list, 0) != 0) return;
    EXPECT_EQ(sortTo("out").status, 0);
    unsigned char after[sizeof list] = {};
    EXPECT_EQ(getxattr(path.c_str(), kAccessList, after, sizeof after), ssize_t{sizeof list});
    EXPECT_THAT(after, testing::ElementsAreArray(list));
}

TEST_F(CommandFiles, ThatWaitForAnotherSideAreGivenUpAtASignal) {
    ASSERT_EQ(mkfifo((folder() / "pipe").c_str(), 0600), 0);
    for (const char* const words : {"pipe", "words -o pipe"}) {
        const std::string command =
            "cd '" + folder().string() + "' && exec timeout -s TERM " +
            "--preserve-status 0.3 '" TVSORT_HOST_PROGRAM "' sort --lines " + words + " 2>.errors";
        EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 128 + SIGTERM) << words;
        EXPECT_THAT(read(".errors"), HasSubstr("interrupted by signal 15"));
    }
}

TEST_F(CommandFiles, AreAllRemovedWhereDescriptorsRunOut) {
#ifdef TVSORT_SANITIZED_HOST
    GTEST_SKIP() << "the sanitizers need descriptors of their own";
#endif
    int failures = 0;
    for (int limit = 4; limit < 24; ++limit) {
        const std::string command = "cd '" + folder().string() + "'; exec 2>.errors; ulimit -n " +
                                    std::to_string(limit) +
                                    "; exec '" TVSORT_HOST_PROGRAM "' sort --lines words -o out";
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status));
        failures += WEXITSTATUS(status) == 2 ? 1 : 0;
        EXPECT_TRUE(fs::is_empty(folder() / "temp")) << limit << read(".errors");
    }
    EXPECT_GT(failures, 3);
}

TEST_F(CommandFiles, ThatGrowMeanwhileAreNamed) {
    write("words.csv", "word,text\na," + std::string(600, 'x') +
                           "\n"
                           "b,y\n");
    write("grower", "#!/bin/sh\necho c,z >>words.csv\nexec '" TVSORT_PROGRAM "' \"$@\"\n");
    ASSERT_EQ(chmod((folder() / "grower").c_str(), 0700), 0);
    const Outcome outcome = run("sort --key word words.csv words.csv --process ./grower -o out");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.errors, HasSubstr("words.csv was changed while it was being read"));
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
