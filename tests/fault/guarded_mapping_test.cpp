// Every program that these tests start maps its slot between pages without access.

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tests/fault/fault_injector.h"
#include "tests/system/numbers_sorted.h"

namespace tvsort::test {
namespace {

// Before any test starts one.
const int preloaded = setenv("LD_PRELOAD", TVSORT_GUARD_SHIM, 1);

struct Mapping {
    std::uint64_t start;
    std::uint64_t end;
    std::string rights;
    std::string name;
};

std::vector<Mapping> mappingsOf(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    std::vector<Mapping> mappings;
    for (std::string line; std::getline(maps, line);) {
        const std::size_t dash = line.find('-');
        const std::size_t blank = line.find(' ');
        mappings.push_back({std::stoull(line.substr(0, dash), nullptr, 16),
                            std::stoull(line.substr(dash + 1), nullptr, 16),
                            line.substr(blank + 1, 4), line.substr(blank)});
    }
    return mappings;
}

// Of the one mapping that is shared and writable, and has a name like the host's object.
void expectGuarded(pid_t process) {
    const std::vector<Mapping> mappings = mappingsOf(process);
    std::size_t slots = 0;
    for (std::size_t i = 1; i + 1 < mappings.size(); ++i) {
        const Mapping& slot = mappings[i];
        if (slot.rights != "rw-s" || slot.name.find("memfd:tvsort") == std::string::npos) continue;
        ++slots;
        for (const Mapping& guard : {mappings[i - 1], mappings[i + 1]}) {
            EXPECT_EQ(guard.rights, "---p");
            EXPECT_TRUE(guard.end == slot.start || guard.start == slot.end);
        }
    }
    EXPECT_EQ(slots, 1U);
}

TEST(GuardedMapping, SlotsEndAtPagesWithoutAccess) {
    ASSERT_EQ(preloaded, 0);
    const FaultInjector injector;
    for (const auto& environment : {std::vector<std::string>(), injector.environment()}) {
        host::ServerOptions options = host::optionsFor(40, 8);
        options.environment = environment;
        host::SortServer server(options);
        expectGuarded(server.slot(1).process().id());
    }
}

}  // namespace
}  // namespace tvsort::test
