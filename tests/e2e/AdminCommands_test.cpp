// What an administrator does around a patch run, end to end: "rpxserver preview", "run --report",
// "run --backup" and "restore", on server folders whose paths hold blanks and non-ASCII letters.
#include <map>

#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;

// A patch that replaces the message database, installs a new one and the DLP file: no template,
// so no conversion and its pauses.
Json PatchScenario() {
    Json scenario = BaseScenario(PatchIniShipping("rpmsg.nsf,rpnew.nsf,PredefinedDLPPolicy.dat"));
    scenario["data"]["rpx/rpency.nsf"] = ProductDatabase("Pattern", 3001, "pattern");
    scenario["data"]["rpx/PredefinedDLPPolicy.dat"] = "old policy\n";
    scenario["install"][kPatch + "/rpmsg.nsf"] = ProductDatabase("Messages", 3001, "shipped");
    scenario["install"][kPatch + "/rpnew.nsf"] = ProductDatabase("New", 3001, "new");
    scenario["install"][kPatch + "/PredefinedDLPPolicy.dat"] = "new policy\n";
    return scenario;
}

// Every file below folder with its content.
std::map<std::string, std::string> FolderContent(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file()) files[entry.path().lexically_relative(folder).string()] = ReadWholeFile(entry.path());
    return files;
}

// Server folders made with "rpxserver init" in a temporary folder of the test's own.
class AdminCommands : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/rpx_admin_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    CommandResult Rpxserver(const std::vector<std::string>& args) const {
        std::string line = ShellQuoted(RPXSERVER_PATH);
        for (const std::string& arg : args) line += " " + ShellQuoted(arg);
        return RunCommand(line, root_);
    }

    fs::path MakeServer(const Json& scenario, const std::string& name) const {
        WriteWholeFile(root_ / "scenario.json", scenario.dump(2));
        CommandResult init = Rpxserver({"init", (root_ / "scenario.json").string(), (root_ / name).string()});
        EXPECT_EQ(init.exitCode, 0) << init.err;
        return root_ / name;
    }

    Json ReadJson(const fs::path& file) const { return Json::parse(ReadWholeFile(file), nullptr, false); }

    Json DumpDatabase(const fs::path& file) const {
        CommandResult dump = RunCommand(ShellQuoted(NSFDB_PATH) + " dump " + ShellQuoted(file.string()), root_);
        EXPECT_EQ(dump.exitCode, 0) << dump.err;
        return Json::parse(dump.out, nullptr, false);
    }

    // Every database of the product's folder as "nsfdb dump" shows it, plain files as text.
    std::map<std::string, Json> ProductData(const fs::path& server) const {
        std::map<std::string, Json> data;
        for (const auto& entry : fs::directory_iterator(server / "data/rpx")) {
            std::string name = entry.path().filename().string(), extension = entry.path().extension().string();
            data[name] = extension == ".nsf" || extension == ".ntf" ? DumpDatabase(entry.path())
                                                                    : Json(ReadWholeFile(entry.path()));
        }
        return data;
    }

    const Json* Entry(const Json& report, const char* list, const std::string& path) const {
        for (const Json& entry : report[list])
            if (entry["path"] == path) return &entry;
        return nullptr;
    }

    fs::path root_;
};

TEST_F(AdminCommands, PreviewChangesNothingAndForetellsWhatTheRunThenDoes) {
    // The task finds no install folder through a non-ASCII notes.ini path: the preview must show
    // that failure as the run meets it, not a success on a copy with a plainer name.
    for (const std::string name : {"Mail Server", "Mail Sérver Ü"}) {
        SCOPED_TRACE(name);
        fs::path server = MakeServer(PatchScenario(), name);
        auto before = FolderContent(server);

        CommandResult preview = Rpxserver({"preview", server.string(), "--module", UPDRPX_MODULE_PATH, "--json"});
        ASSERT_EQ(preview.exitCode, 0) << preview.err;
        EXPECT_EQ(FolderContent(server), before) << "the preview wrote into the server folder";
        Json foretold = Json::parse(preview.out, nullptr, false);
        ASSERT_TRUE(foretold.is_object()) << preview.out;
        EXPECT_EQ(foretold["preview"], true);

        fs::path reportFile = root_ / ("Bericht über " + name + ".json");
        CommandResult run = Rpxserver({"run", server.string(), "--module", UPDRPX_MODULE_PATH, "--report",
                                       reportFile.string()});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        Json report = ReadJson(reportFile);
        ASSERT_TRUE(report.is_object());
        for (const char* key : {"serverFolder", "dataFolder", "patchBuild", "status", "errors", "warnings",
                                "consoleCommands", "databases", "files", "handlesLeftOpen"})
            EXPECT_EQ(foretold[key], report[key]) << key;
        EXPECT_EQ(report["serverFolder"], server.string());
    }

    // The comparison above is only worth something when the run did something.
    Json report = ReadJson(root_ / "Bericht über Mail Server.json");
    EXPECT_EQ(report["patchBuild"], 3100);
    EXPECT_EQ(report["consoleCommands"].back(), "tell rpxreal restart");
    const Json* messages = Entry(report, "databases", "rpx/rpmsg.nsf");
    ASSERT_NE(messages, nullptr) << report.dump(2);
    EXPECT_EQ((*messages)["change"], "replaced");
    EXPECT_EQ((*messages)["notes"]["removed"], 1) << "the old help note gave way to the shipped notes";
    EXPECT_GE((*messages)["notes"]["added"], 2);
    const Json* created = Entry(report, "databases", "rpx/rpnew.nsf");
    ASSERT_NE(created, nullptr);
    EXPECT_EQ((*created)["change"], "created");
    EXPECT_EQ((*created)["notes"]["before"], 0);
    const Json* policy = Entry(report, "files", "rpx/PredefinedDLPPolicy.dat");
    ASSERT_NE(policy, nullptr);
    EXPECT_EQ((*policy)["change"], "replaced");
    EXPECT_EQ(Entry(report, "databases", "rpxtemp"), nullptr);

    // With --details the text shows the items of the notes that came and went.
    fs::path again = MakeServer(PatchScenario(), "Details Server");
    CommandResult details = Rpxserver({"preview", again.string(), "--module", UPDRPX_MODULE_PATH, "--details"});
    EXPECT_EQ(details.exitCode, 0) << details.err;
    EXPECT_NE(details.out.find("    rpx/rpmsg.nsf: replaced"), std::string::npos) << details.out;
    EXPECT_NE(details.out.find("Marker: \"shipped\""), std::string::npos) << details.out;
    // A server folder with non-ASCII letters is patched like any other.
    Json accented = ReadJson(root_ / "Bericht über Mail Sérver Ü.json");
    EXPECT_TRUE(accented["errors"].empty()) << accented["errors"].dump();
    EXPECT_EQ(accented["consoleCommands"].back(), "tell rpxreal restart");
}

TEST_F(AdminCommands, ReportOfARunWithFaultsListsTheFailures) {
    Json scenario = PatchScenario();
    scenario["server"]["faults"] = Json::array({{{"call", "NSFDbOpen"}, {"path", "rpx/rpency.nsf"}, {"status", 259}}});
    scenario["server"]["busy"] = {{"rpx/rpmsg.nsf", "always"}};
    fs::path server = MakeServer(scenario, "Faulty Server");
    fs::path reportFile = server / "report.json";
    CommandResult run = Rpxserver({"run", server.string(), "--module", UPDRPX_MODULE_PATH, "--report",
                                   reportFile.string(), "--details"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Json report = ReadJson(reportFile);
    ASSERT_TRUE(report.is_object());

    std::string target = (server / "data/rpx/rpmsg.nsf").string();
    std::vector<std::string> errors = report["errors"].get<std::vector<std::string>>();
    EXPECT_EQ(errors, (std::vector<std::string>{"Read ACL error. (rpx/rpency.nsf):(103)",
                                                "Bring database offline. (" + target + "):(13ea)"}));
    EXPECT_EQ(report["warnings"].size(), 60u) << "one line per wait for the busy database";
    EXPECT_EQ(report["warnings"][0], "DB in use, waiting. Retry: 0.");
    EXPECT_TRUE(report["consoleCommands"].empty()) << "the run ended before the restart";
    EXPECT_EQ(Entry(report, "databases", "rpx/rpmsg.nsf"), nullptr) << "the busy database stayed as it was";
    // The summary says the same.
    EXPECT_NE(run.out.find("debug log: 2 errors, 60 warnings"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Bring database offline. (" + target + "):(13ea)"), std::string::npos);
}

TEST_F(AdminCommands, RestoreGivesBackTheDataOfBeforeTheRun) {
    for (const std::string name : {"Mail Server", "Mail Sérver Ü"}) {
        SCOPED_TRACE(name);
        fs::path server = MakeServer(PatchScenario(), name);
        auto before = ProductData(server);
        CommandResult run = Rpxserver({"run", server.string(), "--module", UPDRPX_MODULE_PATH, "--backup"});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        std::vector<std::string> backups;
        for (const auto& entry : fs::directory_iterator(server / "backup"))
            backups.push_back(entry.path().filename().string());
        ASSERT_EQ(backups.size(), 1u);
        if (name == "Mail Server") {
            EXPECT_NE(ProductData(server), before) << "the run changed nothing to restore";
            EXPECT_TRUE(fs::exists(server / "data/rpx/rpnew.nsf"));
        }

        CommandResult restore = Rpxserver({"restore", server.string(), backups[0]});
        EXPECT_EQ(restore.exitCode, 0) << restore.out << restore.err;
        EXPECT_EQ(ProductData(server), before);
        EXPECT_FALSE(fs::exists(server / "data/rpx/rpnew.nsf")) << "the database the patch created is gone";
    }
}

TEST_F(AdminCommands, RestoreWaitsForBusyDatabasesAndReportsTheOnesItCannotTakeOffline) {
    Json scenario = PatchScenario();
    scenario["server"]["busy"] = {{"rpx/rpmsg.nsf", 3}};  // every start of the server counts anew
    fs::path server = MakeServer(scenario, "Busy Server");
    auto before = ProductData(server);
    ASSERT_EQ(Rpxserver({"run", server.string(), "--module", UPDRPX_MODULE_PATH, "--backup"}).exitCode, 0);
    std::string stamp = fs::directory_iterator(server / "backup")->path().filename().string();
    CommandResult restore = Rpxserver({"restore", server.string(), stamp});
    EXPECT_EQ(restore.exitCode, 0) << restore.err;
    EXPECT_EQ(ProductData(server), before);

    ASSERT_EQ(Rpxserver({"run", server.string(), "--module", UPDRPX_MODULE_PATH, "--backup"}).exitCode, 0);
    auto afterRun = ProductData(server);
    WriteWholeFile(server / "server.json", R"({"clock": "virtual", "busy": {"rpx/rpency.nsf": "always"}})");
    restore = Rpxserver({"restore", server.string(), stamp});
    EXPECT_EQ(restore.exitCode, 1);
    EXPECT_NE(restore.err.find("rpx/rpency.nsf: not restored, it cannot be taken offline"), std::string::npos)
        << restore.err;
    auto restored = ProductData(server);
    EXPECT_EQ(restored["rpency.nsf"], afterRun["rpency.nsf"]) << "the busy database was left alone";
    EXPECT_EQ(restored["rpmsg.nsf"], before["rpmsg.nsf"]) << "the others were restored";
    EXPECT_FALSE(fs::exists(server / "data/rpx/rpnew.nsf"));
}

TEST_F(AdminCommands, RestoreRefusesABackupThatDoesNotFitAndChangesNothing) {
    fs::path alpha = MakeServer(PatchScenario(), "Alpha Ä");
    ASSERT_EQ(Rpxserver({"run", alpha.string(), "--module", UPDRPX_MODULE_PATH, "--backup"}).exitCode, 0);
    std::string stamp = fs::directory_iterator(alpha / "backup")->path().filename().string();

    Json otherName = PatchScenario();
    otherName["notesIni"]["ServerName"] = "CN=Beta/O=Acme";
    fs::path beta = MakeServer(otherName, "Beta");
    fs::create_directories(beta / "backup");
    fs::copy(alpha / "backup" / stamp, beta / "backup" / stamp, fs::copy_options::recursive);
    auto betaBefore = FolderContent(beta / "data");
    CommandResult refused = Rpxserver({"restore", beta.string(), stamp});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("not on this server \"CN=Beta/O=Acme\""), std::string::npos) << refused.err;
    EXPECT_EQ(FolderContent(beta / "data"), betaBefore);

    // Same server name, another data folder: still another server.
    fs::path gamma = MakeServer(PatchScenario(), "Gamma");
    fs::create_directories(gamma / "backup");
    fs::copy(alpha / "backup" / stamp, gamma / "backup" / stamp, fs::copy_options::recursive);
    refused = Rpxserver({"restore", gamma.string(), stamp});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find((alpha / "data").string()), std::string::npos) << refused.err;

    refused = Rpxserver({"restore", alpha.string(), "20000101-000000"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("backups there: " + stamp), std::string::npos) << refused.err;

    auto alphaAfterRun = FolderContent(alpha / "data");
    fs::remove(alpha / "backup" / stamp / "data/rpx/rpmsg.nsf");
    refused = Rpxserver({"restore", alpha.string(), stamp});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("incomplete"), std::string::npos) << refused.err;
    EXPECT_EQ(FolderContent(alpha / "data"), alphaAfterRun) << "an incomplete backup restores nothing";
}

TEST_F(AdminCommands, CommandsAreDocumentedAndRefuseWhatTheyCannotDo) {
    CommandResult help = Rpxserver({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* usage : {"preview DIR [--module PATH] [--details] [--json]", "--report FILE", "--backup",
                              "restore DIR TIMESTAMP"})
        EXPECT_NE(help.out.find(usage), std::string::npos) << usage;

    // A data folder outside the server folder cannot be copied for a preview.
    Json outside = PatchScenario();
    outside["notesIni"]["Directory"] = (root_ / "elsewhere").string();
    fs::path server = MakeServer(outside, "Outside");
    CommandResult preview = Rpxserver({"preview", server.string(), "--module", UPDRPX_MODULE_PATH});
    EXPECT_EQ(preview.exitCode, 1);
    EXPECT_NE(preview.err.find("lies outside the server folder"), std::string::npos) << preview.err;
    EXPECT_FALSE(fs::exists(server / "console.log")) << "the task never ran";

    EXPECT_EQ(Rpxserver({"run", server.string(), "--details"}).exitCode, 120) << "--details needs --report";
    EXPECT_EQ(Rpxserver({"restore", server.string()}).exitCode, 120);
}

}  // namespace
