// The expression fix-up of rpx/rpconf.nsf end to end: it runs at the start of every run that
// applies the patch, before any shipped file is touched; a document that cannot be opened is
// reported and skipped; a selection that does not compile is reported and lists nothing; a run
// that does not apply leaves the expressions alone.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const std::string kLockedUnid = "0A0A0A0A0B0B0B0B0C0C0C0C0D0D0D0D";
const std::string kStaleUnid = "1111111122222222333333334444444A";
const std::string kLinkedUnid = "1111111122222222333333334444444B";
const std::string kNearMissUnid = "1111111122222222333333334444444C";
const std::string kOtherFormUnid = "1111111122222222333333334444444D";
const std::string kHoaxUnid = "CCCD9A452EEE6AF248256E1600236933";
const std::string kChainLetterUnid = "9CA8289B72BE6CE848256E1600236921";
const int kNoAccess = 0x0246;

Json NoteWithUnid(const std::string& unid, Json items) {
    Json note = Document(std::move(items));
    note["unid"] = unid;
    return note;
}

// A configuration database whose first Expression document cannot be opened (see Faults()).
Json ConfigDatabase() {
    Json db{{"title", "Configuration"}};
    db["notes"] = Json::array(
        {HelpNote(3001),
         NoteWithUnid(kLockedUnid, {{"Form", "Expression"}, {"Expression", "SandMan"}, {"DocID", "locked"}}),
         NoteWithUnid(kStaleUnid, {{"Form", "Expression"}, {"Expression", "Wobbler .AND. virus"}, {"DocID", kLockedUnid}}),
         NoteWithUnid(kLinkedUnid, {{"Form", "Expression"},
                                    {"Expression", "this is not a joke"},
                                    {"DocID", kLinkedUnid},
                                    {"RefContent", Json::array({kChainLetterUnid})}}),
         NoteWithUnid(kNearMissUnid, {{"Form", "Expression"}, {"Expression", "wobbler .AND. virus"}, {"DocID", ""}}),
         NoteWithUnid(kOtherFormUnid, {{"Form", "Filter"}, {"Expression", "Wobbler .AND. virus"}, {"DocID", "old"}})});
    return db;
}

Json Faults() {
    return Json::array({{{"call", "NSFNoteOpen"}, {"unid", kLockedUnid}, {"status", kNoAccess}}});
}

Json NoteOf(const Json& db, const std::string& unid) {
    for (const Json& note : NotesOfClass(db, "document")) {
        if (note.value("unid", "") == unid) return note;
    }
    ADD_FAILURE() << "no document " << unid;
    return Json();
}

// The "gMap" lines of the log (level and text).
std::vector<LogLine> TableLines(const std::vector<LogLine>& log) {
    std::vector<LogLine> lines;
    for (const LogLine& line : log) {
        if (line.text.rfind("\tgMap[\"", 0) == 0) lines.push_back(line);
    }
    return lines;
}

size_t FirstTableLine(const std::vector<LogLine>& log, size_t from = 0) {
    for (size_t i = from; i < log.size(); ++i) {
        if (log[i].text.rfind("\tgMap[\"", 0) == 0) return i;
    }
    return log.size();
}

void ExpectFixed(const Json& db) {
    Json stale = NoteOf(db, kStaleUnid);
    EXPECT_EQ(ItemText(stale, "DocID"), kStaleUnid);
    EXPECT_EQ(ItemValue(stale, "RefContent"), Json::array({kHoaxUnid}));
    Json linked = NoteOf(db, kLinkedUnid);
    EXPECT_EQ(ItemText(linked, "DocID"), kLinkedUnid);
    EXPECT_EQ(ItemValue(linked, "RefContent"), Json::array({kChainLetterUnid}));
    Json nearMiss = NoteOf(db, kNearMissUnid);
    EXPECT_EQ(ItemText(nearMiss, "DocID"), kNearMissUnid);
    EXPECT_TRUE(ItemValue(nearMiss, "RefContent").is_null());
    Json otherForm = NoteOf(db, kOtherFormUnid);
    EXPECT_EQ(ItemText(otherForm, "DocID"), "old");
    EXPECT_TRUE(ItemValue(otherForm, "RefContent").is_null());
    Json locked = NoteOf(db, kLockedUnid);
    EXPECT_EQ(ItemText(locked, "DocID"), "locked");
    EXPECT_TRUE(ItemValue(locked, "RefContent").is_null());
}

}  // namespace

TEST(ExpressionDocIds, EveryApplicableRunFixesTheExpressionsAndSkipsADocumentItCannotOpen) {
    // No databases to ship: the run ends after the fix-ups, so the next run applies again.
    Json scenario = BaseScenario(PatchIni({"Files=", "BuildNumber=3100"}));
    scenario["data"]["rpx/rpconf.nsf"] = ConfigDatabase();
    scenario["server"]["faults"] = Faults();
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));

    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    std::vector<LogLine> log = server.DebugLog();
    size_t error = 0;
    while (error < log.size() && log[error].text != "NSFNoteOpen error " + std::to_string(kNoAccess)) ++error;
    ASSERT_LT(error, log.size());
    EXPECT_EQ(log[error].level, 3);
    EXPECT_GT(FirstTableLine(log), error) << "the table is listed after the search";
    std::vector<LogLine> table = TableLines(log);
    ASSERT_EQ(table.size(), 80u);
    for (const LogLine& line : table) EXPECT_EQ(line.level, 3) << line.text;
    EXPECT_EQ(server.LastRun().err.find("rpconf.nsf"), std::string::npos) << "no handle left open";
    Json first = server.Dump("rpx/rpconf.nsf");
    ExpectFixed(first);

    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    log = server.DebugLog();
    EXPECT_EQ(TableLines(log).size(), 160u);
    Json second = server.Dump("rpx/rpconf.nsf");
    ExpectFixed(second);
}

TEST(ExpressionDocIds, TheFixUpPrecedesTheShippedFilesAndARunThatDoesNotApplyLeavesItOut) {
    Json scenario = BaseScenario(PatchIniShipping("rpvlog.ntf"));
    scenario["data"]["rpx/rpconf.nsf"] = ConfigDatabase();
    scenario["install"][kPatch + "/rpvlog.ntf"] = ProductTemplate("Virus Log", "RPXVirusLog", 3100, "shipped");
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));

    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    std::vector<LogLine> log = server.DebugLog();
    size_t firstFileMessage = 0;
    while (firstFileMessage < log.size() && log[firstFileMessage].text.find("rpvlog.ntf") == std::string::npos) {
        ++firstFileMessage;
    }
    ASSERT_LT(firstFileMessage, log.size());
    std::vector<LogLine> table = TableLines(log);
    ASSERT_EQ(table.size(), 80u);
    size_t lastTableLine = 0;
    for (size_t i = 0; i < log.size(); ++i) {
        if (log[i].text.rfind("\tgMap[\"", 0) == 0) lastTableLine = i;
    }
    EXPECT_LT(lastTableLine, firstFileMessage);
    Json fixed = server.Dump("rpx/rpconf.nsf");
    EXPECT_EQ(ItemText(NoteOf(fixed, kStaleUnid), "DocID"), kStaleUnid);
    EXPECT_EQ(ItemText(NoteOf(fixed, kLockedUnid), "DocID"), kLockedUnid) << "no fault in this run";

    // The databases now carry the patch's build: the second run stops before the fix-up.
    size_t before = log.size();
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    log = server.DebugLog();
    EXPECT_EQ(FirstTableLine(log, before), log.size());
}

TEST(ExpressionDocIds, ASelectionThatDoesNotCompileIsReportedAndNothingIsListedOrChanged) {
    Json scenario = BaseScenario(PatchIni({"Files=", "BuildNumber=3100"}));
    scenario["data"]["rpx/rpconf.nsf"] = ConfigDatabase();
    const int kIoError = 0x010E;
    scenario["server"]["faults"] = Json::array({{{"call", "NSFFormulaCompile"}, {"status", kIoError}, {"count", 1}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));

    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    std::vector<LogLine> log = server.DebugLog();
    const std::regex compileError(R"(\[[^:\]]+\.cpp:2299\]UpdateRpency Cannot compile the formula! error\[270\]\n)");
    size_t at = 0;
    while (at < log.size() && !std::regex_match(log[at].text, compileError)) ++at;
    ASSERT_LT(at, log.size());
    EXPECT_EQ(log[at].level, 0);
    EXPECT_TRUE(TableLines(log).empty());
    EXPECT_EQ(server.LastRun().err.find("rpconf.nsf"), std::string::npos) << "the database is closed";
    Json db = server.Dump("rpx/rpconf.nsf");
    EXPECT_EQ(ItemText(NoteOf(db, kStaleUnid), "DocID"), kLockedUnid);
    EXPECT_TRUE(ItemValue(NoteOf(db, kStaleUnid), "RefContent").is_null());
}
