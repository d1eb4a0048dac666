// The start of a patch run, end to end: the settings file and its failures, the comma lists, the
// debug log switch, the detection of the installed builds and the not-applicable case.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const char kBegin[] = "===============Begin update database========";
const char kNoVersion[] = "Error, Cannot get the running RPX version";
const char kNotApplicable[] = "The database build is large than build number of the patch, so return.";

// A run that stops in the settings: nothing but the three log lines, no console command, and the
// message database untouched.
void ExpectStoppedInSettings(const Json& scenario, const std::string& reason) {
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    Json before = server.Dump("rpx/rpmsg.nsf");
    EXPECT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    EXPECT_EQ(server.DebugMessages(), (std::vector<std::string>{kBegin, reason, kNoVersion}));
    EXPECT_TRUE(server.ConsoleCommands().empty());
    EXPECT_EQ(server.Dump("rpx/rpmsg.nsf"), before);
}

}  // namespace

TEST(SettingsRun, EachSettingsFailureEndsTheRunWithItsMessage) {
    Json noFile = BaseScenario("");
    noFile["install"].erase(std::string(kPatchFolder) + "/rpxpatch.ini");
    noFile["install"][std::string(kPatchFolder) + "/release.txt"] = "3100\n";
    {
        E2eServer probe;  // the message names the full path of the settings file
        ASSERT_TRUE(probe.Create(noFile));
        std::string path = probe.InstallPath(std::string(kPatchFolder) + "/rpxpatch.ini").string();
        probe.Run();
        EXPECT_EQ(probe.DebugMessages(),
                  (std::vector<std::string>{kBegin, "Cannot open the file. (" + path + ")", kNoVersion}));
    }
    ExpectStoppedInSettings(BaseScenario(PatchIni({"BuildNumber=3100", "Databases=PredefinedDLPPolicy.dat"})),
                            "Cannot get the value in configuration file. (Config:Files)");
    ExpectStoppedInSettings(BaseScenario(PatchIni({"Files=PredefinedDLPPolicy.dat", "Databases=PredefinedDLPPolicy.dat"})),
                            "Cannot get the value in configuration file. (Config:BuildNumber)");
}

TEST(SettingsRun, WithoutDatabasesOnlyTheSettingsAndBuildsAreReported) {
    E2eServer server;
    ASSERT_TRUE(server.Create(BaseScenario(PatchIni({"Files=", "BuildNumber=3100", "UpdateExt=1", "SkipDbSign=2"}))));
    EXPECT_EQ(server.Run().exitCode, 0);
    auto messages = server.DebugMessages();
    std::vector<std::string> start{kBegin,
                                   "Cannot get the value in configuration file. (Config:Databases)",
                                   "Database signing will be skiped.",
                                   "The build number in patch configuration is 3100",
                                   "Info: The new database build number is 5.6.1.3100",
                                   "The running RPX build is 3100",
                                   "The running RPX database build is 3001"};
    ASSERT_GE(messages.size(), start.size());
    EXPECT_EQ(std::vector<std::string>(messages.begin(), messages.begin() + static_cast<long>(start.size())), start);
    // Nothing of the walk or of its end: no stamping, signing or restart.
    EXPECT_EQ(IndexOf(messages, "Info: Begin process databases."), messages.size());
    EXPECT_EQ(IndexOf(messages, "SignDatabase Enter"), messages.size());
    EXPECT_TRUE(server.ConsoleCommands().empty());
    EXPECT_EQ(HelpBuildNumber(server.Dump("rpx/rpmsg.nsf")), "5.6.1.3001");
}

TEST(SettingsRun, ListItemsKeepBlanksButNoEmptyLastItemAndPathsOutOfTheFolderAreRefused) {
    const std::string blankName = " PredefinedDLPPolicy.dat";
    Json scenario =
        BaseScenario(PatchIniShipping("PredefinedDLPPolicy.dat," + blankName + ",../rpmsg.nsf,PredefinedDLPPolicy.dat.nsf,"));
    scenario["data"]["rpx/PredefinedDLPPolicy.dat"] = "revision 7\n";
    scenario["install"][std::string(kPatchFolder) + "/PredefinedDLPPolicy.dat"] = "revision 8\n";
    scenario["install"][std::string(kPatchFolder) + "/" + blankName] = "with a blank\n";
    scenario["install"][std::string(kPatchFolder) + "/PredefinedDLPPolicy.dat.nsf"] = "not a database\n";
    scenario["install"]["program/rpmsg.nsf"] = "outside the patch folder\n";
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    EXPECT_EQ(server.Run().exitCode, 0);

    auto copied = [&](const std::string& name) {
        return "Copy the dlp template to RPX database folder! (" +
               server.InstallPath(std::string(kPatchFolder) + "/" + name).string() + "):(" +
               server.DataPath("rpx/" + name).string() + ")";
    };
    auto messages = server.DebugMessages();
    EXPECT_EQ(Slice(messages, "Enter dlpStr switch.", copied("PredefinedDLPPolicy.dat.nsf")),
              (std::vector<std::string>{"Enter dlpStr switch.", copied("PredefinedDLPPolicy.dat"),
                                        "Enter dlpStr switch.", copied(blankName),
                                        "Skip the database entry, it is not a plain file name. (../rpmsg.nsf)",
                                        "Enter dlpStr switch.", copied("PredefinedDLPPolicy.dat.nsf")}));
    EXPECT_EQ(CountOf(messages, "Enter dlpStr switch."), 3u) << "no empty last item";
    EXPECT_EQ(IndexOf(messages, "Enter nsfStr switch."), messages.size()) << "the DLP name wins over .nsf";
    EXPECT_EQ(ReadWholeFile(server.DataPath("rpx/PredefinedDLPPolicy.dat")), "revision 8\n");
    EXPECT_EQ(ReadWholeFile(server.DataPath("rpx/" + blankName)), "with a blank\n");
    EXPECT_FALSE(fs::exists(server.DataPath("rpmsg.nsf"))) << "nothing is written outside rpx/";
    // The walk ended normally: the run goes on to stamping and the restart.
    EXPECT_EQ(server.ConsoleCommands(), std::vector<std::string>{"tell rpxreal restart"});
    EXPECT_EQ(HelpBuildNumber(server.Dump("rpx/rpmsg.nsf")), "5.6.1.3100");
}

// An empty item is walked like any name: its paths end in the product folder itself, so taking
// it offline is tried on that folder (and whatever follows fails on it), never skipped.
TEST(SettingsRun, EmptyItemsAreWalkedNotSkipped) {
    E2eServer server;
    ASSERT_TRUE(server.Create(BaseScenario(PatchIniShipping(",,"))));
    EXPECT_EQ(server.Run().exitCode, 0);

    auto messages = server.DebugMessages();
    EXPECT_EQ(CountOf(messages, "Skip the database entry, it is not a plain file name. ()"), 0u);
    EXPECT_EQ(CountOf(messages, "Database does not exist, do not bring it offline. (" +
                                    server.DataPath("rpx/").string() + ")"),
              0u)
        << "the folder exists";
    const std::string target = server.DataPath("rpx/").string();
    size_t attempts = CountOf(messages, "Bring database offline successfully. (" + target + ")");
    for (const std::string& message : messages) {
        if (message.rfind("Bring database offline. (" + target + "):(", 0) == 0) ++attempts;
    }
    EXPECT_GE(attempts, 1u) << "the first empty item is taken offline";
}

TEST(SettingsRun, DebugLogIsWrittenOnlyWhenTheSwitchIsOne) {
    for (const char* value : {"2", "0"}) {
        Json scenario = BaseScenario(PatchIniShipping("PredefinedDLPPolicy.dat"));
        scenario["notesIni"]["RPX_ENABLE_RPENCY_LOG"] = value;
        scenario["install"][std::string(kPatchFolder) + "/PredefinedDLPPolicy.dat"] = "revision 8\n";
        E2eServer server;
        ASSERT_TRUE(server.Create(scenario));
        EXPECT_EQ(server.Run().exitCode, 0);
        EXPECT_TRUE(server.DebugLogFiles().empty()) << value;
        EXPECT_EQ(ReadWholeFile(server.DataPath("rpx/PredefinedDLPPolicy.dat")), "revision 8\n") << "the run still works";
    }
    E2eServer server;
    Json scenario = BaseScenario(PatchIniShipping("PredefinedDLPPolicy.dat"));
    ASSERT_TRUE(server.Create(scenario));
    server.Run();
    ASSERT_EQ(server.DebugLogFiles().size(), 1u);
    auto log = server.DebugLog();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.front().text, kBegin);
    // Everything but the expression table's listing, which is written at level 3.
    for (const LogLine& line : log) {
        if (line.text.rfind("\tgMap[", 0) == 0) continue;
        EXPECT_EQ(line.level, 1) << line.text;
    }
}

TEST(SettingsRun, BuildsComeFromTheNewestProgramFolderAndTheMessageDatabase) {
    struct Case {
        Json messageDatabase;  // null: not installed
        int databaseBuild;
    };
    Json noDot = ProductDatabase("Messages", 0);
    noDot["notes"][0]["items"]["BuildNumber"] = "3050";
    Json twoHelpNotes = ProductDatabase("Messages", 3001);
    twoHelpNotes["notes"].push_back(HelpNote(3060));
    const std::vector<Case> cases{{ProductDatabase("Messages", 3050), 3050},
                                  {twoHelpNotes, 3060},
                                  {noDot, 0},
                                  {Json(), 0}};
    for (const Case& c : cases) {
        Json scenario = BaseScenario(PatchIni({"Files=", "BuildNumber=3200"}));
        scenario["install"]["program/V5.6.1.999/readme.txt"] = "older, and smaller as a number\n";
        if (c.messageDatabase.is_null()) {
            scenario["data"].erase("rpx/rpmsg.nsf");
        } else {
            scenario["data"]["rpx/rpmsg.nsf"] = c.messageDatabase;
        }
        E2eServer server;
        ASSERT_TRUE(server.Create(scenario));
        server.Run();
        auto messages = server.DebugMessages();
        size_t product = IndexOf(messages, "The running RPX build is 3100");
        ASSERT_LT(product + 1, messages.size()) << c.databaseBuild;
        EXPECT_EQ(messages[product + 1], "The running RPX database build is " + std::to_string(c.databaseBuild));
    }
}

TEST(SettingsRun, NotApplicableRunNamesTheProductBuildAndChangesNothing) {
    Json scenario = BaseScenario(PatchIniShipping("PredefinedDLPPolicy.dat"));
    scenario["data"]["rpx/rpmsg.nsf"] = ProductDatabase("Messages", 3200);
    scenario["install"][std::string(kPatchFolder) + "/PredefinedDLPPolicy.dat"] = "revision 8\n";
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    Json before = server.Dump("rpx/rpmsg.nsf");
    EXPECT_EQ(server.Run().exitCode, 0);
    EXPECT_EQ(server.DebugMessages(), (std::vector<std::string>{kBegin, "Needn't update extesion manager.",
                                                                "The build number in patch configuration is 3100",
                                                                "Info: The new database build number is 5.6.1.3100",
                                                                "The running RPX build is 3100",
                                                                "The running RPX database build is 3200",
                                                                std::string(kNotApplicable) + " 3100"}));
    EXPECT_TRUE(server.ConsoleCommands().empty());
    EXPECT_FALSE(fs::exists(server.DataPath("rpx/PredefinedDLPPolicy.dat")));
    EXPECT_EQ(server.Dump("rpx/rpmsg.nsf"), before);

    // A build number that is no number gives build 0: never applicable.
    E2eServer zero;
    ASSERT_TRUE(zero.Create(BaseScenario(PatchIni({"Files=", "BuildNumber=next", "Databases=PredefinedDLPPolicy.dat"}))));
    zero.Run();
    EXPECT_TRUE(zero.Logged("Info: The new database build number is 5.6.1.0"));
    EXPECT_TRUE(zero.Logged(std::string(kNotApplicable) + " 3100"));
}
