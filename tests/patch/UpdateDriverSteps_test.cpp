// The update driver's steps that link without the server, against the emulated platform:
// applicability and the item paths, with the refusal of names that are no plain file name.
#include <fstream>
#include <sstream>
#include <string>

#include "global.h"
#include "osenv.h"

#include "PatchRunSteps.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {
class UpdateDriverStepsTest : public PatchRunTest {};
}  // namespace

TEST_F(UpdateDriverStepsTest, AppliesOnlyBelowThePatchBuildAndNamesTheProductBuildOtherwise) {
    PatchSetting setting;
    setting.patchBuild = 3100;
    setting.runningBuild = 3001;
    setting.runningDbBuild = 3099;
    EXPECT_TRUE(PatchApplies(setting));
    setting.runningDbBuild = 3100;
    EXPECT_FALSE(PatchApplies(setting));
    EXPECT_EQ(DebugLogMessages(),
              std::vector<std::string>{"The database build is large than build number of the patch, so return. 3001"});
}

TEST_F(UpdateDriverStepsTest, ItemPathsOfPlainNamesOnly) {
    DriverFolders folders;
    EXPECT_FALSE(GetDriverFolders(folders));
    EXPECT_TRUE(Logged("Cannot get the latest path!"));
    std::string install = MakeProgramFolder("V5.6.1.3100");
    ASSERT_TRUE(GetDriverFolders(folders));

    ItemPaths paths;
    ASSERT_TRUE(BuildItemPaths(folders, "rpmsg.nsf", paths));
    EXPECT_STREQ(paths.notesPath, "rpx/rpmsg.nsf");
    EXPECT_STREQ(paths.target, (DataFolder() + "/rpx/rpmsg.nsf").c_str());
    EXPECT_STREQ(paths.source, (install + "/rpmsg.nsf").c_str());
    EXPECT_TRUE(BuildItemPaths(folders, "..rp conf.ntf ", paths));

    for (const char* name : {"", ".", "..", "../rpmsg.nsf", "sub/rpmsg.nsf", "..\\rpmsg.nsf", "/etc/passwd", "*.nsf",
                             "rp?sg.nsf", "*"}) {
        EXPECT_FALSE(BuildItemPaths(folders, name, paths)) << name;
        EXPECT_TRUE(Logged(std::string("Skip the database entry, it is not a plain file name. (") + name + ")"))
            << name;
    }
    std::string longName(300, 'n');
    EXPECT_FALSE(BuildItemPaths(folders, longName, paths)) << "the Notes path holds 255 bytes";
    EXPECT_TRUE(Logged("Skip the database entry, its name is too long. (" + longName + ")"));
}

TEST_F(UpdateDriverStepsTest, ConvertCommandNamesTheDatabaseOfTheTemplate) {
    char command[1024];
    ASSERT_TRUE(BuildConvertCommand("rpvlog.ntf", command, sizeof command));
    EXPECT_STREQ(command, "load convert rpx/rpvlog.nsf * rpx/rpvlog.ntf");
    ASSERT_TRUE(BuildConvertCommand("a.ntf.b.ntf", command, sizeof command));
    EXPECT_STREQ(command, "load convert rpx/a.nsf * rpx/a.ntf.b.ntf") << "cut at the first .ntf";
    char small[20];
    EXPECT_FALSE(BuildConvertCommand("rpvlog.ntf", small, sizeof small));
}

namespace {

std::string ConsoleText() {
    std::ifstream in(ServerFolder() + "/console.log");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

const char kNoDataDirectory[] = "The patch stops: the notes.ini setting Directory is missing or names no folder";

}  // namespace

TEST_F(UpdateDriverStepsTest, NoDataDirectoryStopsTheWalkWithADebugAndAConsoleLine) {
    MakeProgramFolder("V5.6.1.3100");
    DriverFolders folders;
    ASSERT_TRUE(GetDriverFolders(folders));
    EXPECT_EQ(std::string(folders.productFolder), DataFolder() + "/rpx");

    std::string missing = ServerFolder() + "/no-such-folder";
    OSSetEnvironmentVariable("Directory", missing.c_str());
    EXPECT_FALSE(GetDriverFolders(folders));
    // The debug log lives in the data directory too: only the console can tell.
    EXPECT_NE(ConsoleText().find(kNoDataDirectory), std::string::npos);

    OSSetEnvironmentVariable("Directory", (DataFolder() + "/rpxtemp/updrpx.dbg").c_str());
    WriteFile(DataFolder() + "/rpxtemp/updrpx.dbg", "a file, not a folder");
    EXPECT_FALSE(GetDriverFolders(folders));

    RestartWithoutSetting("Directory");
    size_t before = ConsoleText().size();
    EXPECT_FALSE(GetDriverFolders(folders));
    EXPECT_NE(ConsoleText().find(kNoDataDirectory, before), std::string::npos);
}
