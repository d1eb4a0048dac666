// The update driver against the emulated platform: applicability, the install folder, the item
// paths with the refusal of names that leave the product folder, the conversion command, the
// in-use retry and the pattern database's ACL.
#include <cstring>
#include <string>
#include <vector>

#include "global.h"
#include "acl.h"
#include "osenv.h"

#include "PatchRPX.h"
#include "PatchRunTestSupport.h"

using namespace patch_test;

namespace {

class UpdateDriverTest : public PatchRunTest {
protected:
    static PatchSetting Applicable(std::list<std::string> databases) {
        PatchSetting setting;
        setting.patchBuild = 3100;
        setting.runningBuild = 3001;
        setting.runningDbBuild = 3050;  // not below 3050: no pattern rebuild
        setting.skipDbSign = 1;
        setting.databases = std::move(databases);
        return setting;
    }
};

void LNCALLBACK CollectName(void* names, char* name, WORD, ACL_PRIVILEGES*, WORD) {
    static_cast<std::vector<std::string>*>(names)->push_back(name);
}

bool AclNames(const std::string& notesPath, const std::string& name) {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(notesPath.c_str(), &db) != NOERROR) return false;
    DHANDLE acl = NULLHANDLE;
    std::vector<std::string> names;
    if (NSFDbReadACL(db, &acl) == NOERROR) ACLEnumEntries(acl, CollectName, &names);
    if (acl != NULLHANDLE) OSMemFree(acl);
    NSFDbClose(db);
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Makes a database at notesPath with the platform, then moves its file to installPath.
void ShipDatabase(const std::string& notesPath, const std::string& installPath, void (*fill)(DBHANDLE)) {
    DBHANDLE db = FreshDatabase(notesPath);
    if (fill != nullptr) fill(db);
    NSFDbClose(db);
    NotesTerm();  // every change is in the file itself once the platform has let go of it
    ASSERT_EQ(InitPlatform(), NOERROR);
    Shell("mv '" + DataFolder() + "/" + notesPath + "' '" + installPath + "'");
}

void GrantManager(DBHANDLE db, const char* name) {
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
    ASSERT_EQ(ACLAddEntry(acl, const_cast<char*>(name), ACL_LEVEL_MANAGER, nullptr, 0), NOERROR);
    ASSERT_EQ(NSFDbStoreACL(db, acl, 0, 0), NOERROR);
    OSMemFree(acl);
}

STATUS LNCALLBACK CollectNoteId(void* ids, SEARCH_MATCH* match, ITEM_TABLE*) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    static_cast<std::vector<NOTEID>*>(ids)->push_back(found.ID.NoteID);
    return NOERROR;
}

// Gives the ACL note a list the platform cannot read.
void BreakAcl(DBHANDLE db) {
    std::vector<NOTEID> ids;
    ASSERT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_ACL, nullptr, CollectNoteId, &ids, nullptr), NOERROR);
    ASSERT_EQ(ids.size(), 1u);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, ids[0], 0, &note), NOERROR);
    NSFItemDelete(note, "$ACL", 4);
    char garbage[] = "\x7f\x7f not an access list";
    ASSERT_EQ(NSFItemAppend(note, 0, "$ACL", 4, TYPE_TEXT, garbage, sizeof garbage - 1), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
    NSFNoteClose(note);
    DHANDLE acl = NULLHANDLE;
    ASSERT_NE(NSFDbReadACL(db, &acl), NOERROR) << "the list must be unreadable";
}

const char kNotApplicable[] = "The database build is large than build number of the patch, so return. 3001";

}  // namespace

TEST_F(UpdateDriverTest, AppliesOnlyBelowThePatchBuildAndNamesTheProductBuildOtherwise) {
    PatchSetting setting = Applicable({});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_FALSE(Logged(kNotApplicable));
    setting.runningDbBuild = 3100;
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_EQ(DebugLogMessages().back(), kNotApplicable);
}

TEST_F(UpdateDriverTest, ItemPathsOfPlainNamesOnly) {
    PatchSetting setting = Applicable({"rpmsg.nsf"});
    EXPECT_EQ(UpdateDatabase(setting), 1) << "no program folder";
    EXPECT_TRUE(Logged("Cannot get the latest path!"));

    std::string install = MakeProgramFolder("V5.6.1.3100");
    WriteFile(install + "/rpmsg.nsf", "new file\n");
    std::string longName(300, 'n');
    setting = Applicable({"rpmsg.nsf", "..", "../rpmsg.nsf", "sub/rpmsg.nsf", "..\\rpmsg.nsf", "/etc/passwd",
                          "*.nsf", "rp?sg.nsf", "*", longName});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_TRUE(Logged("Copy the database to RPX database folder! (" + install + "/rpmsg.nsf):(" + DataFolder() +
                       "/rpx/rpmsg.nsf)"));
    for (const char* name : {"..", "../rpmsg.nsf", "sub/rpmsg.nsf", "..\\rpmsg.nsf", "/etc/passwd", "*.nsf",
                             "rp?sg.nsf", "*"}) {
        EXPECT_TRUE(Logged(std::string("Skip the database entry, it is not a plain file name. (") + name + ")"))
            << name;
    }
    EXPECT_TRUE(Logged("Skip the database entry, its name is too long. (" + longName + ")"))
        << "the Notes path holds 255 bytes";
    NSFDbDelete("rpx/rpmsg.nsf");
}

TEST_F(UpdateDriverTest, ADataDirectoryThatIsNoFolderStopsTheRunBeforeAnyFileWork) {
    std::string install = MakeProgramFolder("V5.6.1.3100");
    WriteFile(install + "/rpmsg.nsf", "new file\n");
    const std::string stops = "The patch stops: the notes.ini setting Directory is missing or names no folder";
    WriteFile(TempFolder() + "/not-a-folder", "a file\n");
    for (std::string directory : {ServerFolder() + "/no-such-folder", TempFolder() + "/not-a-folder", std::string()}) {
        SCOPED_TRACE(directory);
        OSSetEnvironmentVariable("Directory", directory.c_str());
        size_t consoleBefore = ConsoleText().size();
        PatchSetting setting = Applicable({"rpmsg.nsf"});
        EXPECT_EQ(UpdateDatabase(setting), 1);
        EXPECT_NE(ConsoleText().find(stops, consoleBefore), std::string::npos);
        EXPECT_FALSE(FileExists(DataFolder() + "/rpx/rpmsg.nsf")) << "nothing copied";
    }
    OSSetEnvironmentVariable("Directory", DataFolder().c_str());
}

TEST_F(UpdateDriverTest, ConvertCommandNamesTheDatabaseOfTheTemplateCutAtTheFirstNtf) {
    std::string install = MakeProgramFolder("V5.6.1.3100");
    WriteFile(install + "/a.ntf.b.ntf", "template\n");
    PatchSetting setting = Applicable({"a.ntf.b.ntf"});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_TRUE(Logged("Run command load convert rpx/a.nsf * rpx/a.ntf.b.ntf"));
    EXPECT_NE(ConsoleText().find("> load convert rpx/a.nsf * rpx/a.ntf.b.ntf"), std::string::npos);
    std::remove((DataFolder() + "/rpx/a.ntf.b.ntf").c_str());
}

TEST_F(UpdateDriverTest, OnlyTheExactInUseStatusIsWaitedFor) {
    std::string install = MakeProgramFolder("V5.6.1.3100");
    NSFDbClose(FreshDatabase("rpx/flagged.nsf"));
    WriteFile(install + "/flagged.nsf", "new file\n");
    // the in-use code with a flag bit set is another status: no wait, the run stops at once
    RestartWithServerSettings(R"({"clock": "virtual", "faults": [{"call": "NSFTakeDatabaseOffline",
        "path": "rpx/flagged.nsf", "status": 21482}]})");
    PatchSetting setting = Applicable({"flagged.nsf"});
    EXPECT_EQ(UpdateDatabase(setting), 0x53EA);
    EXPECT_FALSE(Logged("DB in use, waiting. Retry: 0."));
    EXPECT_TRUE(Logged("Bring database offline. (" + DataFolder() + "/rpx/flagged.nsf):(53ea)"));
    NSFDbDelete("rpx/flagged.nsf");
}

TEST_F(UpdateDriverTest, AFailedAclReadLeavesLaterItemsWithoutTheEarlierAcl) {
    std::string install = MakeProgramFolder("V5.6.1.3100");
    DBHANDLE pattern = FreshDatabase("rpx/rpency.nsf");
    GrantManager(pattern, "CN=Pattern/O=Acme");
    NSFDbClose(pattern);
    ShipDatabase("rpx/ship_a.nsf", install + "/a.nsf", nullptr);
    ShipDatabase("rpx/ship_rpency.nsf", install + "/rpency.nsf", BreakAcl);
    ShipDatabase("rpx/ship_b.nsf", install + "/b.nsf", [](DBHANDLE db) { GrantManager(db, "CN=Shipped/O=Acme"); });
    // the shipped pattern database keeps its unreadable list: the store into it fails
    RestartWithServerSettings(R"({"faults": [{"call": "NSFDbStoreACL", "path": "rpx/rpency.nsf", "status": 1}]})");

    PatchSetting setting = Applicable({"a.nsf", "rpency.nsf", "b.nsf"});
    EXPECT_EQ(UpdateDatabase(setting), NOERROR);
    EXPECT_TRUE(AclNames("rpx/a.nsf", "CN=Pattern/O=Acme")) << "read from the pattern database";
    EXPECT_FALSE(AclNames("rpx/b.nsf", "CN=Pattern/O=Acme")) << "the read before b.nsf failed";
    EXPECT_TRUE(AclNames("rpx/b.nsf", "CN=Shipped/O=Acme")) << "nothing stored: its own list stays";
    for (const char* path : {"rpx/a.nsf", "rpx/b.nsf", "rpx/rpency.nsf"}) NSFDbDelete(path);
}
