// The object that server and processes share, in pages of either size.

#include "host/shared_object.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/host_error.h"
#include "host/sort_server.h"

namespace tvsort::host {
namespace {

constexpr std::size_t kBytes = (std::size_t{40} << 20) + 4096;

std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::string mounts() {
    std::ifstream file("/proc/self/mountinfo");
    return {std::istreambuf_iterator<char>(file), {}};
}

// That a process has of the object.
int descriptorsOf(pid_t id, const SlotMemory& memory) {
    struct stat object = {};
    EXPECT_EQ(fstat(memory.descriptor(), &object), 0);
    int count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(id) + "/fd")) {
        struct stat found = {};
        if (stat(entry.path().c_str(), &found) != 0) continue;
        if (found.st_dev == object.st_dev && found.st_ino == object.st_ino) count += 1;
    }
    return count;
}

bool canHaveHugePages() {
    return SharedObject(kBytes, HugePages::kTry).hasHugePages();
}

TEST(SharedObject, IsZeroFilledSharedAndGoneInPagesOfEitherSize) {
    for (const HugePages wish : {HugePages::kOff, HugePages::kTry}) {
        const std::ptrdiff_t before = openDescriptors();
        const std::string mountsBefore = mounts();
        {
            const SharedObject object(kBytes, wish);
            EXPECT_EQ(lseek(object.descriptor(), 0, SEEK_END), static_cast<off_t>(kBytes));
            EXPECT_EQ(fcntl(object.descriptor(), F_GETFD), FD_CLOEXEC);
            for (const std::size_t at : {std::size_t{0}, kBytes / 2, kBytes - 1}) {
                EXPECT_EQ(object.start()[at], 0);
                object.start()[at] = 7;
                Byte seen = 0;
                ASSERT_EQ(pread(object.descriptor(), &seen, 1, static_cast<off_t>(at)), 1);
                EXPECT_EQ(seen, 7);
            }
            EXPECT_EQ(openDescriptors(), before + 1);
            EXPECT_EQ(mounts(), mountsBefore);
        }
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }
}

TEST(SharedObject, InHugePagesIsBroughtInByFewFaults) {
    if (!canHaveHugePages()) GTEST_SKIP() << "the system has no huge pages for shared memory";
    const SharedObject object(kBytes, HugePages::kOn);
    std::vector<unsigned char> present(kBytes / 4096);
    object.start()[kBytes / 2] = 1;
    ASSERT_EQ(mincore(object.start(), kBytes, present.data()), 0);
    EXPECT_GE(std::count(present.begin(), present.end(), 1), 2 * 512);
}

// In a child that may make no namespaces, as in many containers.
TEST(SharedObject, WithoutHugePagesIsSmallOrRefused) {
    if (!SharedObject(4096, HugePages::kOff).hasHugePages() && canHaveHugePages()) {
        const pid_t child = fork();
        if (child == 0) {
            if (unshare(CLONE_NEWUSER) != 0) _exit(3);
            std::ofstream("/proc/sys/user/max_user_namespaces") << "0";
            if (unshare(CLONE_NEWUSER) == 0) _exit(3);
            try {
                if (SharedObject(kBytes, HugePages::kTry).hasHugePages()) _exit(1);
                SharedObject(kBytes, HugePages::kOn);
                _exit(2);
            } catch (const HostError& error) {
                _exit(std::strstr(error.what(), "no huge pages") != nullptr ? 0 : 4);
            }
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (status == 3 << 8) GTEST_SKIP() << "namespaces cannot be forbidden here";
        EXPECT_EQ(status, 0);
    }
}

TEST(SharedObject, HoldsTheSlotsOfProcesses) {
    constexpr Geometry kGeometry = {400, 1, 10};
    constexpr std::int32_t kCount = 100000;  // 40 MB, in huge pages and in the work file
    for (const HugePages wish : {HugePages::kOff, HugePages::kTry}) {
        ServerOptions options;
        options.processPath = TVSORT_PROGRAM;
        options.memoryPages = 8192;
        options.pagesPerBlock = 1;
        options.slotCount = 2;
        options.hugePages = wish;
        SortServer server(options);
        for (int number = 1; number <= options.slotCount; ++number) {
            std::int32_t left = kCount;
            const auto falling = [&left](Byte* target, std::size_t recordsMax) {
                const auto made = std::min(recordsMax, static_cast<std::size_t>(left));
                for (std::size_t i = 0; i < made; ++i)
                    storeAs(target + i * kGeometry.recordLength, left--);
                return made;
            };
            const SortResult result = server.slot(number).sort(
                RequestBuilder().addKey(ascendingKey(DataType::kInteger, 0, 4)), kGeometry,
                falling);
            std::int32_t next = 1;
            result.read([&next](const Byte* records, std::size_t count) {
                for (std::size_t i = 0; i < count; ++i)
                    ASSERT_EQ(loadAs<std::int32_t>(records + i * kGeometry.recordLength), next++);
            });
            EXPECT_EQ(next, kCount + 1);
            EXPECT_EQ(descriptorsOf(server.slot(number).process().id(), server.memory()), 0);
        }
        server.memory().release();
        EXPECT_EQ(server.memory().frames(2)[0], 0);
    }
}

}  // namespace
}  // namespace tvsort::host
