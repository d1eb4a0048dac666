// Notes: identifiers (note IDs, UNIDs, originator IDs), saving, conflicts,
// deletion, copies between databases, and handle misuse.
#include "PlatformTest.h"
#include "miscerr.h"
#include "nsferr.h"
#include "oserr.h"

namespace platform_test {
namespace {

TEST(PlatformNote, NewNoteGetsAnIdOnFirstSaveAndIdsAreNeverReused) {
	TestDb db("note_ids.nsf");
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	EXPECT_EQ(IdOf(note), 0u);
	WORD noteClass = 0;
	NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
	EXPECT_EQ(noteClass, NOTE_CLASS_DOCUMENT);
	ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID first = IdOf(note);
	EXPECT_NE(first, 0u);
	EXPECT_EQ(first % 4, 2u);  // note IDs are file positions: RRV-aligned
	NSFNoteClose(note);

	ASSERT_EQ(NSFNoteDelete(db, first, UPDATE_FORCE | UPDATE_NOSTUB), NOERROR);
	NOTEID second = AddDocument(db, {{"Form", "x"}});
	EXPECT_GT(second, first);
}

TEST(PlatformNote, UnidTextIsFileThenNoteEachHighWordFirst) {
	TestDb db("unid_text.nsf");
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	ORIGINATORID oid = OidOf(note);
	oid.File.Innards[1] = 0x852552F9;
	oid.File.Innards[0] = 0x001E96E4;
	oid.Note.Innards[1] = 0xC1256E39;
	oid.Note.Innards[0] = 0x0066396D;
	NSFNoteSetInfo(note, _NOTE_OID, &oid);
	ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);

	ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
	EXPECT_EQ(UnidText(OidOf(note)), "852552F9001E96E4C1256E390066396D");
	NSFNoteClose(note);

	UNID unid;
	unid.File = oid.File;
	unid.Note = oid.Note;
	ASSERT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &note), NOERROR);
	EXPECT_EQ(IdOf(note), id);
	NSFNoteClose(note);
	unid.Note.Innards[0] ^= 1;
	EXPECT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &note), ERR_NOT_FOUND);
}

TEST(PlatformNote, UpdateBumpsSequenceAndStaleRevisionsConflict) {
	TestDb db("conflict.nsf");
	NOTEID id = AddDocument(db, {{"Form", "Memo"}});
	NOTEHANDLE first, second;
	ASSERT_EQ(NSFNoteOpen(db, id, 0, &first), NOERROR);
	ASSERT_EQ(NSFNoteOpen(db, id, 0, &second), NOERROR);
	DWORD sequence = OidOf(first).Sequence;
	EXPECT_EQ(sequence, 1u);

	NSFItemSetText(first, "Subject", "first", MAXWORD);
	ASSERT_EQ(NSFNoteUpdate(first, 0), NOERROR);
	EXPECT_EQ(OidOf(first).Sequence, sequence + 1);

	NSFItemSetText(second, "Subject", "second", MAXWORD);
	EXPECT_EQ(NSFNoteUpdate(second, 0), ERR_CONFLICT);
	EXPECT_EQ(TextOf(db, id, "Subject"), "first");
	EXPECT_EQ(NSFNoteUpdate(second, UPDATE_FORCE), NOERROR);
	EXPECT_EQ(TextOf(db, id, "Subject"), "second");
	EXPECT_EQ(OidOf(second).Sequence, sequence + 2);
	NSFNoteClose(first);
	NSFNoteClose(second);
}

TEST(PlatformNote, DeletedNotesAreStubsThatCannotBeOpened) {
	TestDb db("delete.nsf");
	NOTEID id = AddDocument(db, {{"Form", "Memo"}});
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
	ORIGINATORID oid = OidOf(note);
	NSFNoteClose(note);
	ASSERT_EQ(NSFNoteDelete(db, id, UPDATE_FORCE), NOERROR);
	EXPECT_EQ(NSFNoteOpen(db, id, 0, &note), ERR_NOTE_DELETED);
	EXPECT_EQ(NSFNoteDelete(db, id, UPDATE_FORCE), ERR_NOTE_DELETED);
	EXPECT_EQ(NSFNoteOpen(db, id + 400, 0, &note), ERR_INVALID_NOTE);
	std::vector<Visit> visits;
	ASSERT_EQ(Search(db, NULLHANDLE, NOTE_CLASS_ALL, visits), NOERROR);
	for (const Visit& v : visits) EXPECT_NE(v.id, id);

	// A new note may take the UNID of a deletion stub.
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	NSFNoteSetInfo(note, _NOTE_OID, &oid);
	NSFItemSetText(note, "Form", "Again", MAXWORD);
	ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
	EXPECT_NE(IdOf(note), id);
	NSFNoteClose(note);
}

TEST(PlatformNote, NewNoteWithTheUnidOfALiveNoteIsRefused) {
	TestDb db("unid_clash.nsf");
	NOTEID id = AddDocument(db, {{"Form", "Memo"}});
	NOTEHANDLE original, copy;
	ASSERT_EQ(NSFNoteOpen(db, id, 0, &original), NOERROR);
	ASSERT_EQ(NSFNoteCopy(original, &copy), NOERROR);
	NSFNoteSetInfo(copy, _NOTE_ID, nullptr);
	// Documented only as "an error" for NOTEID_ADD; the emulator's code is ERR_CONFLICT.
	EXPECT_NE(NSFNoteUpdate(copy, UPDATE_FORCE), NOERROR);
	NOTEID replace = NOTEID_ADD_OR_REPLACE;
	NSFNoteSetInfo(copy, _NOTE_ID, &replace);
	NSFItemSetText(copy, "Form", "Replaced", MAXWORD);
	ASSERT_EQ(NSFNoteUpdate(copy, UPDATE_FORCE), NOERROR);
	EXPECT_EQ(IdOf(copy), id);
	EXPECT_EQ(TextOf(db, id, "Form"), "Replaced");
	NSFNoteClose(original);
	NSFNoteClose(copy);
}

TEST(PlatformNote, NoteCopyWithNewOidRecipeMakesASecondNote) {
	TestDb source("copy_recipe_source.nsf");
	TestDb target("copy_recipe_target.nsf");
	NOTEID id = AddDocument(source, {{"Form", "Policy"}, {"Name", "A"}});
	NOTEHANDLE note, copy;
	ASSERT_EQ(NSFNoteOpen(source, id, 0, &note), NOERROR);
	ASSERT_EQ(NSFNoteCopy(note, &copy), NOERROR);
	// The copy has the same header as its source.
	EXPECT_EQ(IdOf(copy), id);
	EXPECT_EQ(UnidText(OidOf(copy)), UnidText(OidOf(note)));
	DBHANDLE copyDb = NULLHANDLE;
	NSFNoteGetInfo(copy, _NOTE_DB, &copyDb);
	EXPECT_EQ(copyDb, source.handle());

	OID oid;
	ASSERT_EQ(NSFDbGenerateOID(target, &oid), NOERROR);
	NSFNoteSetInfo(copy, _NOTE_OID, &oid);
	NSFNoteSetInfo(copy, _NOTE_ID, nullptr);
	DBHANDLE targetHandle = target.handle();
	NSFNoteSetInfo(copy, _NOTE_DB, &targetHandle);
	ASSERT_EQ(NSFNoteUpdate(copy, UPDATE_FORCE), NOERROR);
	NOTEID newId = IdOf(copy);
	EXPECT_EQ(UnidText(OidOf(copy)), UnidText(oid));
	EXPECT_EQ(TextOf(target, newId, "Name"), "A");
	EXPECT_EQ(TextOf(source, id, "Name"), "A");
	NSFNoteClose(note);
	NSFNoteClose(copy);
}

TEST(PlatformNote, DbCopyNoteKeepsTheOidOnlyBetweenReplicas) {
	TestDb source("copynote_source.nsf");
	TestDb replica("copynote_replica.nsf");
	TestDb other("copynote_other.nsf");
	DBREPLICAINFO info;
	NSFDbReplicaInfoGet(source, &info);
	NSFDbReplicaInfoSet(replica, &info);
	NOTEID id = AddDocument(source, {{"Form", "dictionary"}});
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(source, id, 0, &note), NOERROR);
	std::string unid = UnidText(OidOf(note));
	NSFNoteClose(note);

	NOTEID replicaId = 0, otherId = 0;
	WORD noteClass = 0;
	ASSERT_EQ(NSFDbCopyNote(source, nullptr, nullptr, id, replica, nullptr, nullptr, &replicaId, &noteClass),
	          NOERROR);
	EXPECT_EQ(noteClass, NOTE_CLASS_DOCUMENT);
	ASSERT_EQ(NSFDbCopyNote(source, nullptr, nullptr, id, other, nullptr, nullptr, &otherId, nullptr), NOERROR);
	ASSERT_EQ(NSFNoteOpen(replica, replicaId, 0, &note), NOERROR);
	EXPECT_EQ(UnidText(OidOf(note)), unid);
	NSFNoteClose(note);
	ASSERT_EQ(NSFNoteOpen(other, otherId, 0, &note), NOERROR);
	EXPECT_NE(UnidText(OidOf(note)), unid);
	EXPECT_EQ(TextOf(other, otherId, "Form"), "dictionary");
	NSFNoteClose(note);

	ASSERT_EQ(NSFNoteDelete(source, id, UPDATE_FORCE), NOERROR);
	EXPECT_EQ(NSFDbCopyNote(source, nullptr, nullptr, id, other, nullptr, nullptr, &otherId, nullptr),
	          ERR_NOTE_DELETED);
}

TEST(PlatformNote, DbCopyNoteIntoAReplicaTakesTheUnidOfAStubButNeverMakesTwoLiveNotesOfIt) {
	TestDb source("copynote_stub_source.nsf");
	TestDb replica("copynote_stub_replica.nsf");
	DBREPLICAINFO info;
	NSFDbReplicaInfoGet(source, &info);
	NSFDbReplicaInfoSet(replica, &info);
	NOTEID sourceId = AddDocument(source, {{"Form", "dictionary"}, {"Version", "new"}});
	NOTEID firstCopy = 0;
	ASSERT_EQ(NSFDbCopyNote(source, nullptr, nullptr, sourceId, replica, nullptr, nullptr, &firstCopy, nullptr),
	          NOERROR);
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(replica, firstCopy, 0, &note), NOERROR);
	UNID unid{OidOf(note).File, OidOf(note).Note};
	NSFItemSetText(note, "Version", "old", MAXWORD);
	ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
	NSFNoteClose(note);

	// A second copy while the first is live: one live note of the UNID at most.
	NOTEID secondCopy = 0;
	if (NSFDbCopyNote(source, nullptr, nullptr, sourceId, replica, nullptr, nullptr, &secondCopy, nullptr) ==
	    NOERROR) {
		EMU_KNOWN_DIFFERENCE("undocumented: the emulator replaces the replica's live note of that UNID");
		std::vector<Visit> visits;
		ASSERT_EQ(Search(replica, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
		EXPECT_EQ(visits.size(), 1u);
	}

	// Deleted, the UNID's stub gives way to a copy, which gets a new note ID and is found by it.
	ASSERT_EQ(NSFNoteOpenByUNID(replica, &unid, 0, &note), NOERROR);
	NOTEID liveId = IdOf(note);
	NSFNoteClose(note);
	ASSERT_EQ(NSFNoteDelete(replica, liveId, UPDATE_FORCE), NOERROR);
	NOTEID thirdCopy = 0;
	ASSERT_EQ(NSFDbCopyNote(source, nullptr, nullptr, sourceId, replica, nullptr, nullptr, &thirdCopy, nullptr),
	          NOERROR);
	EXPECT_NE(thirdCopy, liveId);
	ASSERT_EQ(NSFNoteOpenByUNID(replica, &unid, 0, &note), NOERROR);
	EXPECT_EQ(IdOf(note), thirdCopy);
	NSFNoteClose(note);
	EXPECT_EQ(TextOf(replica, thirdCopy, "Version"), "new");
}

TEST(PlatformNote, ChosenUnidRecipeGivesTheCopyAnOldUnid) {
	TestDb db("chosen_unid.nsf");
	NOTEID oldId = AddDocument(db, {{"Form", "entity"}, {"Version", "old"}});
	NOTEID newId = AddDocument(db, {{"Form", "entity"}, {"Version", "new"}});
	NOTEHANDLE oldNote, newNote, copy;
	ASSERT_EQ(NSFNoteOpen(db, oldId, 0, &oldNote), NOERROR);
	ORIGINATORID wanted = OidOf(oldNote);
	NSFNoteClose(oldNote);
	ASSERT_EQ(NSFNoteDelete(db, oldId, UPDATE_FORCE), NOERROR);

	ASSERT_EQ(NSFNoteOpen(db, newId, 0, &newNote), NOERROR);
	ASSERT_EQ(NSFNoteCopy(newNote, &copy), NOERROR);
	ORIGINATORID oid = OidOf(copy);
	oid.File = wanted.File;
	oid.Note = wanted.Note;
	NSFNoteSetInfo(copy, _NOTE_OID, &oid);
	NSFNoteSetInfo(copy, _NOTE_ID, nullptr);
	ASSERT_EQ(NSFNoteUpdate(copy, UPDATE_FORCE), NOERROR);
	EXPECT_EQ(UnidText(OidOf(copy)), UnidText(wanted));
	NOTEID copyId = IdOf(copy);
	NSFNoteClose(copy);
	NSFNoteClose(newNote);
	ASSERT_EQ(NSFNoteDelete(db, newId, UPDATE_FORCE), NOERROR);

	UNID unid{wanted.File, wanted.Note};
	ASSERT_EQ(NSFNoteOpenByUNID(db, &unid, 0, &copy), NOERROR);
	EXPECT_EQ(IdOf(copy), copyId);
	char version[16];
	NSFItemGetText(copy, "Version", version, sizeof version);
	EXPECT_STREQ(version, "new");
	NSFNoteClose(copy);
}

TEST(PlatformNote, SavedNoteIsReadBackWhole) {
	TestDb db("transactional.nsf");
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	std::string big(20000, 'b');
	NSFItemSetText(note, "Form", "Memo", MAXWORD);
	NSFItemAppend(note, 0, "Body", 4, TYPE_TEXT, big.data(), big.size());
	NUMBER count = 3;
	NSFItemSetNumber(note, "Count", &count);
	NSFItemAppend(note, ITEM_SUMMARY, "Second", 6, TYPE_TEXT, "x", 1);
	ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);
	NSFDbClose(db.handle());

	DBHANDLE reopened;
	ASSERT_EQ(NSFDbOpen(db.path().c_str(), &reopened), NOERROR);
	ASSERT_EQ(NSFNoteOpen(reopened, id, 0, &note), NOERROR);
	std::vector<std::string> names;
	BLOCKID item;
	WORD type;
	DWORD length;
	ASSERT_EQ(NSFItemInfo(note, "Body", 4, &item, &type, nullptr, &length), NOERROR);
	EXPECT_EQ(length, big.size() + sizeof(WORD));
	NUMBER reread = 0;
	EXPECT_TRUE(NSFItemGetNumber(note, "Count", &reread));
	EXPECT_EQ(reread, 3);
	EXPECT_EQ(NSFItemInfo(note, "Second", 6, nullptr, nullptr, nullptr, nullptr), NOERROR);
	NSFNoteClose(note);
	NSFDbClose(reopened);
}

TEST(PlatformNote, TooMuchSummaryDataIsRefusedAndNothingIsWritten) {
	TestDb db("summary_limit.nsf");
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	std::string big(20000, 's');
	NSFItemSetText(note, "One", big.c_str(), static_cast<WORD>(big.size()));
	NSFItemSetText(note, "Two", big.c_str(), static_cast<WORD>(big.size()));
	EXPECT_EQ(NSFNoteUpdate(note, 0), ERR_SUMMARY_TOO_BIG);
	EXPECT_EQ(IdOf(note), 0u);
	NSFNoteClose(note);
	std::vector<Visit> visits;
	ASSERT_EQ(Search(db, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	EXPECT_TRUE(visits.empty());
}

TEST(PlatformNote, StaleZeroAndWrongKindHandlesGiveErrors) {
	NOTEHANDLE note = 1;
	EXPECT_NE(NSFNoteOpen(NULLHANDLE, 0x2102, 0, &note), NOERROR);
	EXPECT_EQ(note, static_cast<NOTEHANDLE>(NULLHANDLE));
	EXPECT_NE(NSFNoteClose(0x7FFFFFF0), NOERROR);
	EXPECT_NE(NSFDbClose(0x7FFFFFF0), NOERROR);

	DBHANDLE db;
	ASSERT_EQ(NSFDbCreate("tests/handles.nsf", DBCLASS_BY_EXTENSION, TRUE), NOERROR);
	ASSERT_EQ(NSFDbOpen("tests/handles.nsf", &db), NOERROR);
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	EXPECT_NE(NSFDbClose(note), NOERROR);          // a note handle is no database
	EXPECT_NE(NSFNoteUpdate(db, 0), NOERROR);       // and a database handle no note
	EXPECT_EQ(OSLockObject(note), nullptr);         // nor memory
	EXPECT_NE(OSMemFree(db), NOERROR);
	EXPECT_EQ(NSFItemGetText(db, "Form", nullptr, 0), 0);
	ASSERT_EQ(NSFNoteClose(note), NOERROR);
	EXPECT_NE(NSFNoteClose(note), NOERROR);         // stale
	ASSERT_EQ(NSFDbClose(db), NOERROR);
	EXPECT_NE(NSFDbClose(db), NOERROR);
	EXPECT_NE(NSFNoteCreate(db, &note), NOERROR);

	DHANDLE mem;
	ASSERT_EQ(OSMemAlloc(0, 1024, &mem), NOERROR);
	ASSERT_NE(OSLockObject(mem), nullptr);
	EXPECT_EQ(OSMemFree(mem), ERR_OS_STILL_LOCKED);
	EXPECT_TRUE(OSUnlockObject(mem));
	EXPECT_EQ(OSMemFree(mem), NOERROR);
	EXPECT_EQ(OSLockObject(mem), nullptr);
	EXPECT_NE(OSMemFree(mem), NOERROR);
}

TEST(PlatformNote, SignAddsASealedSignatureNamingTheServer) {
	TestDb db("sign.nsf");
	NOTEID id = AddDocument(db, {{"Form", "Memo"}});
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(db, id, OPEN_EXPAND, &note), NOERROR);
	WORD type;
	ASSERT_EQ(NSFItemInfo(note, "Form", 4, nullptr, &type, nullptr, nullptr), NOERROR);
	EXPECT_EQ(type, TYPE_TEXT_LIST);
	ASSERT_EQ(NSFNoteSign(note), NOERROR);
	ASSERT_EQ(NSFNoteContract(note), NOERROR);
	ASSERT_EQ(NSFItemInfo(note, "Form", 4, nullptr, &type, nullptr, nullptr), NOERROR);
	EXPECT_EQ(type, TYPE_TEXT);
	BLOCKID value;
	DWORD length;
	ASSERT_EQ(NSFItemInfo(note, "$Signature", 10, nullptr, &type, &value, &length), NOERROR);
	EXPECT_EQ(type, TYPE_SIGNATURE);
	const char* bytes = OSLockBlock(char, value);
	EXPECT_NE(std::string(bytes + sizeof(WORD), length - sizeof(WORD)).find(TestServerName()), std::string::npos);
	OSUnlockBlock(value);
	ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
	NSFNoteClose(note);
}

}  // namespace
}  // namespace platform_test
