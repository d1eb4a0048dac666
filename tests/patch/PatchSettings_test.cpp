// The patch settings against the emulated platform: rpxpatch.ini of the newest program folder,
// its failures and messages, the comma lists and the build string.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>

#include "PatchRPX.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {

using Names = std::list<std::string>;
using Lines = std::vector<std::string>;

class PatchSettingsTest : public PatchRunTest {
protected:
    void TearDown() override {
        std::strcpy(g_szRkRPXBuildVersion, "5.6.1.3001");
        PatchRunTest::TearDown();
    }
    // rpxpatch.ini with these lines after "[Config]", in the newer of two program folders.
    static std::string WriteSettings(const std::string& lines) {
        MakeProgramFolder("V5.6.1.3001");
        std::string path = MakeProgramFolder("V5.6.1.3100") + "/rpxpatch.ini";
        WriteFile(path, "[Config]\n" + lines);
        ClearDebugLog();
        return path;
    }
};

Names Parse(const char* text, Names names = {}) {
    std::string copy = text;
    ParseFileList(names, &copy[0]);
    return names;
}

const char kMissing[] = "Cannot get the value in configuration file. (Config:";

}  // namespace

TEST(PatchLoadTimeSetUp, DisablesEmInTheEnvironment) {
    ASSERT_NE(std::getenv("RK_DISABLE_EM"), nullptr);
    EXPECT_STREQ(std::getenv("RK_DISABLE_EM"), "1");
}

TEST(ParseFileListTest, SplitsAtEveryCommaKeepingEmptyItemsAndBlanks) {
    EXPECT_EQ(Parse("a.ntf,b.nsf,"), (Names{"a.ntf", "b.nsf"})) << "no empty last item";
    EXPECT_EQ(Parse(",a,,b"), (Names{"", "a", "", "b"}));
    EXPECT_EQ(Parse(" a , b "), (Names{" a ", " b "}));
    EXPECT_EQ(Parse(""), Names{});
    EXPECT_EQ(Parse("c", Names{"a", "b"}), (Names{"a", "b", "c"})) << "appends in order";
}

TEST_F(PatchSettingsTest, ReadsEveryKey) {
    WriteSettings("Files=rpvlog.ntf,rpmsg.nsf\nBuildNumber=3100\nDatabases=rpvlog.ntf,PredefinedDLPPolicy.dat\n"
                  "UpdateExt=1\nSkipDbSign=2\n");
    PatchSetting setting;
    ASSERT_EQ(ReadConfiguration(setting), 0);
    EXPECT_EQ(setting.files, (Names{"rpvlog.ntf", "rpmsg.nsf"}));
    EXPECT_EQ(setting.patchBuild, 3100);
    EXPECT_EQ(setting.databases, (Names{"rpvlog.ntf", "PredefinedDLPPolicy.dat"}));
    EXPECT_EQ(setting.updateExt, 1);
    EXPECT_EQ(setting.skipDbSign, 1) << "any non-zero number turns signing off";
    EXPECT_EQ(DebugLogMessages(),
              (Lines{"Database signing will be skiped.", "The build number in patch configuration is 3100"}));

    WriteSettings("Files=x\nBuildNumber=3100\nSkipDbSign=0\n");
    PatchSetting defaults;
    ASSERT_EQ(ReadConfiguration(defaults), 0) << "Databases is optional";
    EXPECT_TRUE(defaults.databases.empty());
    EXPECT_EQ(defaults.skipDbSign, 0);
    EXPECT_EQ(DebugLogMessages(), (Lines{std::string(kMissing) + "Databases)", "Needn't update extesion manager.",
                                         "The build number in patch configuration is 3100"}));
}

TEST_F(PatchSettingsTest, MissingFolderFileOrRequiredKeyFails) {
    PatchSetting setting;
    EXPECT_EQ(ReadConfiguration(setting), 1);
    EXPECT_EQ(DebugLogMessages(), Lines{"Cannot get the latest path!"});

    std::string path = WriteSettings("");
    std::remove(path.c_str());
    EXPECT_EQ(ReadConfiguration(setting), 1);
    EXPECT_EQ(DebugLogMessages(), Lines{"Cannot open the file. (" + path + ")"});

    WriteSettings("BuildNumber=3100\n");
    EXPECT_EQ(ReadConfiguration(setting), 1);
    EXPECT_EQ(DebugLogMessages(), Lines{std::string(kMissing) + "Files)"});

    WriteSettings("Files=a.nsf,b.nsf\nDatabases=a.nsf\n");
    EXPECT_EQ(ReadConfiguration(setting), 1);
    EXPECT_EQ(DebugLogMessages(), Lines{std::string(kMissing) + "BuildNumber)"});
    EXPECT_EQ(setting.files, (Names{"a.nsf", "b.nsf"})) << "the list read before the failure stays";
}

TEST_F(PatchSettingsTest, StartSetsTheBuildStringOrReportsTheFailure) {
    WriteSettings("Files=x\nBuildNumber=next\n");
    EXPECT_EQ(MainEntryPoint(), NOERROR);
    EXPECT_STREQ(g_szRkRPXBuildVersion, "5.6.1.0");
    Lines messages = DebugLogMessages();
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ(messages.front(), "===============Begin update database========");
    auto settingsRead = std::find(messages.begin(), messages.end(), "The build number in patch configuration is 0");
    ASSERT_NE(settingsRead, messages.end());
    ASSERT_NE(settingsRead + 1, messages.end());
    EXPECT_EQ(*(settingsRead + 1), "Info: The new database build number is 5.6.1.0");

    WriteSettings("Files=x\n");
    EXPECT_EQ(MainEntryPoint(), NOERROR);
    EXPECT_STREQ(g_szRkRPXBuildVersion, "5.6.1.0") << "left as it was";
    EXPECT_EQ(DebugLogMessages().back(), "Error, Cannot get the running RPX version");
}
