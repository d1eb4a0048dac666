// Build stamping against the emulated platform: the walk over DBNames and the note-level stamp.
#include <cstring>
#include <string>

#include "DatabaseMaintenance.h"
#include "global.h"
#include "osmisc.h"
#include "PatchTestServer.h"

using namespace patch_test;

namespace {

class BuildStampingTest : public PatchPlatformTest {
protected:
    void SetUp() override {
        PatchPlatformTest::SetUp();
        std::memcpy(savedBuild_, g_szRkRPXBuildVersion, sizeof savedBuild_);
        std::strcpy(g_szRkRPXBuildVersion, "5.6.1.3105");
    }
    void TearDown() override { std::memcpy(g_szRkRPXBuildVersion, savedBuild_, sizeof savedBuild_); }

private:
    char savedBuild_[sizeof g_szRkRPXBuildVersion];
};

DWORD ValueLength(DBHANDLE db, NOTEID id, const char* item) {
    NOTEHANDLE note = NULLHANDLE;
    DWORD length = 0;
    if (NSFNoteOpen(db, id, 0, &note) != NOERROR) return 0;
    NSFItemInfo(note, item, (WORD)std::strlen(item), nullptr, nullptr, nullptr, &length);
    NSFNoteClose(note);
    return length;
}

struct StampedDb {
    std::string path;
    std::vector<NOTEID> helpNotes;
    NOTEID document = 0;
};

}  // namespace

TEST_F(BuildStampingTest, StampsEveryHelpNoteOfEveryListedDatabaseThatExists) {
    std::vector<StampedDb> databases;
    int rows = 0;
    for (; DBNames[rows].databaseName != nullptr; ++rows) {
        StampedDb stamped;
        stamped.path = std::string("rpx/") + DBNames[rows].databaseName;
        if (stamped.path == "rpx/rpxapproved.nsf") {
            NSFDbDelete(stamped.path.c_str());  // a database that is not installed is skipped
            continue;
        }
        DBHANDLE db = FreshDatabase(stamped.path);
        stamped.helpNotes.push_back(AddNote(db, NOTE_CLASS_HELP, {{"BuildNumber", "5.6.1.3001"}}));
        if (stamped.path == "rpx/rpmsg.nsf") stamped.helpNotes.push_back(AddNote(db, NOTE_CLASS_HELP));
        stamped.document = AddNote(db, NOTE_CLASS_DOCUMENT, {{"BuildNumber", "keep"}});
        NSFDbClose(db);
        databases.push_back(stamped);
    }
    ASSERT_EQ(rows, 11);

    EXPECT_EQ(SetAllDatabasesBuild(), 0);

    for (const StampedDb& stamped : databases) {
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(stamped.path.c_str(), &db), NOERROR) << stamped.path;
        for (NOTEID id : stamped.helpNotes) {
            EXPECT_EQ(ItemText(db, id, "BuildNumber"), "5.6.1.3105") << stamped.path;
            // the type word and the ten characters: no terminator is written
            EXPECT_EQ(ValueLength(db, id, "BuildNumber"), 2u + 10u) << stamped.path;
        }
        EXPECT_EQ(ItemText(db, stamped.document, "BuildNumber"), "keep") << stamped.path;
        NSFDbClose(db);
    }
    DBHANDLE missing = NULLHANDLE;
    EXPECT_NE(NSFDbOpen("rpx/rpxapproved.nsf", &missing), NOERROR);
}

TEST_F(BuildStampingTest, NoteThatCannotBeOpenedIsReportedOnTheConsoleAndTheWalkGoesOn) {
    DBHANDLE db = FreshDatabase("rpx/stamp_failure.nsf");
    NOTEID help = AddNote(db, NOTE_CLASS_HELP);
    DbSearchParam param;
    param.hDb = db;

    SEARCH_MATCH missing = MatchFor(help + 400);
    NOTEHANDLE none = NULLHANDLE;
    STATUS openStatus = NSFNoteOpen(db, help + 400, 0, &none);
    ASSERT_NE(openStatus, NOERROR);
    char text[256] = "";
    ASSERT_GT(OSLoadString(NULLHANDLE, openStatus, text, sizeof text - 1), 0);
    size_t consoleBefore = ConsoleText().size();
    EXPECT_EQ(BuildNumber(&param, &missing, nullptr), NOERROR);
    EXPECT_NE(ConsoleText().find(text, consoleBefore), std::string::npos) << "the platform's text of the failure";

    SEARCH_MATCH found = MatchFor(help);
    EXPECT_EQ(BuildNumber(&param, &found, nullptr), NOERROR);
    EXPECT_EQ(ItemText(db, help, "BuildNumber"), "5.6.1.3105");
    NSFDbClose(db);
}

// The table is shared with the product's other tasks: names, order, flags and room for a path.
TEST(BuildStampingTable, ListsTheElevenDatabasesInOrderWithTheirTemplatesAndFlags) {
    struct Row {
        const char* templateName;
        const char* databaseName;
        int flag;
    };
    const Row expected[] = {{"rpconf.ntf", "rpconf.nsf", 1},   {"rpxdtas.ntf", "rpxdtas.nsf", 1},
                            {"rpency.ntf", "rpency.nsf", 1},   {"rpvlog.ntf", "rpvlog.nsf", 1},
                            {"rpquar.ntf", "rpquar.nsf", 1},   {nullptr, "rpftypes.nsf", 1},
                            {nullptr, "rphelp.nsf", 1},        {"rptime.ntf", "rptime.nsf", 1},
                            {"rpxapproved.ntf", "rpxapproved.nsf", 1}, {nullptr, "rpmsg.nsf", 0},
                            {nullptr, "rplists.nsf", 0},       {nullptr, nullptr, 0}};
    static_assert(sizeof(DBNameEntry::path) == 512, "room for a full path");
    ASSERT_EQ(sizeof expected / sizeof expected[0], (size_t)kDBNamesRows);
    auto same = [](const char* a, const char* b) { return a == b || (a && b && std::strcmp(a, b) == 0); };
    for (int row = 0; row < kDBNamesRows; ++row) {
        EXPECT_TRUE(same(DBNames[row].templateName, expected[row].templateName)) << "row " << row;
        EXPECT_TRUE(same(DBNames[row].databaseName, expected[row].databaseName)) << "row " << row;
        EXPECT_EQ(DBNames[row].flag, expected[row].flag) << "row " << row;
        EXPECT_EQ(DBNames[row].path[0], '\0') << "row " << row;
    }
}
