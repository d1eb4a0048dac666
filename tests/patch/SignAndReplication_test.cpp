// Signing and the replication note against the emulated platform: the two search callbacks,
// AddReplicationDoc's items byte for byte, the path of one database and GetAPIError.
#include <cstring>
#include <string>
#include <vector>

#include "DatabaseMaintenance.h"
#include "PatchRunTestSupport.h"
#include "global.h"
#include "osenv.h"
#include "osmisc.h"
#include "osmem.h"

using namespace patch_test;

namespace {

using SignAndReplicationTest = PatchRunTest;

STATUS RunSearch(DBHANDLE db, WORD classMask, NSFSEARCHPROC callback) {
    DbSearchParam param;
    param.hDb = db;
    return NSFSearch(db, NULLHANDLE, nullptr, 0, classMask, nullptr, callback, &param, nullptr);
}

STATUS LNCALLBACK CollectIds(void* parameter, SEARCH_MATCH* match, ITEM_TABLE*) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    static_cast<std::vector<NOTEID>*>(parameter)->push_back(found.ID.NoteID);
    return NOERROR;
}

std::vector<NOTEID> NotesOfClass(DBHANDLE db, WORD noteClass) {
    std::vector<NOTEID> ids;
    NSFSearch(db, NULLHANDLE, nullptr, 0, noteClass, nullptr, CollectIds, &ids, nullptr);
    return ids;
}

WORD TypeOf(DBHANDLE db, NOTEID id, const char* item) {
    NOTEHANDLE note = NULLHANDLE;
    WORD type = 0;
    if (NSFNoteOpen(db, id, 0, &note) != NOERROR) return 0;
    NSFItemInfo(note, item, (WORD)std::strlen(item), nullptr, &type, nullptr, nullptr);
    NSFNoteClose(note);
    return type;
}

// An item as stored: its flags, its type and its value bytes after the type word.
struct StoredItem {
    WORD flags = 0;
    WORD type = 0;
    std::string value;
};

StoredItem ReadItem(NOTEHANDLE note, const char* name) {
    StoredItem item;
    BLOCKID itemBlock, valueBlock;
    DWORD length = 0;
    if (NSFItemInfo(note, name, (WORD)std::strlen(name), &itemBlock, &item.type, &valueBlock, &length) !=
        NOERROR) {
        ADD_FAILURE() << name << " is missing";
        return item;
    }
    char itemName[64];
    WORD nameLength = 0, type = 0;
    NSFItemQuery(note, itemBlock, itemName, sizeof itemName, &nameLength, &item.flags, &type, nullptr,
                 nullptr);
    const char* bytes = OSLockBlock(char, valueBlock);
    item.value.assign(bytes + sizeof(WORD), length - sizeof(WORD));
    OSUnlockBlock(valueBlock);
    return item;
}

std::string CompiledSelectAll() {
    FORMULAHANDLE formula = NULLHANDLE;
    WORD length = 0, error = 0, line = 0, column = 0, offset = 0, errorLength = 0;
    EXPECT_EQ(NSFFormulaCompile(nullptr, 0, "SELECT @All", 11, &formula, &length, &error, &line, &column,
                                &offset, &errorLength),
              NOERROR);
    std::string bytes(OSLock(char, formula), length);
    OSUnlock(formula);
    OSMemFree(formula);
    return bytes;
}

}  // namespace

TEST_F(SignAndReplicationTest, SignsDesignNotesAndContractsTheExpandedOnes) {
    DBHANDLE db = FreshDatabase("rpx/sign_design.nsf");
    NOTEID form = AddNote(db, NOTE_CLASS_FORM, {{"$TITLE", "Memo"}});
    NOTEID view = AddNote(db, NOTE_CLASS_VIEW, {{"$TITLE", "All"}});
    NOTEID help = AddNote(db, NOTE_CLASS_HELP, {{"BuildNumber", "5.6.1.3001"}});
    NOTEID field = AddNote(db, NOTE_CLASS_FIELD, {{"$TITLE", "Shared"}});
    NOTEID document = AddNote(db, NOTE_CLASS_DOCUMENT, {{"Form", "Memo"}});

    EXPECT_EQ(RunSearch(db, NOTE_CLASS_ALLNONDATA, SignDatabaseCallback), NOERROR);

    for (NOTEID id : {form, view, help, field}) EXPECT_TRUE(HasItem(db, id, "$Signature")) << id;
    EXPECT_FALSE(HasItem(db, document, "$Signature"));
    // opened expanded for signing, saved contracted again
    EXPECT_EQ(TypeOf(db, form, "$TITLE"), TYPE_TEXT);
    EXPECT_EQ(TypeOf(db, help, "BuildNumber"), TYPE_TEXT);
    EXPECT_EQ(ItemText(db, field, "$TITLE"), "Shared");

    DbSearchParam param;
    param.hDb = db;
    SEARCH_MATCH gone = MatchFor(document + 400);
    EXPECT_NE(SignDatabaseCallback(&param, &gone, nullptr), NOERROR);
    NSFDbClose(db);
}

TEST_F(SignAndReplicationTest, ReplacesOldReplicationNotesWithOneNewNote) {
    DBHANDLE db = FreshDatabase("rpx/replication.nsf");
    NOTEID oldNotes[] = {AddNote(db, NOTE_CLASS_REPLFORMULA, {{"$TITLE", "old 1"}}),
                         AddNote(db, NOTE_CLASS_REPLFORMULA, {{"$TITLE", "old 2"}})};
    NOTEID form = AddNote(db, NOTE_CLASS_FORM, {{"$TITLE", "Memo"}});

    EXPECT_EQ(RunSearch(db, NOTE_CLASS_ALLNONDATA, DelReplicaDocCallback), NOERROR);
    EXPECT_TRUE(NotesOfClass(db, NOTE_CLASS_REPLFORMULA).empty());
    EXPECT_EQ(ItemText(db, form, "$TITLE"), "Memo");

    // "MailServer" is not in the test server's notes.ini: nothing is written
    char value[16];
    ASSERT_FALSE(OSGetEnvironmentString("MailServer", value, sizeof value - 1));
    EXPECT_EQ(AddReplicationDoc(db), 1);
    EXPECT_TRUE(NotesOfClass(db, NOTE_CLASS_REPLFORMULA).empty());

    OSSetEnvironmentVariable("MailServer", "CN=Beta/O=Acme");
    EXPECT_EQ(AddReplicationDoc(db), NOERROR);
    std::vector<NOTEID> written = NotesOfClass(db, NOTE_CLASS_REPLFORMULA);
    ASSERT_EQ(written.size(), 1u);
    for (NOTEID old : oldNotes) EXPECT_NE(written[0], old);
    NSFDbClose(db);
}

TEST_F(SignAndReplicationTest, ReplicationNoteItemsHaveTheirExactValueBytes) {
    DBHANDLE db = FreshDatabase("rpx/replication_items.nsf");
    OSSetEnvironmentVariable("MailServer", "CN=Beta/O=Acme");
    ASSERT_EQ(AddReplicationDoc(db), NOERROR);
    std::vector<NOTEID> written = NotesOfClass(db, NOTE_CLASS_REPLFORMULA);
    ASSERT_EQ(written.size(), 1u);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, written[0], 0, &note), NOERROR);

    StoredItem title = ReadItem(note, "$TITLE");
    EXPECT_EQ(title.type, TYPE_TEXT);
    std::string name = "CN=Beta/O=Acme";
    EXPECT_EQ(title.value, name + std::string(256 - name.size(), '\0'));

    StoredItem version = ReadItem(note, "$ReplVersion");
    EXPECT_EQ(version.type, TYPE_TEXT);
    EXPECT_EQ(version.value, "2");

    StoredItem servers = ReadItem(note, "$ReplSrcServers");
    EXPECT_EQ(servers.type, TYPE_TEXT_LIST);
    EXPECT_TRUE(servers.flags & ITEM_SUMMARY);
    EXPECT_EQ(servers.value, std::string("\x01\x00\x01\x00-", 5));

    StoredItem masks = ReadItem(note, "$ReplClassMasks");
    EXPECT_EQ(masks.type, TYPE_TEXT_LIST);
    EXPECT_TRUE(masks.flags & ITEM_SUMMARY);
    EXPECT_EQ(masks.value, std::string("\x01\x00\x04\x00"
                                       "2047",
                                       8));

    StoredItem formula = ReadItem(note, "$ReplFormula");
    EXPECT_EQ(formula.type, TYPE_FORMULA);
    EXPECT_TRUE(formula.flags & ITEM_SUMMARY);
    EXPECT_EQ(formula.value, CompiledSelectAll());
    NSFNoteClose(note);
    NSFDbClose(db);
}

TEST_F(SignAndReplicationTest, DatabasePathJoinsFolderSeparatorAndNameWithinTheBuffer) {
    char folder[] = "rpx";
    SignAndChangeReplicaDatabase(folder);
    EXPECT_TRUE(Logged("rpx\\rpmsg.nsf"));
    EXPECT_TRUE(Logged("rpx\\rplists.nsf"));

    std::string longFolder(300, 'f');
    SignAndChangeReplicaDatabase(&longFolder[0]);
    EXPECT_TRUE(Logged(longFolder.substr(0, 255))) << "the folder is cut to 255 bytes, nothing follows";
}

TEST_F(SignAndReplicationTest, GetAPIErrorReadsAtMostEightCharactersOfTheMaskedStatus) {
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen("rpx/no_such_database.nsf", &db);
    ASSERT_NE(status, NOERROR);
    char full[256] = {0};
    ASSERT_GT(OSLoadString(NULLHANDLE, ERR(status), full, sizeof full - 1), 8);

    char text[16];
    std::memset(text, '#', sizeof text);
    GetAPIError((unsigned short)(status | 0x8000), text);
    EXPECT_EQ(std::string(text), std::string(full, 8));
    EXPECT_EQ(text[9], '#');
}
