// Removal of the known duplicated digital assets of the configuration database, end to end: it
// runs at the start of every run the patch applies to, before any file is replaced; what is kept,
// what a second run does, and a note that cannot be opened or deleted.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const int kNoAccess = 0x0246;  // "You are not authorized to perform that operation"

// Listed duplicates (each one of the known UNIDs), and one that is not listed.
const std::string kPlain = "026196EE7CA8DA4788257DDB00338EAE";
const std::string kEmptyRefer = "04F4B1069028343288257DDB00338E95";
const std::string kPreDefinedCapitals = "07F523336A88406088257DDB00338E96";
const std::string kPreDefinedMixed = "08B7273F2ACA943788257DDB00338EB0";
const std::string kPreDefinedFalse = "08E5342F6EC1C2DB88257DDB00338E99";
const std::string kReferred = "09E9BECF0977178D88257DDB00338EAA";
const std::string kOtherForm = "0B040F8520AA780F88257DDB00338EB2";
const std::string kEntityLastListed = "FCC034E15D1E590C88257DDB00338EAF";
const std::string kNotListed = "0B519BFFC4EA161788257DDB00338E00";

Json Asset(const std::string& unid, const std::string& form, Json items = Json::object()) {
    items["Form"] = form;
    items["Name"] = "asset " + unid.substr(0, 4);
    Json note = Document(std::move(items));
    note["unid"] = unid;
    return note;
}

Json ConfigurationWith(const Json& notes) {
    Json db = ProductDatabase("Configuration", 3001);
    for (const Json& note : notes) db["notes"].push_back(note);
    return db;
}

// A patch without databases to ship: only the two fix-ups before the walk run.
Json FixUpsOnlyScenario(const Json& configuration) {
    Json scenario = BaseScenario(PatchIni({"Files=", "BuildNumber=3100"}));
    scenario["data"]["rpx/rpconf.nsf"] = configuration;
    return scenario;
}

std::vector<std::string> DocumentUnids(const Json& db) {
    std::vector<std::string> unids;
    for (const Json& note : NotesOfClass(db, "document")) unids.push_back(note.value("unid", ""));
    std::sort(unids.begin(), unids.end());
    return unids;
}

std::vector<std::string> Sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

const LogLine* FindLine(const std::vector<LogLine>& log, const std::string& text) {
    for (const LogLine& line : log) {
        if (line.text == text) return &line;
    }
    return nullptr;
}

}  // namespace

TEST(DigitalAssetRemovalRun, UnreferredListedDuplicatesAreDeletedAndASecondRunDeletesNothing) {
    Json scenario = FixUpsOnlyScenario(ConfigurationWith(Json::array({
        Asset(kPlain, "dictionary"),
        Asset(kEmptyRefer, "entity", {{"ReferDocs", ""}}),
        Asset(kPreDefinedCapitals, "dictionary", {{"pre-defined", "TRUE"}}),
        Asset(kPreDefinedMixed, "entity", {{"pre-defined", "True"}}),
        Asset(kPreDefinedFalse, "dictionary", {{"pre-defined", "false"}}),
        Asset(kReferred, "dictionary", {{"ReferDocs", Json::array({"5C1D2E3F4A5B6C7D8E9F00112233AABB"})}}),
        Asset(kOtherForm, "rule"),
        Asset(kEntityLastListed, "Entity"),
        Asset(kNotListed, "dictionary"),
    })));
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    const std::vector<std::string> kept =
        Sorted({kPreDefinedCapitals, kPreDefinedMixed, kReferred, kOtherForm, kNotListed});
    EXPECT_EQ(DocumentUnids(server.Dump("rpx/rpconf.nsf")), kept);
    auto messages = server.DebugMessages();
    EXPECT_EQ(IndexOf(messages, "NSFSearch failed for template"), messages.size());
    // The pre-defined documents' notes are left open by the search; the run still ends normally.

    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    EXPECT_EQ(DocumentUnids(server.Dump("rpx/rpconf.nsf")), kept);
    messages = server.DebugMessages();
    EXPECT_EQ(IndexOf(messages, "NSFSearch failed for template"), messages.size());
    for (const std::string& text : messages) EXPECT_EQ(text.rfind("cannot delete note:", 0), std::string::npos);
}

TEST(DigitalAssetRemovalRun, AnUnopenableNoteEndsTheSearchAndWhatWasFoundIsStillDeletedBeforeTheWalk) {
    // In the order of the search (note IDs ascending): collected, collected but not deletable,
    // not openable, not reached.
    const std::string& undeletable = kEmptyRefer;
    const std::string& unopenable = kPreDefinedFalse;
    const std::string& notReached = kEntityLastListed;
    Json configuration = ConfigurationWith(Json::array({Asset(kPlain, "dictionary"), Asset(undeletable, "entity"),
                                                        Asset(unopenable, "dictionary"), Asset(notReached, "entity")}));
    const char* const noteIds[] = {"0x4000", "0x4004", "0x4008", "0x400C"};
    for (size_t i = 0; i < 4; ++i) configuration["notes"][i + 1]["noteId"] = noteIds[i];
    configuration["inheritFrom"] = "RPXConfig";
    Json scenario = BaseScenario(PatchIniShipping("rpconf.ntf"));
    scenario["data"]["rpx/rpconf.nsf"] = configuration;
    scenario["data"]["rpx/rpconf.ntf"] = ProductTemplate("Configuration Template", "RPXConfig", 3001, "old");
    scenario["install"][kPatch + "/rpconf.ntf"] = ProductTemplate("Configuration Template", "RPXConfig", 3100, "new");
    scenario["server"]["faults"] =
        Json::array({{{"call", "NSFNoteOpen"}, {"unid", unopenable}, {"status", kNoAccess}, {"count", 1}},
                     {{"call", "NSFNoteDelete"}, {"unid", undeletable}, {"status", kNoAccess}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    // The two listed assets before the unopenable note were collected; the one after it was not
    // reached. One deletion fails; the other still happens.
    EXPECT_EQ(DocumentUnids(server.Dump("rpx/rpconf.nsf")), Sorted({undeletable, unopenable, notReached}));
    auto log = server.DebugLog();
    const LogLine* openFailed = FindLine(log, "MigrateCFDLPDeleteAttachmentActionCallback, open note failed.");
    const LogLine* searchFailed = FindLine(log, "NSFSearch failed for template");
    const LogLine* deleteFailed = FindLine(log, "cannot delete note: 4004");
    ASSERT_NE(openFailed, nullptr);
    ASSERT_NE(searchFailed, nullptr);
    ASSERT_NE(deleteFailed, nullptr);
    EXPECT_EQ(openFailed->level, 3);
    EXPECT_EQ(searchFailed->level, 3);
    EXPECT_EQ(deleteFailed->level, 3);
    EXPECT_TRUE(openFailed < searchFailed && searchFailed < deleteFailed);
    // All of it happens before the first shipped file is touched and before the migration.
    const LogLine* walkStarts = FindLine(log, "Enter ntfStr switch.");
    const LogLine* migrationStarts = FindLine(log, "Run command load design -f rpx/rpconf.nsf");
    ASSERT_NE(walkStarts, nullptr);
    ASSERT_NE(migrationStarts, nullptr);
    EXPECT_TRUE(deleteFailed < walkStarts && walkStarts < migrationStarts);
}
