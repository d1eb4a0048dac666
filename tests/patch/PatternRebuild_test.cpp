// The two halves of the pattern database rebuild that need no server: deciding whether
// "rpx/rpency.nsf" is in the old layout, and creating it afresh from its template.
#include <cstring>
#include <string>
#include <vector>

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"
#include "PatchTestServer.h"
#include "acl.h"

using namespace patch_test;

namespace {

using PatternRebuildTest = PatchPlatformTest;

const char kPatternDb[] = "rpx/rpency.nsf";
const char kPatternTemplate[] = "rpx/rpency.ntf";

struct Detection {
    STATUS status;
    int oldFormat;
    DHANDLE acl;
};

Detection Detect() {
    Detection result{0, 0, NULLHANDLE};
    result.status = FindOldPatternFormat(&result.oldFormat, &result.acl);
    return result;
}

void AddToPatternDb(const TextItems& items) {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kPatternDb, &db), NOERROR);
    AddNote(db, NOTE_CLASS_DOCUMENT, items);
    NSFDbClose(db);
}

struct AclEntry {
    std::string name;
    WORD level;
};

void LNCALLBACK CollectAcl(void* parameter, char* name, WORD level, ACL_PRIVILEGES*, WORD) {
    static_cast<std::vector<AclEntry>*>(parameter)->push_back({name, level});
}

WORD LevelOf(DHANDLE acl, const std::string& name) {
    std::vector<AclEntry> entries;
    ACLEnumEntries(acl, CollectAcl, &entries);
    for (const AclEntry& entry : entries) {
        if (entry.name == name) return entry.level;
    }
    return 0xFFFF;
}

}  // namespace

TEST_F(PatternRebuildTest, OnlyAnUndottedPatternfileVersionMarksTheOldLayout) {
    NSFDbDelete(kPatternDb);
    Detection missing = Detect();
    EXPECT_EQ(missing.status, NOERROR);
    EXPECT_EQ(missing.oldFormat, 0);

    NSFDbClose(FreshDatabase(kPatternDb));
    AddToPatternDb({{"Form", "Patternfile"}, {"InternalPVer", "1.234.00"}});
    AddToPatternDb({{"Form", "Patternfile"}});
    AddToPatternDb({{"Form", "Other"}, {"InternalPVer", "1234"}});  // another form: never looked at
    Detection current = Detect();
    EXPECT_EQ(current.status, NOERROR);
    EXPECT_EQ(current.oldFormat, 0);
    EXPECT_EQ(current.acl, (DHANDLE)NULLHANDLE);

    AddToPatternDb({{"Form", "Patternfile"}, {"InternalPVer", "1234"}});
    Detection old = Detect();
    EXPECT_EQ(old.status, NOERROR);
    EXPECT_EQ(old.oldFormat, 1);
    EXPECT_NE(old.acl, (DHANDLE)NULLHANDLE);
    if (old.acl != NULLHANDLE) OSMemFree(old.acl);
}

TEST_F(PatternRebuildTest, CallbackLooksOnlyAtMatchingNotesAndNeverResetsTheFlag) {
    DBHANDLE db = FreshDatabase("rpx/pattern_callback.nsf");
    NOTEID oldVersion = AddNote(db, NOTE_CLASS_DOCUMENT, {{"InternalPVer", "1234"}});
    NOTEID dotted = AddNote(db, NOTE_CLASS_DOCUMENT, {{"InternalPVer", "1.234.00"}});
    NOTEID longVersion = AddNote(db, NOTE_CLASS_DOCUMENT, {{"InternalPVer", std::string(40, '7') + ".0"}});
    PatternSearchParam param;
    param.hDb = db;

    SEARCH_MATCH notMatching = MatchFor(oldVersion, SE_FNOMATCH);
    EXPECT_EQ(CheckPatternVersionFormat(&param, &notMatching, nullptr), NOERROR);
    EXPECT_EQ(param.oldFormat, 0);

    // only the first 31 bytes are read, so the dot after 40 digits is not seen
    SEARCH_MATCH cut = MatchFor(longVersion);
    EXPECT_EQ(CheckPatternVersionFormat(&param, &cut, nullptr), NOERROR);
    EXPECT_EQ(param.oldFormat, 1);

    SEARCH_MATCH matching = MatchFor(dotted);
    EXPECT_EQ(CheckPatternVersionFormat(&param, &matching, nullptr), NOERROR);
    EXPECT_EQ(param.oldFormat, 1);
    NSFDbClose(db);
}

TEST_F(PatternRebuildTest, RecreatesFromTheTemplateWithTheFixedReplicaIdAndTheOldAcl) {
    DBHANDLE templateDb = FreshDatabase(kPatternTemplate);
    AddNote(templateDb, NOTE_CLASS_DOCUMENT, {{"Form", "Patternfile"}, {"InternalPVer", "2.0.1"}});
    NSFDbClose(templateDb);

    DBHANDLE oldDb = FreshDatabase(kPatternDb);
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(oldDb, &acl), NOERROR);
    ASSERT_EQ(ACLAddEntry(acl, "CN=Admin/O=Acme", ACL_LEVEL_MANAGER, nullptr, 0), NOERROR);
    NSFDbClose(oldDb);

    // while the old database is still there (not taken offline) the create fails
    EXPECT_NE(RecreatePatternDatabase(acl), NOERROR);

    ASSERT_EQ(NSFDbDelete(kPatternDb), NOERROR);
    ASSERT_EQ(RecreatePatternDatabase(acl), NOERROR);

    DBHANDLE rebuilt = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kPatternDb, &rebuilt), NOERROR);
    DBREPLICAINFO info;
    ASSERT_EQ(NSFDbReplicaInfoGet(rebuilt, &info), NOERROR);
    EXPECT_EQ(info.ID.Innards[0], 0x001E96E4u);
    EXPECT_EQ(info.ID.Innards[1], 0x852552F9u);

    DHANDLE rebuiltAcl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(rebuilt, &rebuiltAcl), NOERROR);
    EXPECT_EQ(LevelOf(rebuiltAcl, "CN=Admin/O=Acme"), ACL_LEVEL_MANAGER);
    OSMemFree(rebuiltAcl);
    OSMemFree(acl);

    Detection after = Detect();
    EXPECT_EQ(after.oldFormat, 0);
    NSFDbClose(rebuilt);
}
