// The parts of the database preparation that need no server: its path, the hidden-design flag
// and the document collector.
#include <cstring>
#include <string>
#include <vector>

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"
#include "PatchTestServer.h"

using namespace patch_test;

namespace {

using DatabasePreparationTest = PatchPlatformTest;

DBREPLICAINFO ReplicaInfo(DBHANDLE db) {
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    EXPECT_EQ(NSFDbReplicaInfoGet(db, &info), NOERROR);
    return info;
}

}  // namespace

TEST(DatabasePreparationPath, RefusesNamesThatDoNotFitTheBuffer) {
    char path[256];
    EXPECT_TRUE(BuildPreparePath("rpconf.nsf", path, sizeof path));
    EXPECT_STREQ(path, "rpx/rpconf.nsf");

    std::string longest(251, 'n');  // "rpx/" + 251 bytes + terminator = 256
    EXPECT_TRUE(BuildPreparePath(longest.c_str(), path, sizeof path));
    EXPECT_EQ(std::strlen(path), 255u);

    std::string tooLong(252, 'n');
    EXPECT_FALSE(BuildPreparePath(tooLong.c_str(), path, sizeof path));
    EXPECT_STREQ(path, "");
}

TEST_F(DatabasePreparationTest, HidingTheDesignSetsOnlyTheHiddenDesignFlag) {
    DBHANDLE db = FreshDatabase("rpx/prepare_hide.nsf");
    DBREPLICAINFO before = ReplicaInfo(db);
    before.Flags |= REPLFLG_DISABLE;
    ASSERT_EQ(NSFDbReplicaInfoSet(db, &before), NOERROR);

    HideDatabaseDesign(db);
    DBREPLICAINFO hidden = ReplicaInfo(db);
    EXPECT_EQ(hidden.Flags, before.Flags | REPLFLG_HIDDEN_DESIGN);
    EXPECT_EQ(std::memcmp(&hidden.ID, &before.ID, sizeof before.ID), 0);

    HideDatabaseDesign(db);  // already hidden: written back unchanged
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
