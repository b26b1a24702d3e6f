#include "process/storage/work_file.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/served_job.h"

namespace tvsort {
namespace {

namespace fs = std::filesystem;

class WorkFile : public ::testing::Test {
  protected:
    WorkFile() {
        char path[] = "/tmp/tvsort-test-XXXXXX";
        directory_ = mkdtemp(path);
        job_.slotNumber = 12;
        job_.blockPages = 2;
    }
    ~WorkFile() override {
        closeWorkFile(job_);
        fs::remove_all(directory_);
        unsetenv("ABC");
        unsetenv(" AB");
    }

    // Whether `name`, with `prefix` as the directory prefix, opens `path`.
    bool opens(const std::string& name, const std::string& prefix, const fs::path& path) {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << "";
        job_.directoryPrefix = prefix.c_str();
        job_.errorCode = ErrorCode::kSuccess;
        openWorkFile(job_, name.c_str());
        const bool open = job_.workFileOpen == 1;
        closeWorkFile(job_);
        fs::remove(path);
        return open;
    }

    fs::path directory_;
    SortJob job_ = {};
};

TEST_F(WorkFile, NamesStandForDirectories) {
    const std::string prefix = directory_.string() + "/";
    const std::string variable = (directory_ / "data").string();
    setenv("ABC", variable.c_str(), 1);
    setenv(" AB", (directory_ / "blank").c_str(), 1);
    EXPECT_TRUE(opens("ABC ", prefix, directory_ / "data/1.512"));
    EXPECT_TRUE(opens(" AB ", prefix, directory_ / "blank/1.512"));
    EXPECT_TRUE(opens("SY00", prefix, directory_ / "1.512"));
    EXPECT_TRUE(opens("TEMP", prefix, directory_ / "1.512"));
    EXPECT_TRUE(opens("    ", prefix, directory_ / "1.512"));
    EXPECT_TRUE(opens("NOSU", prefix, directory_ / "1.512"));
    EXPECT_TRUE(opens("TEMP", directory_.string(), directory_.string() + "1.512"));
}

TEST_F(WorkFile, FailuresToOpenCarryTheSystemError) {
    const std::string prefix = directory_.string() + "/";
    job_.directoryPrefix = prefix.c_str();
    openWorkFile(job_, "TEMP");
    EXPECT_EQ(job_.errorCode, ErrorCode::kWorkFileOpen);
    EXPECT_EQ(job_.reply.osError, ENOENT);
    const std::string longPrefix(1019, '/');  // with "1.512" and its zero: one byte too many
    job_.directoryPrefix = longPrefix.c_str();
    openWorkFile(job_, "TEMP");
    EXPECT_EQ(job_.errorCode, ErrorCode::kWorkFileOpen);
    EXPECT_EQ(job_.reply.osError, ENAMETOOLONG);
}

TEST_F(WorkFile, BlocksLieBehindOneAnotherAndReadsPastTheEndChangeNothing) {
    const std::string prefix = directory_.string() + "/";
    std::ofstream(directory_ / "1.512") << "";
    job_.directoryPrefix = prefix.c_str();
    openWorkFile(job_, "TEMP");
    ASSERT_EQ(job_.workFileOpen, 1);
    const test::Bytes written(5 * 8192, 7);
    EXPECT_TRUE(writeBlocks(job_, written.data(), 3, 5));
    EXPECT_EQ(fs::file_size(directory_ / "1.512"), 7U * 8192);  // block 3 starts at byte 16384

    test::Bytes read(3 * 8192, 1);
    EXPECT_TRUE(readBlocks(job_, read.data(), 6, 3));
    EXPECT_EQ(read[2 * 8192 - 1], 7);
    EXPECT_EQ(read[2 * 8192], 1);
    EXPECT_EQ(job_.errorCode, ErrorCode::kSuccess);

    // Positions are 64-bit: this block starts at 16 TiB - 8 KiB.
    EXPECT_TRUE(readBlocks(job_, read.data(), 0x7fffffff, 1));
}

}  // namespace
}  // namespace tvsort
