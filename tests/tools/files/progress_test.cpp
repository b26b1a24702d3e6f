#include "tools/files/progress.h"

#include <gtest/gtest.h>

#include "tests/system/command_fixture.h"

namespace tvsort::tools {
namespace {

TEST(Progress, SaysHowFarAndHowFast) {
    constexpr std::uint64_t kMebi = 1 << 20;
    struct Case {
        WorkDone done;
        const char* text;
    };
    const Case cases[] = {
        {{1200, 0, 43 * kMebi, 100 * kMebi}, "43 %, 21.5 MiB per second, 1200 records"},
        {{9, 0, 105, 100}, "100 %, 52 bytes per second, 9 records"},
        {{0, 0, 3 * kMebi, 0}, "3.0 MiB, 1.5 MiB per second"},
        {{250, 1000, 0, 0}, "25 %, 125 records per second"},
        {{250, 0, 0, 0}, "250 records, 125 per second"},
        {{}, "2 s"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(progressText(c.done, 2.0), c.text);
}

class OnTerminal : public test::CommandTest {};

// A terminal of its own sees standard error; the pipe is slow enough to be told of.
TEST_F(OnTerminal, ProgressIsShownAndTakenAway) {
    write("feed", "seq 2000; sleep 0.5; seq 2000");
    const std::string words =
        "script -qec \"sh feed | '" TVSORT_HOST_PROGRAM "' sort --lines - -o out\" seen";
    const std::string command =
        "cd '" + folder().string() + "' && " + words + " </dev/null >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::string seen = read("seen");
    const std::size_t shown = seen.find("reading standard input: 17.4 KiB, ");
    ASSERT_NE(shown, std::string::npos) << seen;
    EXPECT_NE(seen.find("\r\033[K", shown), std::string::npos) << seen;
}

}  // namespace
}  // namespace tvsort::tools
