// The patch debug log against the emulated platform: its switch, its line format, its bounds.
#include <unistd.h>

#include <cstring>
#include <regex>
#include <string>

#include "osenv.h"

#include "PatchRPX.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {
class PatchLogTest : public PatchRunTest {};
}  // namespace

TEST_F(PatchLogTest, WritesOnlyWhileTheSwitchIsExactlyOne) {
    for (const char* value : {"0", "2", "yes"}) {
        OSSetEnvironmentVariable("RPX_ENABLE_RPENCY_LOG", value);
        LogDebugMessage(1, "switch %s", value);
    }
    OSSetEnvironmentVariable("RPX_ENABLE_RPENCY_LOG", "1");
    LogDebugMessage(1, "on");  // the switch is read at every call
    EXPECT_EQ(DebugLogMessages(), std::vector<std::string>{"on"});

    RestartWithoutSetting("RPX_ENABLE_RPENCY_LOG");
    EXPECT_FALSE(IsEnabledDebugLog());
    LogDebugMessage(1, "unset");
    EXPECT_EQ(DebugLogMessages(), std::vector<std::string>{"on"});
}

TEST_F(PatchLogTest, LineFormatAndBounds) {
    LogDebugMessage(0x1f, "value %d and %s", 42, "text");
    LogDebugMessage(0, "own newline\n");
    LogDebugMessage(1, "%s", std::string(3000, 'x').c_str());

    std::regex line("\\[20[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\]\\[pid=" +
                    std::to_string(getpid()) + "\\]\\[tid=-?[0-9]+\\]\\[module=(1f|0|1)\\]:.*");
    std::istringstream text(DebugLogText());
    std::string first;
    ASSERT_TRUE(std::getline(text, first));
    EXPECT_TRUE(std::regex_match(first, line)) << first;
    EXPECT_NE(first.find("[module=1f]:value 42 and text"), std::string::npos) << first;
    EXPECT_EQ(DebugLogMessages(),
              (std::vector<std::string>{"value 42 and text", "own newline", "", std::string(2047, 'x')}));
}

TEST_F(PatchLogTest, TempPathStaysWithinTheBuffer) {
    std::string full = DataFolder() + "/rpxtemp";
    char buffer[512];
    GetRPXTempPath(buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer), full);

    char small[11];
    std::memset(small, '#', sizeof small);
    GetRPXTempPath(small, 10);
    EXPECT_EQ(std::string(small), full.substr(0, 9));
    EXPECT_EQ(small[10], '#') << "nothing written past the size given";

    std::memset(small, '#', sizeof small);
    GetRPXTempPath(small, 0);
    GetRPXTempPath(small, -5);
    GetRPXTempPath(nullptr, 10);
    EXPECT_EQ(small[0], '#');
}
