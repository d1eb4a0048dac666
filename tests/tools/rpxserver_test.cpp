// rpxserver, run as built on server folders in a temporary folder, with task modules built
// for these tests only (tests/tools/testmodule).
#ifdef RPXSERVER_PATH
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Result {
    int exitCode = -1;
    std::string out, err;
};

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Quoted(const std::string& arg) {
    std::string quoted = "'";
    for (char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

class RpxserverTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "rpxserver-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        fs::create_directory(dir_ / "work");
    }
    void TearDown() override { fs::remove_all(dir_); }

    // The folder the tool runs in; servers are made here.
    fs::path Work() const { return dir_ / "work"; }

    Result Run(const std::string& program, const std::vector<std::string>& args) const {
        std::string command = "cd " + Quoted(Work().string()) + " && " + Quoted(program);
        for (const std::string& arg : args) command += " " + Quoted(arg);
        command += " >" + Quoted((dir_ / "stdout.txt").string()) + " 2>" + Quoted((dir_ / "stderr.txt").string());
        int status = std::system(command.c_str());
        Result result;
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = ReadFile(dir_ / "stdout.txt");
        result.err = ReadFile(dir_ / "stderr.txt");
        return result;
    }
    Result Rpxserver(const std::vector<std::string>& args) const { return Run(RPXSERVER_PATH, args); }

    // Writes the scenario beside the work folder and runs "init" on it.
    Result Init(const std::string& scenarioText, const std::string& server = "srv") const {
        WriteFile(dir_ / "scenario.json", scenarioText);
        return Rpxserver({"init", (dir_ / "scenario.json").string(), server});
    }
    // A server made from scenario; fails the test when init does.
    fs::path MakeServer(const Json& scenario, const std::string& server = "srv") const {
        Result init = Init(scenario.dump(2), server);
        EXPECT_EQ(init.exitCode, 0) << init.err;
        return Work() / server;
    }

    Json Dump(const fs::path& database) const {
        Result dump = Run(NSFDB_PATH, {"dump", database.string()});
        EXPECT_EQ(dump.exitCode, 0) << dump.err;
        return Json::parse(dump.out, nullptr, false);
    }

    std::vector<std::string> WorkEntries() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(Work())) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    fs::path dir_;
};

TEST_F(RpxserverTest, InitMakesTheServerFolderOfTheScenario) {
    std::string scenarioText = ReadFile(fs::path(TOOL_TEST_DATA) / "rpxserver_scenario.json");
    Result init = Init(scenarioText, "srv");  // relative: written absolute
    ASSERT_EQ(init.exitCode, 0) << init.err;
    fs::path server = Work() / "srv";

    std::vector<std::string> expectedIni = {"[Notes]",
                                            "Directory=" + (server / "data").string(),
                                            "VeltrixInstallPath=" + (server / "install").string(),
                                            "ServerName=CN=Beta/O=Acme",
                                            "MailServer=CN=Beta/O=Acme",
                                            "RPX_ENABLE_RPENCY_LOG=1",
                                            "ServerTasks=Update,rpxreal"};
    EXPECT_EQ(Lines(ReadFile(server / "notes.ini")), expectedIni);
    EXPECT_EQ(Json::parse(ReadFile(server / "server.json")),
              Json::parse(R"({"clock": "virtual", "busy": {"rpx/rpmsg.nsf": 3}})"));
    EXPECT_TRUE(fs::is_directory(server / "data" / "rpxtemp"));
    EXPECT_EQ(ReadFile(server / "data/rpx/PredefinedDLPPolicy.dat"), "line one\nline two\n");
    EXPECT_EQ(ReadFile(server / "install/program/V5.6.1.3100/rpxpatch.ini"), "[Config]\nBuildNumber=3100\n");

    Json messages = Dump(server / "data/rpx/rpmsg.nsf");
    EXPECT_EQ(messages["title"], "Messages");
    EXPECT_EQ(messages["replicaId"], "852552F9:001E96E4");
    ASSERT_EQ(messages["notes"].size(), 1u);
    EXPECT_EQ(messages["notes"][0]["items"]["BuildNumber"], "5.6.1.3001");
    EXPECT_EQ(Dump(server / "install/program/V5.6.1.3100/rpvlog.ntf")["templateName"], "RPXLog");
    EXPECT_EQ(WorkEntries(), std::vector<std::string>{"srv"}) << "no temporary folder is left";

    Result dump = Rpxserver({"dump", "srv"});
    EXPECT_EQ(dump.exitCode, 0) << dump.err;
    for (const char* line : {"  ServerName=CN=Beta/O=Acme", "  rpx/rpmsg.nsf  database \"Messages\", 1 note",
                             "  rpx/PredefinedDLPPolicy.dat  file, 18 bytes", "  rpxtemp/",
                             "  program/V5.6.1.3100/rpvlog.ntf  database \"\", 0 notes", "console.log: none"})
        EXPECT_TRUE(Contains(dump.out, std::string(line) + "\n")) << line << " missing in:\n" << dump.out;
}

// Databases are made while the scenario is read: settings after the notes, a plain file and a
// database beside one made that way, and a database in a folder of its own all come out whole.
TEST_F(RpxserverTest, InitMakesDatabasesWhoseSettingsFollowTheirNotes) {
    Result init = Init(R"({"data": {"a/late.nsf": {"notes": [{"class": "document", "items": {"Form": "Memo"}},
                                                             {"class": "document", "items": {"Form": "Task"}}],
                                                   "title": "Late", "acl": [{"name": "-Default-", "level": "reader"}]},
                                    "plain.txt": "text",
                                    "empty.nsf": {"title": "Empty"}},
                           "server": {"clock": "virtual"}})");
    ASSERT_EQ(init.exitCode, 0) << init.err;
    Json late = Dump(Work() / "srv/data/a/late.nsf");
    EXPECT_EQ(late["title"], "Late");
    EXPECT_EQ(late["acl"], Json::parse(R"([{"name": "-Default-", "level": "reader"}])"));
    ASSERT_EQ(late["notes"].size(), 2u);
    EXPECT_EQ(late["notes"][1]["items"]["Form"], "Task");
    EXPECT_EQ(Dump(Work() / "srv/data/empty.nsf")["title"], "Empty");
    EXPECT_EQ(ReadFile(Work() / "srv/data/plain.txt"), "text");
    EXPECT_EQ(WorkEntries(), std::vector<std::string>{"srv"}) << "no temporary folder is left";
}

TEST_F(RpxserverTest, InitDefaultsOverridesAndEmptyTargetFolder) {
    fs::create_directory(Work() / "empty");
    fs::path server = MakeServer(
        Json::parse(R"({"notesIni": {"Extra": "x", "directory": "/elsewhere"}, "server": {"tempFolder": false}})"),
        "empty");
    EXPECT_EQ(Lines(ReadFile(server / "notes.ini")),
              (std::vector<std::string>{"[Notes]", "Directory=/elsewhere",
                                        "VeltrixInstallPath=" + (server / "install").string(),
                                        "ServerName=CN=Alpha/O=Acme", "Extra=x"}));
    EXPECT_FALSE(fs::exists(server / "server.json")) << "nothing but tempFolder: no settings file";
    EXPECT_TRUE(fs::is_directory(server / "data"));
    EXPECT_TRUE(fs::is_directory(server / "install"));
    EXPECT_FALSE(fs::exists(server / "data" / "rpxtemp"));
}

TEST_F(RpxserverTest, InitRefusesBadScenariosAndLeavesNothingBehind) {
    const struct {
        const char* scenario;
        const char* message;
    } cases[] = {
        {R"({"data": {)", "line 1"},
        {R"({"server": {"busy": {"a.nsf": 1e999}}})", "scenario.json: line 1, column 35: number overflow"},
        // A database made while the file is read goes with the rest.
        {R"({"data": {"a.nsf": {"notes": [{"class": "document"}]}}, "bogus": 1})", "bogus: unknown key"},
        {R"({"data": {"a.nsf": {"notes": [{"class": "document"}, {"class": "memo"}]}}})",
         "scenario.json: data[\"a.nsf\"]: notes[1].class: unknown note class"},
        {R"({"notesIni": {}, "servers": {}})", "servers: unknown key"},
        {R"({"data": {"/abs/x.nsf": {}}})", "not absolute"},
        {R"({"install": {"program/../../x.txt": "x"}})", "\"..\""},
        {R"({"data": {"a.nsf": 3}})", "a database"},
        {R"({"notesIni": {"A": "one\ntwo"}})", "line breaks"},
        {R"({"notesIni": {"Name": "a", "NAME": "b"}})", "already given"},
        {R"({"server": {"tempFolder": "no"}})", "true or false"},
        // server.json is checked wholly, as a run reads it: a typo is named by its key path.
        {R"({"server": {"clok": "virtual"}})", "server.clok: unknown key (allowed: clock, busy, faults, tasks"},
        {R"({"server": {"busy": {"rpx/a.nsf": "often"}}})", "server.busy[\"rpx/a.nsf\"]: a positive"},
        {R"({"server": {"faults": [{"call": "NSFDbOpen", "status": 259, "paht": "rpx/a.nsf"}]}})",
         "server.faults[0].paht: unknown key"},
        {R"({"server": {"faults": [{"call": "NSFDbOpenX", "status": 259}]}})",
         "server.faults[0].call: \"NSFDbOpenX\" is not a function of the platform API"},
        // Fails only once files and databases before it exist.
        {R"({"data": {"ok.txt": "x", "ok.nsf": {}, "bad.nsf": {"notes": [{"class": "nonsense"}]}}})",
         "data[\"bad.nsf\"]: notes[0].class"},
        {R"({"data": {"x": "file", "x/y.txt": "below a file"}})", "srv/data/x: cannot create the folder"},
    };
    for (const auto& bad : cases) {
        Result init = Init(bad.scenario);
        EXPECT_EQ(init.exitCode, 1) << bad.scenario;
        EXPECT_TRUE(Contains(init.err, bad.message)) << bad.scenario << "\n" << init.err;
        EXPECT_TRUE(WorkEntries().empty()) << bad.scenario;
    }

    // The help describes every key of the server object.
    Result help = Rpxserver({"init", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* key : {"\"clock\"", "\"busy\"", "\"faults\"", "\"tasks\"", "\"tempFolder\""})
        EXPECT_TRUE(Contains(help.out, key)) << key;

    fs::create_directory(Work() / "used");
    WriteFile(Work() / "used" / "keep.txt", "mine");
    Result init = Init("{}", "used");
    EXPECT_EQ(init.exitCode, 1);
    EXPECT_TRUE(Contains(init.err, "not empty")) << init.err;
    EXPECT_EQ(WorkEntries(), std::vector<std::string>{"used"});
    EXPECT_EQ(ReadFile(Work() / "used" / "keep.txt"), "mine");
}

// The test module writes a console line, sends a command to its own server, opens a database
// and leaves it open, and returns the status notes.ini gives it.
TEST_F(RpxserverTest, RunLoadsTheModuleShowsTheConsoleReportsHandlesAndExitsWithTheStatus) {
    fs::path server = MakeServer(Json::parse(R"({
        "notesIni": {"TestModuleCommand": "tell rpxreal restart", "TestModuleDatabase": "rpx/left.nsf",
                     "TestModuleStatus": 7},
        "data": {"rpx/left.nsf": {}}, "server": {"clock": "virtual"}})"));
    Result run = Rpxserver({"run", server.string(), "--module", TEST_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 7) << run.err;
    for (std::string line : {"Test module: started", "> tell rpxreal restart"}) {
        EXPECT_TRUE(Contains(run.out, line)) << "standard output lacks " << line << ":\n" << run.out;
        EXPECT_TRUE(Contains(ReadFile(server / "console.log"), line)) << "console.log lacks " << line;
    }
    EXPECT_TRUE(Contains(run.err, "1 handle left open at task exit")) << run.err;
    EXPECT_TRUE(Contains(run.err, (server / "data/rpx/left.nsf").string())) << run.err;
    EXPECT_TRUE(Contains(run.err, "status 7")) << run.err;

    // A status too large for an exit status; nothing left open.
    fs::path quiet = MakeServer(Json::parse(R"({"notesIni": {"TestModuleStatus": 259}})"), "quiet");
    run = Rpxserver({"run", quiet.string(), "--module", TEST_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 100);
    EXPECT_TRUE(Contains(run.err, "status 259")) << run.err;
    EXPECT_TRUE(Contains(run.err, "no handles left open")) << run.err;
}

TEST_F(RpxserverTest, RunReportsHostFailuresWithTheirOwnExitStatus) {
    fs::path server = MakeServer(Json::parse("{}"));
    Result run = Rpxserver({"run", server.string(), "--module", "missing.so"});
    EXPECT_EQ(run.exitCode, 122);
    EXPECT_TRUE(Contains(run.err, (Work() / "missing.so").string())) << "made absolute: " << run.err;

    WriteFile(Work() / "text.so", "not a library");
    run = Rpxserver({"run", server.string(), "--module", "text.so"});
    EXPECT_EQ(run.exitCode, 122) << run.err;

    run = Rpxserver({"run", server.string(), "--module", NOENTRY_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 123);
    EXPECT_TRUE(Contains(run.err, "no MainEntryPoint")) << run.err;

    run = Rpxserver({"run", (Work() / "nowhere").string(), "--module", TEST_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 121);
    EXPECT_TRUE(Contains(run.err, "notes.ini")) << run.err;

    WriteFile(server / "server.json", "{ not json");
    run = Rpxserver({"run", server.string(), "--module", TEST_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 121) << run.err;
    EXPECT_FALSE(Contains(run.out, "Test module: started")) << "the task never ran";

    WriteFile(server / "server.json", R"({"faults": [{"call": "NSFDbOpen", "status": 259, "paht": "rpx/a.nsf"}]})");
    run = Rpxserver({"run", server.string(), "--module", TEST_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 121) << run.err;
    EXPECT_TRUE(Contains(run.err, "server.json: faults[0].paht: unknown key")) << run.err;
    fs::remove(server / "server.json");

    run = Rpxserver({"run", server.string(), "--module"});
    EXPECT_EQ(run.exitCode, 120);
}

// A notes.ini that names no data directory, or is empty or UTF-16 text, stops the host before
// the task runs: no fall-back to the current folder.
TEST_F(RpxserverTest, RunRefusesANotesIniWithoutADataDirectory) {
    fs::path server = MakeServer(Json::parse("{}"));
    std::string ini = (server / "notes.ini").string();
    std::string good = ReadFile(ini);
    const std::string bad[] = {"[Notes]\nServerName=CN=Alpha/O=Acme\nVeltrixInstallPath=/x\n", "",
                               std::string("\xFF\xFE[\0N\0o\0t\0e\0s\0]\0\r\0\n\0", 20)};
    for (const std::string& content : bad) {
        WriteFile(ini, content);
        Result run = Rpxserver({"run", server.string(), "--module", TEST_MODULE_PATH});
        EXPECT_EQ(run.exitCode, 121) << run.err;
        EXPECT_TRUE(Contains(run.err, ini)) << run.err;
        EXPECT_FALSE(Contains(run.out, "Test module: started")) << "the task never ran";
    }
    WriteFile(ini, good);
    Result run = Rpxserver({"run", server.string(), "--module", TEST_MODULE_PATH});
    EXPECT_EQ(run.exitCode, 0) << run.err;
}

TEST_F(RpxserverTest, ConsoleRunsOneCommandOnTheServer) {
    fs::path server = MakeServer(Json::parse("{}"));
    Result console = Rpxserver({"console", server.string(), "tell rpxreal restart"});
    EXPECT_EQ(console.exitCode, 0) << console.err;
    std::string log = ReadFile(server / "console.log");
    EXPECT_TRUE(Contains(log, "> tell rpxreal restart")) << log;
    EXPECT_TRUE(Contains(console.out, "> tell rpxreal restart")) << console.out;

    console = Rpxserver({"console", (Work() / "nowhere").string(), "tell rpxreal restart"});
    EXPECT_EQ(console.exitCode, 121);
    console = Rpxserver({"console", server.string()});
    EXPECT_EQ(console.exitCode, 120);
    EXPECT_TRUE(Contains(console.err, "Usage: rpxserver console")) << console.err;
}

}  // namespace
#endif
