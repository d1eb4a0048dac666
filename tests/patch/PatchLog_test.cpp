// The patch debug log against the emulated platform: its switch, its line format, its bounds.
#include <unistd.h>

#include <cstring>
#include <regex>
#include <string>

#include "global.h"
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

TEST_F(PatchLogTest, AFileNameLongerThanItsRoomIsCutAndStillWritten) {
    // rpxtemp of this data directory takes 240 bytes: "/updrpx_" and the day no longer fit whole
    std::string data = ServerFolder() + "/";
    data += std::string(240 - data.size() - std::string("/rpxtemp").size(), 'd');
    Shell("mkdir -p '" + data + "/rpxtemp'");
    RestartWithSetting("Directory", data);
    LogDebugMessage(1, "into a cut name");

    std::string cut = (data + "/rpxtemp/updrpx_" + std::string(8, '?')).substr(0, 255);
    std::string command = "cat " + cut + " 2>/dev/null";
    std::string text;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char piece[256];
        while (size_t n = fread(piece, 1, sizeof piece, pipe)) text.append(piece, n);
        pclose(pipe);
    }
    EXPECT_NE(text.find("]:into a cut name\n"), std::string::npos) << cut;
    Shell("rm -rf '" + data + "'");
}
