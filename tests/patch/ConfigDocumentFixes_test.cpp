// The configuration database's document fixes called directly, for what a whole run cannot show:
// their results, a selection formula that does not compile, a failing search and a missing
// database. Failures come from the platform's server.json faults.
#include <cstdio>
#include <sstream>
#include <string>

#include "ConfigMigration.h"
#include "PatchRunTestSupport.h"
#include "emu/notesemu.h"
#include "nsferr.h"
#include "oserr.h"

using namespace patch_test;

namespace {

const char kConfigDb[] = "rpx/rpconf.nsf";
const STATUS kNoAccess = 0x0246;
const STATUS kIoError = 0x010E;

std::string ServerJsonPath() {
    return ServerFolder() + "/server.json";
}

class ConfigDocumentFixes : public PatchRunTest {
protected:
    void TearDown() override {
        std::remove(ServerJsonPath().c_str());
        PatchRunTest::TearDown();
    }

    // Restarts the platform with the given faults (the "faults" list of server.json).
    void RestartWithFaults(const std::string& faults) {
        WriteFile(ServerJsonPath(), "{\"faults\": " + faults + "}");
        NotesTerm();
        ASSERT_EQ(InitPlatform(), NOERROR);
    }

    // A new configuration database holding one "Register" document with "$ConflictAction" 1 and
    // one "Policy" document marked as default; left closed.
    void CreateConfiguration() {
        DBHANDLE db = FreshDatabase(kConfigDb);
        register_ = AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "Register"}, {"$ConflictAction", "1"}});
        policy_ = AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "Policy"}, {"DefaultRule", "1"}});
        NSFDbClose(db);
    }

    std::string ConfigItem(NOTEID id, const char* item) {
        DBHANDLE db = NULLHANDLE;
        if (NSFDbOpen(kConfigDb, &db) != NOERROR) return "<no database>";
        NOTEHANDLE note = NULLHANDLE;
        std::string text = "<note not found>";
        if (NSFNoteOpen(db, id, 0, &note) == NOERROR) {
            NSFNoteClose(note);
            text = HasItem(db, id, item) ? ItemText(db, id, item) : "<absent>";
        }
        NSFDbClose(db);
        return text;
    }

    // A "dictionary" document with the first of the listed duplicates' UNIDs.
    NOTEID AddListedAsset() {
        DBHANDLE db = NULLHANDLE;
        EXPECT_EQ(NSFDbOpen(kConfigDb, &db), NOERROR);
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
        ORIGINATORID oid;
        NSFNoteGetInfo(note, _NOTE_OID, &oid);
        oid.File.Innards[1] = 0x026196EE;  // 026196EE7CA8DA4788257DDB00338EAE
        oid.File.Innards[0] = 0x7CA8DA47;
        oid.Note.Innards[1] = 0x88257DDB;
        oid.Note.Innards[0] = 0x00338EAE;
        NSFNoteSetInfo(note, _NOTE_OID, &oid);
        NSFItemSetText(note, "Form", "dictionary", MAXWORD);
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        NSFNoteClose(note);
        NSFDbClose(db);
        return id;
    }

    NOTEID register_ = 0;
    NOTEID policy_ = 0;
};

// The debug log line that holds text, with its prefix; "" when there is none.
std::string LogLineWith(const std::string& text) {
    std::istringstream lines(DebugLogText());
    for (std::string line; std::getline(lines, line);) {
        if (line.find(text) != std::string::npos) return line;
    }
    return "";
}

bool IsLevel(const std::string& line, int level) {
    return line.find("[module=" + std::to_string(level) + "]:") != std::string::npos;
}

}  // namespace

TEST_F(ConfigDocumentFixes, ResultsTellASearchThatRanFromOneThatFailed) {
    CreateConfiguration();
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kConfigDb, &db), NOERROR);
    EXPECT_EQ(ChangeConflictAction(db), 1);
    EXPECT_EQ(CheckDefaultPolicies(db), NOERROR);
    NSFDbClose(db);
    EXPECT_EQ(ConfigItem(register_, "$ConflictAction"), "3");
    EXPECT_EQ(ConfigItem(policy_, "DefaultRule"), "<absent>");

    RestartWithFaults(R"([{"call": "NSFSearch", "path": "rpx/rpconf.nsf", "status": )" +
                      std::to_string(kIoError) + "}]");
    ASSERT_EQ(NSFDbOpen(kConfigDb, &db), NOERROR);
    EXPECT_EQ(ChangeConflictAction(db), 0) << "a failed search gives 0, not its status";
    EXPECT_EQ(CheckDefaultPolicies(db), kIoError);
    EXPECT_EQ(NSFDbClose(db), NOERROR) << "the database stays open";
}

TEST_F(ConfigDocumentFixes, AFormulaThatDoesNotCompileIsLoggedAndClosesTheCallersDatabase) {
    CreateConfiguration();
    const STATUS compileError = ERR_FORMULA_COMPILATION;
    RestartWithFaults(R"([{"call": "NSFFormulaCompile", "status": )" + std::to_string(compileError) + "}]");
    const std::string message =
        "ChangeConflictAction Cannot compile the formula! error[" + std::to_string(compileError) + "]";
    for (auto fix : {ChangeConflictAction, CheckDefaultPolicies}) {
        ClearDebugLog();
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(kConfigDb, &db), NOERROR);
        EXPECT_EQ(fix(db), compileError);
        EXPECT_NE(NSFDbClose(db), NOERROR) << "the handle was closed by the fix";
        // Both fixes name ChangeConflictAction.
        std::string line = LogLineWith(message);
        EXPECT_TRUE(IsLevel(line, 0)) << line;
        EXPECT_NE(line.find("]:[PatchRPX:"), std::string::npos) << line;
    }
    EXPECT_EQ(ConfigItem(register_, "$ConflictAction"), "1");
    EXPECT_EQ(ConfigItem(policy_, "DefaultRule"), "1");
}

TEST_F(ConfigDocumentFixes, DigitalAssetRemovalReturnsTheStatusOfWhatStoppedIt) {
    NSFDbDelete(kConfigDb);
    EXPECT_EQ(RemoveDuplicatedUserDefinedDigitalAssert(), ERR_NOEXIST);
    EXPECT_EQ(DebugLogText(), "") << "a missing database is not logged";
    EXPECT_EQ(duplicatedUserDefinedDigtalAssertSet.size(), 46u) << "filled before the database is opened";

    CreateConfiguration();
    NOTEID asset = AddListedAsset();

    // A note that cannot be opened: its status without the two top bits ends the search.
    RestartWithFaults(R"([{"call": "NSFNoteOpen", "path": "rpx/rpconf.nsf", "status": )" +
                      std::to_string(0xC000 | kNoAccess) + "}]");
    EXPECT_EQ(RemoveDuplicatedUserDefinedDigitalAssert(), kNoAccess);

    const STATUS compileError = ERR_FORMULA_COMPILATION;
    RestartWithFaults(R"([{"call": "NSFFormulaCompile", "status": )" + std::to_string(compileError) + "}]");
    ClearDebugLog();
    EXPECT_EQ(RemoveDuplicatedUserDefinedDigitalAssert(), compileError);
    std::string line =
        LogLineWith("UpdateRpency Cannot compile the formula! error[" + std::to_string(compileError) + "]");
    EXPECT_TRUE(IsLevel(line, 0)) << line;
    EXPECT_NE(line.find("]:[PatchRPX:"), std::string::npos) << line;
    EXPECT_EQ(EmuOpenHandleCount(), 0u) << "the database is closed";
    EXPECT_EQ(ConfigItem(asset, "Form"), "dictionary") << "nothing deleted";

    RestartWithFaults("[]");
    EXPECT_EQ(RemoveDuplicatedUserDefinedDigitalAssert(), NOERROR);
    EXPECT_EQ(duplicatedUserDefinedDigtalAssertSet.size(), 46u) << "a second fill adds nothing";
    EXPECT_EQ(ConfigItem(asset, "Form"), "<note not found>") << "the listed asset goes without faults";
}
