#include "tools/files/machine_memory.h"

#include <gtest/gtest.h>

#include "tests/system/command_fixture.h"

namespace tvsort::tools {
namespace {

class MachineMemory : public test::CommandTest {};

TEST_F(MachineMemory, IsTheLeastLimitOfTheGroupAndThoseAboveIt) {
    constexpr auto kNone = ~std::uint64_t{0};
    for (const char* group : {"user/one", "system", "memory/box"})
        std::filesystem::create_directories(folder() / group);
    write("user/memory.max", "3000\n");
    write("user/one/memory.max", "max\n");
    write("system/memory.max", "700\n");
    write("memory/memory.limit_in_bytes", "9223372036854771712\n");
    write("memory/box/memory.limit_in_bytes", "4096\n");
    struct Case {
        const char* groups;
        std::uint64_t limit;
    };
    const Case cases[] = {
        {"0::/user/one\n", 3000},
        {"0::/system/gone/deeper\n", 700},
        {"0::/\n", kNone},
        {"", kNone},
        {"nonsense\n", kNone},
        {"12:cpu,cpuacct:/system\n3:memory:/box\n", 4096},
        {"3:memory:/elsewhere\n0::/user\n", 3000},
    };
    for (const Case& c : cases)
        EXPECT_EQ(groupMemoryBytes(c.groups, folder()), c.limit) << c.groups;
    EXPECT_GT(machineMemoryBytes(), 0);
}

}  // namespace
}  // namespace tvsort::tools
