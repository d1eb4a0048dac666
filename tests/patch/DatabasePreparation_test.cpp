// The database preparation against the emulated platform: the path of the name, the hidden-design
// flag and the document collector.
#include <cstring>
#include <string>
#include <vector>

#include "DatabaseMaintenance.h"
#include "global.h"
#include "osmisc.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {

using DatabasePreparationTest = PatchRunTest;

DBREPLICAINFO ReplicaInfo(DBHANDLE db) {
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    EXPECT_EQ(NSFDbReplicaInfoGet(db, &info), NOERROR);
    return info;
}

DBHANDLE OpenDatabase(const std::string& path) {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR) << path;
    return db;
}

// The native text of the platform's answer to opening path, as the preparation logs it.
std::string OpenFailureText(const std::string& path) {
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(path.c_str(), &db);
    EXPECT_NE(status, NOERROR) << path;
    char text[257] = "";
    OSLoadString(NULLHANDLE, status, text, 256);
    return text;
}

}  // namespace

TEST_F(DatabasePreparationTest, RefusesNamesThatDoNotFitTheBuffer) {
    PatchSetting setting;
    std::string longest(251, 'n');  // "rpx/" + 251 bytes + terminator = 256
    EXPECT_EQ(PrepareDatabase(&longest[0], setting), -1);
    EXPECT_TRUE(Logged("Failed to open " + longest + " - " + OpenFailureText("rpx/" + longest)))
        << "a name that fits is opened";

    std::string tooLong(252, 'n');
    EXPECT_EQ(PrepareDatabase(&tooLong[0], setting), -1);
    EXPECT_TRUE(Logged("Error: Cannot prepare the database, its name is missing or too long."));
}

TEST_F(DatabasePreparationTest, HidingTheDesignSetsOnlyTheHiddenDesignFlag) {
    DBHANDLE db = FreshDatabase("rpx/prepare_hide.nsf");
    DBREPLICAINFO before = ReplicaInfo(db);
    before.Flags |= REPLFLG_DISABLE;
    ASSERT_EQ(NSFDbReplicaInfoSet(db, &before), NOERROR);

    NSFDbClose(db);
    PatchSetting unsigned_;
    unsigned_.skipDbSign = 1;
    char name[] = "prepare_hide.nsf";
    ASSERT_EQ(PrepareDatabase(name, unsigned_), 0);
    db = OpenDatabase("rpx/prepare_hide.nsf");
    DBREPLICAINFO hidden = ReplicaInfo(db);
    NSFDbClose(db);
    EXPECT_EQ(hidden.Flags, before.Flags | REPLFLG_HIDDEN_DESIGN);
    EXPECT_EQ(std::memcmp(&hidden.ID, &before.ID, sizeof before.ID), 0);

    ASSERT_EQ(PrepareDatabase(name, unsigned_), 0);  // already hidden: written back unchanged
    db = OpenDatabase("rpx/prepare_hide.nsf");
    EXPECT_EQ(ReplicaInfo(db).Flags, hidden.Flags);
    NSFDbClose(db);
}

TEST_F(DatabasePreparationTest, SearchDocumentCallbackCollectsTheMatchedNoteIds) {
    DBHANDLE db = FreshDatabase("rpx/prepare_collect.nsf");
    std::vector<NOTEID> documents = {AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "A"}}),
                                     AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "B"}})};
    AddNote(db, NOTE_CLASS_FORM, {{"$TITLE", "A"}});
    documents.push_back(AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "C"}}));

    DocumentSearchParam param;
    param.hDb = db;
    EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, SearchDocumentCallback,
                        &param, nullptr),
              NOERROR);
    EXPECT_EQ(param.noteIds, documents);
    NSFDbClose(db);
}
