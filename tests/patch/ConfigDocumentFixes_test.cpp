// The configuration database's document fixes called directly, for what a whole run cannot show:
// a selection formula that does not compile, and the statuses that stop the digital-asset
// removal. Failures come from the platform's server.json faults.
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
        std::string text = ItemText(db, id, item);
        NSFDbClose(db);
        return text;
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
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kConfigDb, &db), NOERROR);
    AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "dictionary"}});
    NSFDbClose(db);

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

    RestartWithFaults("[]");
    EXPECT_EQ(RemoveDuplicatedUserDefinedDigitalAssert(), NOERROR);
    EXPECT_EQ(duplicatedUserDefinedDigtalAssertSet.size(), 46u) << "a second fill adds nothing";
}
