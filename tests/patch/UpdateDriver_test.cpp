// The update driver against the emulated platform: applicability, the install folder, the item
// paths with the refusal of names that are no plain file name, and the conversion command.
#include <string>

#include "PatchRPX.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {

class UpdateDriverTest : public PatchRunTest {
protected:
    static PatchSetting Applicable(std::list<std::string> databases) {
        PatchSetting setting;
        setting.patchBuild = 3100;
        setting.runningBuild = 3001;
        setting.runningDbBuild = 3050;  // not below 3050: no pattern rebuild
        setting.skipDbSign = 1;
        setting.databases = std::move(databases);
        return setting;
    }
};

const char kNotApplicable[] = "The database build is large than build number of the patch, so return. 3001";

}  // namespace

TEST_F(UpdateDriverTest, AppliesOnlyBelowThePatchBuildAndNamesTheProductBuildOtherwise) {
    PatchSetting setting = Applicable({});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_FALSE(Logged(kNotApplicable));
    setting.runningDbBuild = 3100;
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_EQ(DebugLogMessages().back(), kNotApplicable);
}

TEST_F(UpdateDriverTest, ItemPathsOfPlainNamesOnly) {
    PatchSetting setting = Applicable({"rpmsg.nsf"});
    EXPECT_EQ(UpdateDatabase(setting), 1) << "no program folder";
    EXPECT_TRUE(Logged("Cannot get the latest path!"));

    std::string install = MakeProgramFolder("V5.6.1.3100");
    WriteFile(install + "/rpmsg.nsf", "new file\n");
    std::string longName(300, 'n');
    setting = Applicable({"rpmsg.nsf", ".", "..", "../rpmsg.nsf", "sub/rpmsg.nsf", "..\\rpmsg.nsf", "/etc/passwd",
                          longName});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_TRUE(Logged("Copy the database to RPX database folder! (" + install + "/rpmsg.nsf):(" + DataFolder() +
                       "/rpx/rpmsg.nsf)"));
    for (const char* name : {".", "..", "../rpmsg.nsf", "sub/rpmsg.nsf", "..\\rpmsg.nsf", "/etc/passwd"}) {
        EXPECT_TRUE(Logged(std::string("Skip the database entry, it is not a plain file name. (") + name + ")"))
            << name;
    }
    EXPECT_TRUE(Logged("Skip the database entry, its name is too long. (" + longName + ")"))
        << "the Notes path holds 255 bytes";
    NSFDbDelete("rpx/rpmsg.nsf");
}

TEST_F(UpdateDriverTest, ConvertCommandNamesTheDatabaseOfTheTemplateCutAtTheFirstNtf) {
    std::string install = MakeProgramFolder("V5.6.1.3100");
    WriteFile(install + "/a.ntf.b.ntf", "template\n");
    PatchSetting setting = Applicable({"a.ntf.b.ntf"});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_TRUE(Logged("Run command load convert rpx/a.nsf * rpx/a.ntf.b.ntf"));
    EXPECT_NE(ConsoleText().find("> load convert rpx/a.nsf * rpx/a.ntf.b.ntf"), std::string::npos);
    std::remove((DataFolder() + "/rpx/a.ntf.b.ntf").c_str());
}
