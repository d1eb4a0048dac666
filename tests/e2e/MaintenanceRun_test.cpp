// Database maintenance at the end of a patch run, end to end: the build stamp in the help notes,
// the signed design, the hidden-design flag of prepared databases, the replication note that
// replaces the old ones, and the rebuild of an old-format pattern database; then a second run
// that finds the build stamped and does nothing.
#include <map>
#include <regex>

#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const int kHiddenDesign = 0x0020;

Json Note(const std::string& noteClass, Json items) {
    return Json{{"class", noteClass}, {"items", std::move(items)}};
}

// An item as dumped (plain value or typed object); null when the note has none.
Json RawItem(const Json& note, const std::string& name) {
    const Json& items = note["items"];
    if (!items.is_object()) return Json();
    for (auto it = items.begin(); it != items.end(); ++it) {
        if (SameItemName(it.key(), name)) return it.value();
    }
    return Json();
}

bool Signed(const Json& note) {
    Json signature = RawItem(note, "$Signature");
    return signature.is_object() && signature.value("type", "") == "signature";
}

int ReplicaFlags(const Json& db) { return db.value("replicaFlags", 0); }

std::vector<std::string> DocumentValues(const Json& db, const std::string& item) {
    std::vector<std::string> values;
    for (const Json& note : NotesOfClass(db, "document")) values.push_back(ItemText(note, item));
    return values;
}

int LevelOf(const std::vector<LogLine>& log, const std::string& text) {
    for (const LogLine& line : log) {
        if (line.text == text) return line.level;
    }
    return -1;
}

// "SELECT @All" compiled by nsfdb into a summary formula item, as nsfdb dumps it (its source when
// the platform decompiles it back to these very bytes, else the bytes).
Json DumpedSelectAll(const E2eServer& server) {
    fs::path description = server.Dir() / "formula_db.json";
    fs::path file = server.Dir() / "formula_probe.nsf";
    Json probe{{"type", "formula"}, {"text", "SELECT @All"}, {"flags", Json::array({"summary"})}};
    Json db{{"notes", Json::array({Note("document", {{"F", probe}})})}};
    WriteWholeFile(description, db.dump());
    CommandResult create = RunCommand(std::string(NSFDB_PATH) + " create " + ShellQuoted(file.string()) + " " +
                                          ShellQuoted(description.string()),
                                      server.Dir());
    if (create.exitCode != 0) {
        ADD_FAILURE() << "nsfdb create failed:\n" << create.err;
        return Json();
    }
    return RawItem(NotesOfClass(server.DumpFile(file), "document").at(0), "F");
}

// The shipped message-archive database: two old replication notes, design of every kind (each
// carrying a one-entry list, which an expanded open and contract turns into plain text), two
// help notes and a document.
Json ShippedArchive() {
    Json db{{"title", "Archive"}};
    db["notes"] = Json::array({Note("replformula", {{"$TITLE", "old source 1"}}),
                               Note("replformula", {{"$TITLE", "old source 2"}}),
                               Note("form", {{"$TITLE", "Memo"}, {"Aliases", Json::array({"memo"})}}),
                               Note("info", {{"Aliases", Json::array({"about"})}}),
                               Note("field", {{"Aliases", Json::array({"shared"})}}),
                               Note("view", {{"$TITLE", "All"}, {"Aliases", Json::array({"all"})}}),
                               HelpNote(3001),
                               HelpNote(3001),
                               Document({{"Form", "Memo"}, {"Subject", "kept"}})});
    return db;
}

Json PatternDatabase(const std::vector<std::pair<std::string, std::string>>& formAndVersion) {
    Json db{{"title", "Patterns"}, {"replicaId", "33333333:44444444"}};
    db["acl"] = Acl({{"-Default-", "noaccess"}, {"CN=Pattern Keeper/O=Acme", "manager"}});
    db["notes"] = Json::array();
    for (const auto& doc : formAndVersion) {
        db["notes"].push_back(Document({{"Form", doc.first}, {"InternalPVer", doc.second}, {"Marker", "installed"}}));
    }
    return db;
}

Json PatternTemplate() {
    Json db{{"title", "Patterns"}, {"templateName", "RPXPattern"}, {"replicaId", "55555555:66666666"}};
    db["acl"] = Acl({{"-Default-", "reader"}, {"CN=Template Owner/O=Vendor", "manager"}});
    db["notes"] = Json::array({HelpNote(3001), Note("form", {{"$TITLE", "Pattern"}}),
                               Document({{"Form", "Patternfile"}, {"InternalPVer", "5.6.1.1"}, {"Marker", "template"}})});
    return db;
}

std::map<std::string, Json> DumpAll(const E2eServer& server, const std::vector<std::string>& names) {
    std::map<std::string, Json> dumps;
    for (const std::string& name : names) dumps[name] = server.Dump("rpx/" + name);
    return dumps;
}

}  // namespace

TEST(MaintenanceRun, PatchStampsSignsReplacesReplicationNotesAndRebuildsTheOldPatternDatabase) {
    Json scenario = BaseScenario(PatchIni({"Files=rpxdtas.nsf", "BuildNumber=3100", "Databases=rpxdtas.nsf", "SkipDbSign=1"}));
    scenario["data"]["rpx/rpxdtas.nsf"] = ProductDatabase("Archive", 3001, "installed archive");
    scenario["data"]["rpx/rplists.nsf"] =
        Json{{"title", "Lists"}, {"notes", Json::array({Note("view", {{"$TITLE", "Lists"}})})}};
    scenario["data"]["rpx/rpency.nsf"] =
        PatternDatabase({{"Patternfile", "1.234.00"}, {"Patternfile", "1234"}, {"Patternfile", "5.6.1.2"}});
    scenario["data"]["rpx/rpency.ntf"] = PatternTemplate();
    scenario["install"][kPatch + "/rpxdtas.nsf"] = ShippedArchive();
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    ASSERT_EQ(run.exitCode, 0) << run.err;

    auto log = server.DebugLog();
    auto messages = server.DebugMessages();
    // Preparation only hides the design when signing is skipped; the final walk signs anyway.
    EXPECT_EQ(IndexOf(messages, "Info: Start to sign - rpxdtas.nsf\n"), messages.size());
    ExpectInOrder(messages, {"Info: Start to hide design of rpxdtas.nsf \n", "Info: End to hide the design.\n",
                             "rpency.nsf is old format, recreate it", "Success created new rpency.nsf",
                             "Info: Begin process databases.", "Info: start to set build number -'rpx/rpxdtas.nsf'.\n",
                             "Set the build number to '5.6.1.3100'", "Set the build number to '5.6.1.3100'",
                             "Info: Have processed all RPX databases.", "SignDatabase Enter",
                             "rpx\\rpxdtas.nsf", "Start to sign - rpx\\rpxdtas.nsf", "Succeeded to sign - rpx\\rpxdtas.nsf",
                             "rpx\\rpxapproved.nsf", "Failed to open rpx\\rpxapproved.nsf - File does not exist",
                             "rpx\\rpmsg.nsf", "Succeeded to sign - rpx\\rpmsg.nsf",
                             "rpx\\rplists.nsf", "Succeeded to sign - rpx\\rplists.nsf", "SignDatabase Leave"});
    EXPECT_EQ(LevelOf(log, "rpency.nsf is old format, recreate it"), 0);
    EXPECT_EQ(LevelOf(log, "Success created new rpency.nsf"), 0);
    EXPECT_EQ(LevelOf(log, "Succeeded to sign - rpx\\rpxdtas.nsf"), 1);
    // A database that cannot be opened is named on the console with the platform's text.
    auto console = server.ConsoleLines();
    size_t missing = IndexOf(console, "rpx\\rpxapproved.nsf");
    ASSERT_LT(missing + 1, console.size());
    EXPECT_EQ(console[missing + 1], "File does not exist");
    // No help note in the database: the start line and nothing more.
    size_t listsStart = IndexOf(messages, "Info: start to set build number -'rpx/rplists.nsf'.\n");
    ASSERT_LT(listsStart + 1, messages.size());
    EXPECT_EQ(messages[listsStart + 1], "Info: Have processed all RPX databases.");

    Json archive = server.Dump("rpx/rpxdtas.nsf");
    EXPECT_EQ(DocumentValues(archive, "Subject"), std::vector<std::string>{"kept"}) << "the shipped file was copied";
    EXPECT_TRUE(ReplicaFlags(archive) & kHiddenDesign);
    auto helps = NotesOfClass(archive, "help");
    ASSERT_EQ(helps.size(), 2u);
    for (const Json& help : helps) {
        EXPECT_EQ(ItemText(help, "BuildNumber"), "5.6.1.3100");
        EXPECT_TRUE(Signed(help));
    }
    for (const Json& note : archive["notes"]) {
        if (note.value("class", "") != "help") {
            EXPECT_TRUE(ItemValue(note, "BuildNumber").is_null()) << note.dump();
        }
    }
    for (const char* designClass : {"form", "info", "field"}) {
        auto notes = NotesOfClass(archive, designClass);
        ASSERT_EQ(notes.size(), 1u) << designClass;
        EXPECT_TRUE(Signed(notes[0])) << designClass;
        EXPECT_TRUE(RawItem(notes[0], "Aliases").is_string()) << designClass << " was signed through an expanded open and contracted";
    }
    auto views = NotesOfClass(archive, "view");
    ASSERT_EQ(views.size(), 1u);
    EXPECT_TRUE(Signed(views[0]));
    EXPECT_EQ(RawItem(views[0], "Aliases"), Json::array({"all"})) << "a view is signed as opened";
    EXPECT_FALSE(Signed(NotesOfClass(archive, "document").at(0)));

    auto replication = NotesOfClass(archive, "replformula");
    ASSERT_EQ(replication.size(), 1u) << "the two old replication notes are replaced by one";
    const Json& repl = replication[0];
    std::vector<std::string> itemNames;
    for (auto it = repl["items"].begin(); it != repl["items"].end(); ++it) itemNames.push_back(it.key());
    EXPECT_EQ(itemNames, (std::vector<std::string>{"$TITLE", "$ReplVersion", "$ReplSrcServers", "$ReplClassMasks",
                                                   "$ReplFormula"}));
    std::string title = std::string(kServerName) + std::string(256 - std::string(kServerName).size(), '\0');
    EXPECT_EQ(RawItem(repl, "$TITLE"), Json(title)) << "the server name padded with NULs to 256 bytes";
    EXPECT_EQ(RawItem(repl, "$ReplVersion"), Json("2"));
    // A plain list in the dump is a summary text list: one entry "-", one entry "2047".
    EXPECT_EQ(RawItem(repl, "$ReplSrcServers"), Json::array({"-"}));
    EXPECT_EQ(RawItem(repl, "$ReplClassMasks"), Json::array({"2047"}));
    Json formula = RawItem(repl, "$ReplFormula");
    ASSERT_TRUE(formula.is_object()) << formula.dump();
    EXPECT_EQ(formula.value("type", ""), "formula");
    EXPECT_FALSE(formula.contains("flags")) << "summary only";
    EXPECT_EQ(formula, DumpedSelectAll(server));

    // Databases the patch did not replace are stamped and signed, never given hidden design.
    Json lists = server.Dump("rpx/rplists.nsf");
    EXPECT_EQ(ReplicaFlags(lists) & kHiddenDesign, 0);
    EXPECT_TRUE(Signed(NotesOfClass(lists, "view").at(0)));
    EXPECT_EQ(NotesOfClass(lists, "replformula").size(), 1u);
    EXPECT_EQ(HelpBuildNumber(server.Dump("rpx/rpmsg.nsf")), "5.6.1.3100");

    // The pattern database is the template's copy with the fixed replica ID and the old ACL.
    Json pattern = server.Dump("rpx/rpency.nsf");
    EXPECT_EQ(pattern.value("replicaId", ""), "852552F9:001E96E4");
    EXPECT_EQ(AclLevels(pattern), AclLevels(scenario["data"]["rpx/rpency.nsf"]));
    EXPECT_EQ(DocumentValues(pattern, "Marker"), std::vector<std::string>{"template"});
    EXPECT_EQ(HelpBuildNumber(pattern), "5.6.1.3100");
    EXPECT_EQ(NotesOfClass(pattern, "replformula").size(), 1u);

    // Second run: the message database carries the patch build, so nothing is touched.
    const std::vector<std::string> names = {"rpxdtas.nsf", "rplists.nsf", "rpmsg.nsf", "rpency.nsf"};
    auto before = DumpAll(server, names);
    size_t commandsBefore = server.ConsoleCommands().size();
    ASSERT_EQ(server.Run().exitCode, 0);
    EXPECT_TRUE(server.Logged("The database build is large than build number of the patch, so return. 3100"));
    EXPECT_EQ(CountOf(server.DebugMessages(), "SignDatabase Enter"), 1u);
    EXPECT_EQ(server.ConsoleCommands().size(), commandsBefore);
    auto after = DumpAll(server, names);
    for (const std::string& name : names) EXPECT_EQ(after[name], before[name]) << name;
}

TEST(MaintenanceRun, AnotherFormOrADottedVersionLeavesThePatternDatabaseAlone) {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf"));
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3100, "new lists");
    scenario["data"]["rpx/rpency.nsf"] = PatternDatabase({{"Patternfile", "1.234.00"}, {"Signature", "1234"}});
    scenario["data"]["rpx/rpency.ntf"] = PatternTemplate();
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0);

    auto messages = server.DebugMessages();
    EXPECT_EQ(IndexOf(messages, "rpency.nsf is old format, recreate it"), messages.size());
    EXPECT_LT(IndexOf(messages, "Succeeded to sign - rpx\\rpency.nsf"), messages.size());
    Json pattern = server.Dump("rpx/rpency.nsf");
    EXPECT_EQ(pattern.value("replicaId", ""), "33333333:44444444");
    EXPECT_EQ(DocumentValues(pattern, "InternalPVer"), (std::vector<std::string>{"1.234.00", "1234"}));
}

TEST(MaintenanceRun, PatternDatabaseBusyForEverIsLeftOnlineAndUnchanged) {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf"));
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3100, "new lists");
    scenario["data"]["rpx/rpency.nsf"] = PatternDatabase({{"Patternfile", "1234"}});
    scenario["data"]["rpx/rpency.ntf"] = PatternTemplate();
    scenario["server"]["busy"] = {{"rpx/rpency.nsf", "always"}};
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0);

    auto log = server.DebugLog();
    size_t waits = 0;
    for (const LogLine& line : log) {
        if (line.text == "DB in use, waiting") {
            ++waits;
            EXPECT_EQ(line.level, 0);
        }
    }
    EXPECT_EQ(waits, 60u);
    auto messages = server.DebugMessages();
    ExpectInOrder(messages, {"rpency.nsf is old format, recreate it", "DB in use, waiting",
                             "Failed to delete original RPX V3 rpency.nsf, Error: 13EA",
                             "Info: Begin process databases.", "Info: start to set build number -'rpx/rpency.nsf'.\n",
                             "Succeeded to sign - rpx\\rpency.nsf"});
    EXPECT_EQ(IndexOf(messages, "Success created new rpency.nsf"), messages.size());
    Json pattern = server.Dump("rpx/rpency.nsf");
    EXPECT_EQ(pattern.value("replicaId", ""), "33333333:44444444");
    EXPECT_EQ(DocumentValues(pattern, "InternalPVer"), std::vector<std::string>{"1234"});
    EXPECT_EQ(AclLevels(pattern), AclLevels(scenario["data"]["rpx/rpency.nsf"]));
}

TEST(MaintenanceRun, PatternFormulaThatDoesNotCompileIsReportedAndTheDatabaseClosed) {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf"));
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3100, "new lists");
    scenario["data"]["rpx/rpency.nsf"] = PatternDatabase({{"Patternfile", "1234"}});
    scenario["data"]["rpx/rpency.ntf"] = PatternTemplate();
    // The pattern check compiles the first formula of the run.
    scenario["server"]["faults"] = Json::array({{{"call", "NSFFormulaCompile"}, {"status", 0x010E}, {"count", 1}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    ASSERT_EQ(run.exitCode, 0);

    const std::regex compileError(R"(\[PatchRPX:2071\]UpdateRpency Cannot compile the formula! error\[270\]\n)");
    int reported = 0;
    for (const LogLine& line : server.DebugLog()) {
        if (std::regex_match(line.text, compileError)) {
            ++reported;
            EXPECT_EQ(line.level, 0);
        }
    }
    EXPECT_EQ(reported, 1);
    EXPECT_FALSE(server.Logged("rpency.nsf is old format, recreate it"));
    EXPECT_EQ(run.err.find("rpency.nsf"), std::string::npos) << "the pattern database is closed:\n" << run.err;
    Json pattern = server.Dump("rpx/rpency.nsf");
    EXPECT_EQ(pattern.value("replicaId", ""), "33333333:44444444");
    EXPECT_EQ(DocumentValues(pattern, "InternalPVer"), std::vector<std::string>{"1234"});
}
