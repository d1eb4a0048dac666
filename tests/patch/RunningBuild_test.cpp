// Running build detection against the emulated platform: the product build from the newest
// program folder, the database build from the help notes of rpx/rpmsg.nsf.
#include <string>
#include <vector>

#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"

#include "PatchRPX.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {

class RunningBuildTest : public PatchRunTest {
protected:
    void TearDown() override {
        NSFDbDelete("rpx/rpmsg.nsf");
        PatchRunTest::TearDown();
    }
    // rpx/rpmsg.nsf with a document and one help note per value ("": a note without the item).
    void MakeMessageDb(const std::vector<std::string>& helpBuilds) {
        DBHANDLE db = FreshDatabase("rpx/rpmsg.nsf");
        AddNote(db, NOTE_CLASS_DOCUMENT, {{"BuildNumber", "5.6.1.9999"}});
        for (const std::string& build : helpBuilds) {
            AddNote(db, NOTE_CLASS_HELP, {{build.empty() ? "Subject" : "BuildNumber", build}});
        }
        NSFDbClose(db);
    }
    PatchSetting Detect(int expected) {
        PatchSetting setting;
        setting.runningBuild = setting.runningDbBuild = -7;
        EXPECT_EQ(GetRunningRPXVer(setting), expected);
        return setting;
    }
};

}  // namespace

TEST_F(RunningBuildTest, ProductBuildFromFolderAndDatabaseBuildFromLastHelpNote) {
    MakeProgramFolder("V5.6.1.999");
    MakeProgramFolder("V5.6.1.3001");
    MakeMessageDb({"5.6.1.3050"});
    PatchSetting setting = Detect(0);
    EXPECT_EQ(setting.runningBuild, 3001);
    EXPECT_EQ(setting.runningDbBuild, 3050) << "documents are not looked at";
    EXPECT_TRUE(Logged("The running RPX build is 3001"));
    EXPECT_TRUE(Logged("The running RPX database build is 3050"));

    // Cut to "5.6.1.3050.12345" before the last "."; a later note without the item changes nothing.
    MakeMessageDb({"5.6.1.3040", "5.6.1.3050.123456789", ""});
    EXPECT_EQ(Detect(0).runningDbBuild, 12345);

    for (const std::vector<std::string>& builds : {std::vector<std::string>{"nodots"}, std::vector<std::string>{""}}) {
        MakeMessageDb(builds);
        EXPECT_EQ(Detect(0).runningDbBuild, 0);
    }
    NSFDbDelete("rpx/rpmsg.nsf");
    EXPECT_EQ(Detect(0).runningDbBuild, 0) << "a missing message database is no failure";
}

TEST_F(RunningBuildTest, InstallPathFailuresAndOddBuilds) {
    Detect(1);
    EXPECT_TRUE(Logged("Cannot get the latest path!"));

    ASSERT_EQ(ServerFolder().find('.'), std::string::npos) << "the test needs a path without dots";
    MakeProgramFolder("V5");
    Detect(1);
    EXPECT_TRUE(Logged("Cannot get the build number from path."));

    MakeProgramFolder("V5.6.1.beta");
    EXPECT_EQ(Detect(0).runningBuild, 0) << "letters after the last dot give 0 and still succeed";
}
