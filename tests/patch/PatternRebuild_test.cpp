// The pattern database rebuild against the emulated platform: deciding whether "rpx/rpency.nsf" is
// in the old layout, and creating it afresh from its template.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "DatabaseMaintenance.h"
#include "PatchRunTestSupport.h"
#include "global.h"
#include "acl.h"

using namespace patch_test;

namespace {

using PatternRebuildTest = PatchRunTest;

const char kPatternDb[] = "rpx/rpency.nsf";
const char kPatternTemplate[] = "rpx/rpency.ntf";

const char kOldFormatFound[] = "rpency.nsf is old format, recreate it";

DBREPLICAINFO PatternReplicaInfo() {
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(kPatternDb, &db), NOERROR);
    EXPECT_EQ(NSFDbReplicaInfoGet(db, &info), NOERROR);
    NSFDbClose(db);
    return info;
}

bool HasFixedReplicaId(const DBREPLICAINFO& info) {
    return info.ID.Innards[0] == 0x001E96E4u && info.ID.Innards[1] == 0x852552F9u;
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

void MakeOldPatternDbWithAdmin() {
    DBHANDLE oldDb = FreshDatabase(kPatternDb);
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(oldDb, &acl), NOERROR);
    ASSERT_EQ(ACLAddEntry(acl, "CN=Admin/O=Acme", ACL_LEVEL_MANAGER, nullptr, 0), NOERROR);
    ASSERT_EQ(NSFDbStoreACL(oldDb, acl, 0, 0), NOERROR);
    OSMemFree(acl);
    NSFDbClose(oldDb);
    AddToPatternDb({{"Form", "Patternfile"}, {"InternalPVer", "1234"}});
}

}  // namespace

TEST_F(PatternRebuildTest, OnlyAnUndottedPatternfileVersionMarksTheOldLayout) {
    NSFDbDelete(kPatternDb);
    EXPECT_EQ(UpdateRpency(), NOERROR);
    EXPECT_TRUE(DebugLogMessages().empty()) << "no pattern database: nothing to do, nothing said";

    NSFDbClose(FreshDatabase(kPatternDb));
    AddToPatternDb({{"Form", "Patternfile"}, {"InternalPVer", "1.234.00"}});
    AddToPatternDb({{"Form", "Patternfile"}});
    AddToPatternDb({{"Form", "Other"}, {"InternalPVer", "1234"}});  // another form: never looked at
    EXPECT_EQ(UpdateRpency(), NOERROR);
    EXPECT_FALSE(Logged(kOldFormatFound));
    EXPECT_FALSE(HasFixedReplicaId(PatternReplicaInfo())) << "left as it was";

    NSFDbClose(FreshDatabase(kPatternTemplate));
    AddToPatternDb({{"Form", "Patternfile"}, {"InternalPVer", "1234"}});
    EXPECT_EQ(UpdateRpency(), NOERROR);
    EXPECT_TRUE(Logged(kOldFormatFound));
    EXPECT_TRUE(HasFixedReplicaId(PatternReplicaInfo())) << "rebuilt";
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

TEST_F(PatternRebuildTest, CreateFailureIsLoggedAndReturned) {
    MakeOldPatternDbWithAdmin();
    NSFDbDelete(kPatternTemplate);
    EXPECT_NE(UpdateRpency(), NOERROR);
    std::vector<std::string> messages = DebugLogMessages();
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [](const std::string& line) {
        return line.rfind("Failed to recreate rpency.nsf, Error: ", 0) == 0;
    }));
}

TEST_F(PatternRebuildTest, RecreatesFromTheTemplateWithTheFixedReplicaIdAndTheOldAcl) {
    DBHANDLE templateDb = FreshDatabase(kPatternTemplate);
    AddNote(templateDb, NOTE_CLASS_DOCUMENT, {{"Form", "Patternfile"}, {"InternalPVer", "2.0.1"}});
    NSFDbClose(templateDb);
    MakeOldPatternDbWithAdmin();
    ASSERT_EQ(UpdateRpency(), NOERROR);

    DBHANDLE rebuilt = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kPatternDb, &rebuilt), NOERROR);
    DBREPLICAINFO info;
    ASSERT_EQ(NSFDbReplicaInfoGet(rebuilt, &info), NOERROR);
    EXPECT_TRUE(HasFixedReplicaId(info));

    DHANDLE rebuiltAcl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(rebuilt, &rebuiltAcl), NOERROR);
    EXPECT_EQ(LevelOf(rebuiltAcl, "CN=Admin/O=Acme"), ACL_LEVEL_MANAGER);
    OSMemFree(rebuiltAcl);
    NSFDbClose(rebuilt);

    ClearDebugLog();
    EXPECT_EQ(UpdateRpency(), NOERROR);
    EXPECT_FALSE(Logged(kOldFormatFound)) << "the rebuilt database is in the new layout";
}

TEST_F(PatternRebuildTest, OnlyTheExactInUseStatusIsWaitedFor) {
    NSFDbClose(FreshDatabase(kPatternTemplate));
    MakeOldPatternDbWithAdmin();
    RestartWithServerSettings(R"({"clock": "virtual", "faults": [{"call": "NSFTakeDatabaseOffline",
        "path": "rpx/rpency.nsf", "status": 21482}]})");
    EXPECT_EQ(UpdateRpency(), 0x53EA);
    EXPECT_FALSE(Logged("DB in use, waiting"));
    EXPECT_TRUE(Logged("Failed to delete original RPX V3 rpency.nsf, Error: 53EA"));
}
