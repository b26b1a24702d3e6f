// A disk that fills up in the middle of a sort, at every block that is still to be written.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "tests/fault/shaped_case.h"
#include "tests/support/small_disk.h"

namespace tvsort::test {
namespace {

constexpr std::int32_t kMemoryPages = 20;
// 1000 records of 400 bytes: 100 pages, of which the first 20 come in frames and are not yet in the
// file.
constexpr std::int32_t kScale = 10;
constexpr std::uint64_t kFilePages = 100;
constexpr host::Geometry kGeometries[] = {{400, 1, 10}, {400, 2, 20}};

host::ServerOptions optionsFor(const std::filesystem::path& workDirectory) {
    host::ServerOptions options;
    options.processPath = TVSORT_PROGRAM;
    options.memoryPages = kMemoryPages;
    options.pagesPerBlock = 2;
    options.workDirectory = workDirectory;
    options.requestTimeout = host::Timeout{20000};
    return options;
}

TEST(FullDisk, IsAnErrorAndNeverAMissingRecord) {
    const host::PrivateDirectory directory(host::defaultTempDirectory());
    const SmallDisk disk(directory.path());
    if (!disk.isMounted()) GTEST_SKIP() << "nothing may be mounted here";
    host::SortServer server(optionsFor(directory.path()));
    host::SortSlot& slot = server.slot(1);
    int refused = 0;
    for (const ShapedCase& shaped : shapedCases(kScale)) {
        for (const host::Geometry& geometry : kGeometries) {
            for (std::uint64_t pagesLeft = 0; pagesLeft <= kMemoryPages; ++pagesLeft) {
                SCOPED_TRACE(testing::Message() << shaped.name << " with room for " << pagesLeft
                                                << " pages, " << geometry.blockPages << " a block");
                const host::LoadedData loaded = shaped.load(slot, geometry);
                disk.fillUpTo(pagesLeft);
                const SortReply reply = slot.ask(shaped.request(), geometry, loaded.extent);
                if (pagesLeft < kMemoryPages) {
                    ASSERT_EQ(reply.errorCode, 1403U);
                    ASSERT_EQ(reply.osError, ENOSPC);
                    refused += 1;
                } else {
                    ASSERT_EQ(reply.errorCode, 0U);
                    shaped.expectResult(slot, geometry, reply.recordCount);
                }
                disk.makeRoom();
                shaped.expectServed(slot, geometry);
            }
        }
    }
    RecordProperty("fullDisks", refused);
    EXPECT_EQ(refused, 280);  // 7 shapes, 2 geometries, 20 amounts of room
}

// The same at the size that a file may have, for those who may not mount: here the blocks that
// exist already cannot be written either. A limit within a block cuts its write short.
TEST(FullDisk, AtAFilesSizeLimitIsTheSame) {
    host::SortServer server(optionsFor({}));
    host::SortSlot& slot = server.slot(1);
    const ShapedCase shaped = plainCase(kScale);
    rlimit before = {};
    ASSERT_EQ(prlimit(slot.process().id(), RLIMIT_FSIZE, nullptr, &before), 0);
    for (const host::Geometry& geometry : kGeometries) {
        for (std::uint64_t limit = 0; limit <= kFilePages * kDiskPage;
             limit += 3 * kDiskPage + 1024) {
            SCOPED_TRACE(testing::Message() << "a limit of " << limit << " bytes");
            const host::LoadedData loaded = shaped.load(slot, geometry);
            const rlimit small = {limit, before.rlim_max};
            ASSERT_EQ(prlimit(slot.process().id(), RLIMIT_FSIZE, &small, nullptr), 0);
            const SortReply reply = slot.ask(shaped.request(), geometry, loaded.extent);
            EXPECT_EQ(reply.errorCode, 1403U);
            EXPECT_EQ(reply.osError, EFBIG);
            ASSERT_EQ(prlimit(slot.process().id(), RLIMIT_FSIZE, &before, nullptr), 0);
            shaped.expectServed(slot, geometry);
        }
    }
}

}  // namespace
}  // namespace tvsort::test
