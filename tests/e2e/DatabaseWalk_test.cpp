// The walk over the shipped files, end to end: templates converted on the console, databases
// given the pattern database's ACL, busy databases, and the configuration template's exact name.
#include <regex>

#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;

std::string Target(const E2eServer& server, const std::string& name) {
    return server.DataPath("rpx/" + name).string();
}
std::string Source(const E2eServer& server, const std::string& name) {
    return server.InstallPath(kPatch + "/" + name).string();
}
std::string Copied(const E2eServer& server, const std::string& name) {
    return "Copy the database to RPX database folder! (" + Source(server, name) + "):(" + Target(server, name) + ")";
}

// The marker documents' "Marker" values of a dumped database.
std::vector<std::string> Markers(const Json& db) {
    std::vector<std::string> markers;
    for (const Json& note : NotesOfClass(db, "document")) markers.push_back(ItemText(note, "Marker"));
    return markers;
}

std::vector<std::string> FormTitles(const Json& db) {
    std::vector<std::string> titles;
    for (const Json& note : NotesOfClass(db, "form")) titles.push_back(ItemText(note, "$TITLE"));
    return titles;
}

}  // namespace

TEST(DatabaseWalk, TemplateIsReplacedStampedAndConvertedOnTheConsole) {
    Json scenario = BaseScenario(PatchIniShipping("rpvlog.ntf"));
    scenario["data"]["rpx/rpvlog.ntf"] = ProductTemplate("Virus Log Template", "RPXVirusLog", 3001, "old template");
    Json logDb = ProductDatabase("Virus Log", 3001, "log entry");
    logDb["inheritFrom"] = "RPXVirusLog";
    logDb["notes"].push_back({{"class", "form"}, {"items", {{"$TITLE", "old template form"}}}});
    scenario["data"]["rpx/rpvlog.nsf"] = logDb;
    Json shipped = ProductTemplate("Virus Log Template", "RPXVirusLog", 3001, "new template");
    scenario["install"][kPatch + "/rpvlog.ntf"] = shipped;
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));

    const CommandResult& run = server.Run();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_GE(run.seconds, 3.0) << "the add-in pauses 3 s after the conversion command";

    const std::string command = "load convert rpx/rpvlog.nsf * rpx/rpvlog.ntf";
    auto messages = server.DebugMessages();
    ExpectInOrder(messages, {"Bring database offline successfully. (" + Target(server, "rpvlog.ntf") + ")",
                             Copied(server, "rpvlog.ntf"),
                             "Bring database online. (" + Target(server, "rpvlog.ntf") + "):(0)",
                             "Enter ntfStr switch.",
                             "Info: start to set build number -'rpx/rpvlog.ntf'.\n",
                             "Set the build number to '5.6.1.3100'",
                             "Run command " + command});
    EXPECT_EQ(IndexOf(messages, "Enter nsfStr switch."), messages.size());
    EXPECT_EQ(server.ConsoleCommands(), (std::vector<std::string>{command, "tell rpxreal restart"}));

    Json newTemplate = server.Dump("rpx/rpvlog.ntf");
    EXPECT_EQ(Markers(newTemplate), std::vector<std::string>{"new template"});
    EXPECT_EQ(HelpBuildNumber(newTemplate), "5.6.1.3100");
    Json converted = server.Dump("rpx/rpvlog.nsf");
    EXPECT_EQ(converted.value("inheritFrom", ""), "RPXVirusLog");
    EXPECT_EQ(FormTitles(converted), std::vector<std::string>{"new template form"}) << "design of the new template";
    EXPECT_EQ(Markers(converted), std::vector<std::string>{"log entry"}) << "documents are kept";
}

TEST(DatabaseWalk, ReplacedAndNewDatabasesReceiveThePatternDatabaseAcl) {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf,rpxapproved.nsf"));
    Json pattern = ProductDatabase("Pattern Files", 3001);
    pattern["acl"] = Acl({{"-Default-", "noaccess"}, {"CN=Pattern Keeper/O=Acme", "manager"}, {"Auditors", "reader"}});
    scenario["data"]["rpx/rpency.nsf"] = pattern;
    Json oldLists = ProductDatabase("Lists", 3001, "old lists");
    oldLists["acl"] = Acl({{"-Default-", "editor"}, {"CN=Old Owner/O=Acme", "manager"}});
    scenario["data"]["rpx/rplists.nsf"] = oldLists;
    Json shippedAcl = Acl({{"-Default-", "reader"}, {"CN=Build Team/O=Vendor", "manager"}});
    for (const char* name : {"rplists.nsf", "rpxapproved.nsf"}) {
        Json db = ProductDatabase(name, 3100, std::string("shipped ") + name);
        db["acl"] = shippedAcl;
        scenario["install"][kPatch + "/" + name] = db;
    }
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    EXPECT_EQ(run.exitCode, 0);
    // The ACL read for the walk is freed and every database closed: only the pattern check's
    // compiled formula stays, which is never freed.
    std::regex leftOpen("rpxserver: 1 handle left open at task exit:\nrpxserver:   memory handle \\d+ "
                        "\\(\\d+ bytes\\) from NSFFormulaCompile\n");
    EXPECT_TRUE(std::regex_search(run.err, leftOpen))
        << run.err;

    auto messages = server.DebugMessages();
    ExpectInOrder(messages, {"Enter nsfStr switch.",
                             "Bring database offline successfully. (" + Target(server, "rplists.nsf") + ")",
                             Copied(server, "rplists.nsf"),
                             "Bring database online. (" + Target(server, "rplists.nsf") + "):(0)",
                             "Enter nsfStr switch.",
                             "Database does not exist, do not bring it offline. (" + Target(server, "rpxapproved.nsf") + ")",
                             Copied(server, "rpxapproved.nsf")});
    auto patternAcl = AclLevels(server.Dump("rpx/rpency.nsf"));
    ASSERT_EQ(patternAcl.size(), 3u);
    for (const char* name : {"rplists.nsf", "rpxapproved.nsf"}) {
        Json db = server.Dump(std::string("rpx/") + name);
        EXPECT_EQ(AclLevels(db), patternAcl) << name;
        EXPECT_EQ(Markers(db), std::vector<std::string>{std::string("shipped ") + name});
    }

    // Without a pattern database there is no ACL to give: the shipped one stays.
    scenario["data"].erase("rpx/rpency.nsf");
    E2eServer bare;
    ASSERT_TRUE(bare.Create(scenario));
    bare.Run();
    auto bareMessages = bare.DebugMessages();
    size_t readError = IndexOf(bareMessages, "Enter nsfStr switch.");
    ASSERT_LT(readError + 1, bareMessages.size());
    EXPECT_EQ(bareMessages[readError + 1].rfind("Read ACL error. (rpx/rpency.nsf):(", 0), 0u) << bareMessages[readError + 1];
    EXPECT_EQ(AclLevels(bare.Dump("rpx/rplists.nsf")), AclLevels(Json{{"acl", shippedAcl}}));
}

TEST(DatabaseWalk, DatabaseBusyForThreeAttemptsIsReplacedAfterThreeWaits) {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf"));
    scenario["data"]["rpx/rplists.nsf"] = ProductDatabase("Lists", 3001, "old lists");
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3100, "new lists");
    scenario["server"]["busy"] = {{"rpx/rplists.nsf", 3}};
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    EXPECT_EQ(server.Run().exitCode, 0);

    auto log = server.DebugLog();
    std::vector<std::string> waits;
    for (const LogLine& line : log) {
        if (line.level == 0) waits.push_back(line.text);
    }
    EXPECT_EQ(waits, (std::vector<std::string>{"DB in use, waiting. Retry: 0.", "DB in use, waiting. Retry: 1.",
                                               "DB in use, waiting. Retry: 2."}));
    ExpectInOrder(server.DebugMessages(), {"DB in use, waiting. Retry: 2.",
                                           "Bring database offline successfully. (" + Target(server, "rplists.nsf") + ")",
                                           Copied(server, "rplists.nsf")});
    Json lists = server.Dump("rpx/rplists.nsf");
    EXPECT_EQ(Markers(lists), std::vector<std::string>{"new lists"});
    EXPECT_EQ(server.ConsoleCommands(), std::vector<std::string>{"tell rpxreal restart"});
}

TEST(DatabaseWalk, DatabaseBusyForEverStopsTheRunAfterSixtyWaits) {
    Json scenario = BaseScenario(PatchIniShipping("PredefinedDLPPolicy.dat,rplists.nsf,rpvlog.ntf"));
    scenario["data"]["rpx/rplists.nsf"] = ProductDatabase("Lists", 3001, "old lists");
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3100, "new lists");
    scenario["install"][kPatch + "/PredefinedDLPPolicy.dat"] = "revision 8\n";
    scenario["install"][kPatch + "/rpvlog.ntf"] = ProductTemplate("Virus Log Template", "RPXVirusLog", 3100, "new");
    scenario["server"]["busy"] = {{"rpx/rplists.nsf", "always"}};
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    EXPECT_EQ(server.Run().exitCode, 0) << "the task returns 0 to the server whatever happened";

    auto log = server.DebugLog();
    size_t firstWait = 0;
    while (firstWait < log.size() && log[firstWait].level != 0) ++firstWait;
    ASSERT_EQ(log.size(), firstWait + 61) << "60 waits and the final line end the log";
    for (int retry = 0; retry < 60; ++retry) {
        const LogLine& line = log[firstWait + static_cast<size_t>(retry)];
        EXPECT_EQ(line.level, 0);
        EXPECT_EQ(line.text, "DB in use, waiting. Retry: " + std::to_string(retry) + ".");
    }
    EXPECT_EQ(log.back().level, 1);
    EXPECT_EQ(log.back().text, "Bring database offline. (" + Target(server, "rplists.nsf") + "):(13ea)");

    EXPECT_EQ(ReadWholeFile(server.DataPath("rpx/PredefinedDLPPolicy.dat")), "revision 8\n") << "done items stay done";
    EXPECT_EQ(Markers(server.Dump("rpx/rplists.nsf")), std::vector<std::string>{"old lists"});
    EXPECT_FALSE(fs::exists(server.DataPath("rpx/rpvlog.ntf"))) << "later items are not walked";
    EXPECT_EQ(HelpBuildNumber(server.Dump("rpx/rpmsg.nsf")), "5.6.1.3001") << "no stamping";
    EXPECT_TRUE(server.ConsoleCommands().empty()) << "no conversion, no restart";
}

TEST(DatabaseWalk, OnlyTheExactNameRpconfNtfStartsTheConfigurationMigration) {
    // The migration starts by having the server refresh the configuration database's design.
    const std::string migrationCalled = "Run command load design -f rpx/rpconf.nsf";
    Json scenario = BaseScenario(PatchIniShipping("rpconf.ntf2,RPCONF.NTF,rpconf.ntf"));
    scenario["data"]["rpx/rpconf.nsf"] = ProductDatabase("Configuration", 3001, "policy");
    for (const char* name : {"rpconf.ntf2", "rpconf.ntf"}) {
        scenario["install"][kPatch + "/" + name] = ProductTemplate("Configuration Template", "RPXConfig", 3100, name);
    }
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    EXPECT_EQ(server.Run().exitCode, 0);

    EXPECT_EQ(server.ConsoleCommands(),
              (std::vector<std::string>{"load convert rpx/rpconf.nsf * rpx/rpconf.ntf2",
                                        "load convert rpx/rpconf.nsf * rpx/rpconf.ntf", "load design -f rpx/rpconf.nsf",
                                        "tell rpxreal restart"}))
        << "a further suffix is still a template; capitals are not";
    auto messages = server.DebugMessages();
    EXPECT_EQ(CountOf(messages, migrationCalled), 1u);
    ExpectInOrder(messages, {"Run command load convert rpx/rpconf.nsf * rpx/rpconf.ntf2",
                             "Database does not exist, do not bring it offline. (" + Target(server, "RPCONF.NTF") + ")",
                             "Run command load convert rpx/rpconf.nsf * rpx/rpconf.ntf", migrationCalled});
    // RPCONF.NTF is not shipped: its copy fails silently and the ACL error names the source.
    EXPECT_EQ(IndexOf(messages, Copied(server, "RPCONF.NTF")), messages.size());
    size_t aclError = IndexOf(messages, "Database does not exist, do not bring it offline. (" + Target(server, "RPCONF.NTF") + ")");
    bool namedSource = false;
    for (size_t i = aclError; i < messages.size(); ++i) {
        if (messages[i].rfind("Write ACL error. (" + Source(server, "RPCONF.NTF") + "):(", 0) == 0) namedSource = true;
    }
    EXPECT_TRUE(namedSource);
}

TEST(DatabaseWalk, OldPatternDatabaseIsRebuiltOnlyBelowDatabaseBuild3050) {
    for (int databaseBuild : {3049, 3050}) {
        Json scenario = BaseScenario(PatchIniShipping("PredefinedDLPPolicy.dat"));
        scenario["install"][kPatch + "/PredefinedDLPPolicy.dat"] = "revision 8\n";
        scenario["data"]["rpx/rpmsg.nsf"] = ProductDatabase("Messages", databaseBuild);
        Json pattern = ProductDatabase("Pattern Files", databaseBuild);
        pattern["notes"].push_back(Document({{"Form", "Patternfile"}, {"InternalPVer", "1743"}}));
        scenario["data"]["rpx/rpency.nsf"] = pattern;
        scenario["data"]["rpx/rpency.ntf"] = ProductTemplate("Pattern Files Template", "RPXPattern", 3100, "fresh");
        E2eServer server;
        ASSERT_TRUE(server.Create(scenario));
        server.Run();
        bool rebuilt = server.Logged("rpency.nsf is old format, recreate it");
        EXPECT_EQ(rebuilt, databaseBuild < 3050) << databaseBuild;
        EXPECT_EQ(Markers(server.Dump("rpx/rpency.nsf")),
                  rebuilt ? std::vector<std::string>{"fresh"} : std::vector<std::string>{""})
            << databaseBuild;
    }
}

// notes.ini is native text and the platform hands its values out as LMBCS, which the task
// translates back: a server folder with non-ASCII characters is patched like any other.
TEST(DatabaseWalk, ServerFolderWithNonAsciiCharactersIsPatched) {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf"));
    scenario["data"]["rpx/rplists.nsf"] = ProductDatabase("Lists", 3001, "old lists");
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3001, "shipped lists");
    E2eServer server("serveur-\xC3\xA9t\xC3\xA9-\xE6\x97\xA5\xE6\x9C\xAC");  // "serveur-été-日本"
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Markers(server.Dump("rpx/rplists.nsf")), std::vector<std::string>{"shipped lists"}) << run.out;
    EXPECT_EQ(HelpBuildNumber(server.Dump("rpx/rpmsg.nsf")), "5.6.1.3100");
    EXPECT_EQ(server.ConsoleCommands(), std::vector<std::string>{"tell rpxreal restart"});
}
