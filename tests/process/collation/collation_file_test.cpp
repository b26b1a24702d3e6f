// Which collation files are put in force.

#include "process/collation/collation_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "tests/support/collation_bytes.h"

namespace tvsort::test {
namespace {

class CollationLoading : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mkdtemp(directory_.data()), nullptr);
        unsetenv("TAVRIN_MBX");
    }
    void TearDown() override {
        collationTable = nullptr;
        unsetenv("TAVRIN_MBX");
        std::filesystem::remove_all(directory_);
    }

    std::string prefix() const { return directory_ + "/"; }
    void store(const Bytes& bytes, const std::string& name) const {
        std::ofstream file(prefix() + name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    // Whether a table is in force once the bytes stand where the process looks for them.
    bool isPutInForce(const Bytes& bytes) const {
        store(bytes, "tavucs20561");
        loadCollation(prefix().c_str());
        return collationTable != nullptr;
    }

    std::string directory_ = "/tmp/tvsort-collation-XXXXXX";
};

TEST_F(CollationLoading, FindsTheFileOfTheInstance) {
    CollationBytes bytes;
    bytes.setWeight(u'a', 4711);
    store(bytes.file(), "tavucs20561");
    loadCollation(prefix().c_str());
    ASSERT_NE(collationTable, nullptr);
    EXPECT_EQ(unitWeight(*collationTable, u'a'), 4711);
    EXPECT_EQ(unitWeight(*collationTable, 0x4e00), 0x4e00);
    setenv("TAVRIN_MBX", "7", 1);
    loadCollation(prefix().c_str());
    EXPECT_EQ(collationTable, nullptr) << "there is no tavucs7";
    bytes.setWeight(u'a', 815);
    store(bytes.file(), "tavucs7");
    loadCollation(prefix().c_str());
    ASSERT_NE(collationTable, nullptr);
    EXPECT_EQ(unitWeight(*collationTable, u'a'), 815);
}

TEST_F(CollationLoading, RefusesFilesThatCannotBeTrusted) {
    using Change = std::function<void(CollationBytes&)>;
    const std::pair<const char*, Change> changes[] = {
        {"empty", [](CollationBytes& bytes) { bytes.file().clear(); }},
        {"magic cut off", [](CollationBytes& bytes) { bytes.file().resize(7); }},
        {"wrong magic", [](CollationBytes& bytes) { bytes.file()[4] ^= 1; }},
        {"no page offsets", [](CollationBytes& bytes) { bytes.file().resize(8); }},
        {"page offsets cut off", [](CollationBytes& bytes) { bytes.file().resize(8 + 511); }},
        {"no page", [](CollationBytes& bytes) { bytes.file().resize(8 + 512); }},
        {"last page cut off", [](CollationBytes& bytes) { bytes.file().pop_back(); }},
        {"page begins past the end", [](CollationBytes& bytes) { bytes.setPage(255, 0xffff); }},
        {"page ends past the end", [](CollationBytes& bytes) { bytes.setPage(17, 513); }},
    };
    ASSERT_TRUE(isPutInForce(CollationBytes().file()));
    for (const auto& [name, change] : changes) {
        CollationBytes bytes;
        change(bytes);
        EXPECT_FALSE(isPutInForce(bytes.file())) << name;
    }
}

TEST_F(CollationLoading, PagesMayStartAtAnyByteAndOverlap) {
    CollationBytes bytes;
    bytes.setWeight(u'b', 3);
    bytes.file().push_back(0);
    // b's page, read from its second byte on. Before b, whose flags are 0, stands 00 0a 00 00 ff
    // ff.
    bytes.setPage(0x30, 2049);
    ASSERT_TRUE(isPutInForce(bytes.file()));
    EXPECT_EQ(unitWeight(*collationTable, u'b'), 3);
    EXPECT_EQ(unitWeight(*collationTable, 0x3061), 0x00ff);
    bytes.setPage(0x30, 0);  // over the page offsets themselves
    EXPECT_TRUE(isPutInForce(bytes.file()));
}

TEST_F(CollationLoading, APathThatDoesNotFitIsNoFile) {
    testing::internal::CaptureStdout();
    loadCollation((prefix() + std::string(5000, 'x')).c_str());
    EXPECT_EQ(collationTable, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    setenv("TAVRIN_MBX", std::string(4096, '7').c_str(), 1);
    testing::internal::CaptureStdout();
    loadCollation(prefix().c_str());
    EXPECT_EQ(collationTable, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " TVSORT:TAVRIN_MBX is too long\n");
}

}  // namespace
}  // namespace tvsort::test
