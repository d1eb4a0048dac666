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
const std::string kOtherFormUnid = "1111111122222222333333334444444B";
const std::string kHoaxUnid = "CCCD9A452EEE6AF248256E1600236933";
const int kNoAccess = 0x0246;

Json NoteWithUnid(const std::string& unid, Json items) {
    Json note = Document(std::move(items));
    note["unid"] = unid;
    return note;
}

// A configuration database whose first Expression document is made unopenable by a fault.
Json ConfigDatabase() {
    Json db{{"title", "Configuration"}};
    db["notes"] = Json::array(
        {HelpNote(3001),
         NoteWithUnid(kLockedUnid, {{"Form", "Expression"}, {"Expression", "SandMan"}, {"DocID", "locked"}}),
         NoteWithUnid(kStaleUnid, {{"Form", "Expression"}, {"Expression", "Wobbler .AND. virus"}, {"DocID", kLockedUnid}}),
         NoteWithUnid(kOtherFormUnid, {{"Form", "Filter"}, {"Expression", "Wobbler .AND. virus"}, {"DocID", "old"}})});
    return db;
}

Json NoteOf(const Json& db, const std::string& unid) {
    for (const Json& note : NotesOfClass(db, "document")) {
        if (note.value("unid", "") == unid) return note;
    }
    ADD_FAILURE() << "no document " << unid;
    return Json();
}

bool IsTableLine(const std::string& text) { return text.rfind("\tgMap[\"", 0) == 0; }

template <typename Predicate>
size_t IndexWhere(const std::vector<LogLine>& log, Predicate matches, size_t from = 0) {
    for (size_t i = from; i < log.size(); ++i) {
        if (matches(log[i].text)) return i;
    }
    return log.size();
}

std::vector<LogLine> TableLines(const std::vector<LogLine>& log) {
    std::vector<LogLine> lines;
    for (const LogLine& line : log) {
        if (IsTableLine(line.text)) lines.push_back(line);
    }
    return lines;
}

void ExpectFixed(const Json& db) {
    Json stale = NoteOf(db, kStaleUnid);
    EXPECT_EQ(ItemText(stale, "DocID"), kStaleUnid);
    EXPECT_EQ(ItemValue(stale, "RefContent"), Json::array({kHoaxUnid}));
    Json otherForm = NoteOf(db, kOtherFormUnid);
    EXPECT_EQ(ItemText(otherForm, "DocID"), "old");
    EXPECT_TRUE(ItemValue(otherForm, "RefContent").is_null());
    Json locked = NoteOf(db, kLockedUnid);
    EXPECT_EQ(ItemText(locked, "DocID"), "locked");
    EXPECT_TRUE(ItemValue(locked, "RefContent").is_null());
}

}  // namespace

TEST(ExpressionDocIds, TheFixUpRunsBeforeTheShippedFilesSkipsAnUnopenableNoteAndOnlyWhileThePatchApplies) {
    Json scenario = BaseScenario(PatchIniShipping("rpvlog.ntf"));
    scenario["data"]["rpx/rpconf.nsf"] = ConfigDatabase();
    scenario["install"][kPatch + "/rpvlog.ntf"] = ProductTemplate("Virus Log", "RPXVirusLog", 3100, "shipped");
    scenario["server"]["faults"] = Json::array({{{"call", "NSFNoteOpen"}, {"unid", kLockedUnid}, {"status", kNoAccess}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));

    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    std::vector<LogLine> log = server.DebugLog();
    size_t error = IndexWhere(log, [](const std::string& text) {
        return text == "NSFNoteOpen error " + std::to_string(kNoAccess);
    });
    size_t firstRow = IndexWhere(log, IsTableLine);
    size_t shipped = IndexWhere(log, [](const std::string& text) { return text.find("rpvlog.ntf") != std::string::npos; });
    ASSERT_LT(shipped, log.size());
    ASSERT_LT(error, firstRow) << "the search reports the note, then the table is listed";
    EXPECT_EQ(log[error].level, 3);
    std::vector<LogLine> table = TableLines(log);
    ASSERT_EQ(table.size(), 80u);
    EXPECT_LT(firstRow + table.size() - 1, shipped) << "the whole listing before the first shipped file";
    for (const LogLine& line : table) EXPECT_EQ(line.level, 3) << line.text;
    ExpectFixed(server.Dump("rpx/rpconf.nsf"));

    // The databases now carry the patch's build: the next run stops before the fix-up.
    size_t before = log.size();
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    log = server.DebugLog();
    EXPECT_EQ(IndexWhere(log, IsTableLine, before), log.size());
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
    const std::regex compileError(R"(\[PatchRPX:2299\]UpdateRpency Cannot compile the formula! error\[270\]\n)");
    size_t at = IndexWhere(log, [&](const std::string& text) { return std::regex_match(text, compileError); });
    ASSERT_LT(at, log.size());
    EXPECT_EQ(log[at].level, 0);
    EXPECT_TRUE(TableLines(log).empty());
    EXPECT_EQ(server.LastRun().err.find("rpconf.nsf"), std::string::npos) << "the database is closed";
    Json db = server.Dump("rpx/rpconf.nsf");
    EXPECT_EQ(ItemText(NoteOf(db, kStaleUnid), "DocID"), kLockedUnid);
    EXPECT_TRUE(ItemValue(NoteOf(db, kStaleUnid), "RefContent").is_null());
}
