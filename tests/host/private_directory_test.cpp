// What a host may remove at its start, and what it must leave alone.

#include "host/private_directory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "host/server_socket.h"
#include "host/work_file.h"

namespace tvsort::host {
namespace {

namespace fs = std::filesystem;
using Change = std::function<void(const fs::path&)>;

constexpr uid_t kNobody = 65534;
const char kMarker[] = "tvsort-host.owner";

void write(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Path, mode, owner and content of all below: two are equal when nothing was touched.
std::map<std::string, std::string> everythingBelow(const fs::path& directory) {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        struct stat status = {};
        EXPECT_EQ(lstat(entry.path().c_str(), &status), 0);
        std::string& text = all[entry.path()];
        text = std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) + " ";
        if (entry.is_symlink()) text += fs::read_symlink(entry.path()).string();
        std::ifstream file;
        if (S_ISREG(status.st_mode)) file.open(entry.path(), std::ios::binary);
        text.append(std::istreambuf_iterator<char>(file), {});
    }
    return all;
}

class Leftovers : public testing::Test {
  protected:
    Leftovers() {
        std::string pattern = testing::TempDir() + "tvsort-test-XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        fs::create_directory(temp());
    }
    ~Leftovers() override { fs::remove_all(folder_); }

    const fs::path& folder() const { return folder_; }
    fs::path temp() const { return folder_ / "temp"; }

    // A host that dies with all its files, in a process of its own.
    fs::path leaveOne() const {
        const pid_t id = fork();
        if (id == 0) {
            const PrivateDirectory directory(temp());
            const ServerSocket socket(directory.path(), 20561);
            const WorkFile first(directory.path(), 1);
            const WorkFile last(directory.path(), 65535);
            write(directory.path() / "tavucs20561", "weights");
            _exit(0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(id, &status, 0), id);
        EXPECT_EQ(status, 0);
        for (const auto& entry : fs::directory_iterator(temp()))
            return entry.path();
        ADD_FAILURE() << "it left nothing";
        return {};
    }
    bool isEmpty() const { return fs::is_empty(temp()); }
    void sweep() const { const PrivateDirectory directory(temp()); }

  private:
    fs::path folder_;
};

TEST_F(Leftovers, AreRemovedWholeByTheNextHost) {
    const fs::path path = leaveOne();
    EXPECT_EQ(std::distance(fs::directory_iterator(path), {}), 5);
    sweep();
    EXPECT_TRUE(isEmpty());
    chmod(temp().c_str(), 02777);  // hands its group bit on
    leaveOne();
    sweep();
    EXPECT_TRUE(isEmpty());
    // One that another host was just removing.
    fs::remove(leaveOne() / "1.51");
    sweep();
    EXPECT_TRUE(isEmpty());
}

TEST_F(Leftovers, OfWhichOneThingIsOddAreLeftAlone) {
    struct Case {
        const char* name;
        Change change;
        bool needsRoot = false;
    };
    const auto chowns = [](const fs::path& path) {
        EXPECT_EQ(lchown(path.c_str(), kNobody, kNobody), 0);
    };
    const Case cases[] = {
        {"a user's file", [](const fs::path& path) { write(path / "thesis.txt", "text"); }},
        {"a name that goes on", [](const fs::path& path) { write(path / "1.51.txt", "text"); }},
        {"a name without number", [](const fs::path& path) { write(path / "tavucs", "text"); }},
        {"a folder", [](const fs::path& path) { fs::create_directory(path / "folder"); }},
        {"a folder in a file's place",
         [](const fs::path& path) { fs::create_directory(path / "1.52"); }},
        {"a link in a file's place",
         [this](const fs::path& path) { fs::create_symlink(folder(), path / "1.52"); }},
        {"a file in the socket's place",
         [](const fs::path& path) { write(path / "tavrin.internal.7", "text"); }},
        {"no marker", [](const fs::path& path) { fs::remove(path / kMarker); }},
        {"an empty directory",
         [](const fs::path& path) {
             for (const auto& entry : fs::directory_iterator(path))
                 fs::remove(entry.path());
         }},
        {"an empty marker", [](const fs::path& path) { fs::resize_file(path / kMarker, 0); }},
        {"a marker that goes on",
         [](const fs::path& path) {
             std::ofstream(path / kMarker, std::ios::app) << "and more\n";
         }},
        {"a link to a marker",
         [this](const fs::path& path) {
             fs::rename(path / kMarker, folder() / "marker");
             fs::create_symlink(folder() / "marker", path / kMarker);
         }},
        {"a pipe as marker",
         [](const fs::path& path) {
             fs::remove(path / kMarker);
             EXPECT_EQ(mkfifo((path / kMarker).c_str(), 0600), 0);
         }},
        {"a folder as marker",
         [](const fs::path& path) {
             fs::remove(path / kMarker);
             fs::create_directory(path / kMarker);
         }},
        {"readable by others", [](const fs::path& path) { chmod(path.c_str(), 0755); }},
        {"sticky", [](const fs::path& path) { chmod(path.c_str(), 01700); }},
        {"a longer name",
         [](const fs::path& path) {
             fs::rename(path, path.parent_path() / "tvsort-host-backups");
         }},
        {"a name with a dot",
         [](const fs::path& path) { fs::rename(path, path.parent_path() / "tvsort-host-back.1"); }},
        {"a link to a leftover",
         [this](const fs::path& path) {
             fs::rename(path, folder() / "away");
             fs::create_directory_symlink(folder() / "away", path);
         }},
        {"another's directory", chowns, true},
        {"another's marker", [&](const fs::path& path) { chowns(path / kMarker); }, true},
        {"another's file", [&](const fs::path& path) { chowns(path / "1.51"); }, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.needsRoot && geteuid() != 0) continue;
        c.change(leaveOne());
        const auto before = everythingBelow(folder());
        sweep();
        EXPECT_EQ(everythingBelow(folder()), before);
        for (const auto& entry : fs::directory_iterator(folder()))
            fs::remove_all(entry.path());
        fs::create_directory(temp());
    }
}

TEST_F(Leftovers, AreLeftAloneWhileSomebodyHoldsTheirLock) {
    const fs::path path = leaveOne();
    const auto before = everythingBelow(temp());
    FileDescriptor marker(open((path / kMarker).c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(marker.number(), LOCK_SH), 0);
    sweep();
    EXPECT_EQ(everythingBelow(temp()), before);
    marker.close();
    sweep();
    EXPECT_TRUE(isEmpty());
}

// The rights of another user: what root's command left is not theirs, nor theirs root's.
TEST_F(Leftovers, OfAnotherUserAreLeftAlone) {
    if (geteuid() != 0) GTEST_SKIP() << "only root has other users";
    chmod(folder().c_str(), 0755);
    chmod(temp().c_str(), 01777);
    const auto sweepAs = [this](uid_t user) {
        ASSERT_EQ(seteuid(user), 0);
        sweep();
        ASSERT_EQ(seteuid(0), 0);
    };
    leaveOne();
    sweepAs(kNobody);
    EXPECT_FALSE(isEmpty());
    sweepAs(0);
    EXPECT_TRUE(isEmpty());
    ASSERT_EQ(seteuid(kNobody), 0);
    leaveOne();
    ASSERT_EQ(seteuid(0), 0);
    sweepAs(0);
    EXPECT_FALSE(isEmpty());
    sweepAs(kNobody);
    EXPECT_TRUE(isEmpty());
}

TEST_F(Leftovers, AreSweptByManyAtOnceWhileOthersComeAndGo) {
    constexpr int kHosts = 4;
    constexpr int kRounds = 150;
    std::vector<pid_t> ids;
    for (int host = 0; host < kHosts; ++host) {
        ids.push_back(fork());
        if (ids.back() != 0) continue;
        int lost = 0;
        for (int round = 0; round < kRounds; ++round) {
            if (fork() == 0) {
                const PrivateDirectory dying(temp());
                const WorkFile file(dying.path(), 1);
                _exit(0);
            }
            const PrivateDirectory directory(temp());
            const WorkFile file(directory.path(), 1);
            waitpid(-1, nullptr, 0);
            sweep();
            lost += fs::exists(directory.path() / kMarker) && fs::exists(file.path()) ? 0 : 1;
        }
        _exit(lost);
    }
    for (const pid_t id : ids) {
        int status = -1;
        EXPECT_EQ(waitpid(id, &status, 0), id);
        EXPECT_EQ(status, 0) << "directories in use were removed, or it failed";
    }
    sweep();
    EXPECT_TRUE(isEmpty());
}

TEST_F(Leftovers, AtItsEndAHostRemovesItsOwnFilesAlone) {
    fs::path path;
    {
        const PrivateDirectory directory(temp());
        const WorkFile file(directory.path(), 1);
        path = directory.path();
        write(path / "notes.txt", "a user's");
        // What has taken the place of its own file is not its own.
        fs::remove(file.path());
        fs::create_directory(file.path());
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(path), {}), 2);
    fs::remove_all(path);
    {  // Nor is what has taken the directory's place.
        const PrivateDirectory directory(temp());
        path = directory.path();
        fs::rename(path, folder() / "away");
        fs::create_directory(path);
    }
    EXPECT_TRUE(fs::is_directory(path));
    EXPECT_TRUE(fs::is_empty(folder() / "away"));
    fs::remove_all(path);
    {  // Nor another file under a work file's name.
        const WorkFile file(temp(), 1);
        fs::remove(file.path());
        write(file.path(), "another server's");
    }
    EXPECT_TRUE(fs::exists(temp() / "1.51"));
}

}  // namespace
}  // namespace tvsort::host
