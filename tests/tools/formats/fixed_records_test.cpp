// Files of records that are not what they were.

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tools/formats/records/fixed_records.h"

namespace tvsort::tools {
namespace {

TEST(FixedRecords, OfAFileThatChangesMeanwhileAreNotTakenForAll) {
    const std::string name = testing::TempDir() + "tvsort-records-" + std::to_string(getpid());
    for (const std::uintmax_t size : {80U, 0U, 75U, 160U, 100U}) {
        std::ofstream(name) << std::string(100, 'x');
        InputFile input(name);
        FixedRecordSource source(input, 10);
        Byte records[200];
        EXPECT_EQ(source.read(records, 2), 2U);
        std::filesystem::resize_file(name, size);
        std::string words;
        try {
            EXPECT_EQ(source.read(records, 20), 8U);
        } catch (const host::HostError& error) {
            words = error.what();
        }
        EXPECT_EQ(words.find("was changed while it was being read") != std::string::npos,
                  size != 100)
            << size << ": " << words;
    }
    std::filesystem::remove(name);
}

}  // namespace
}  // namespace tvsort::tools
