// EmuDbBulkLoad, the emulator's grouped writing for tools that make databases: each update
// stays all-or-nothing inside a group, and everything reaches the file.
#include "PlatformTest.h"

#include "emu/notesemu.h"
#include "nsferr.h"

using namespace platform_test;

namespace {

NOTEID AddWithOid(DBHANDLE db, const ORIGINATORID& oid, STATUS& status) {
	NOTEHANDLE note;
	EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
	ORIGINATORID given = oid;
	NSFNoteSetInfo(note, _NOTE_OID, &given);
	NSFItemSetText(note, "Form", "Copy", MAXWORD);
	status = NSFNoteUpdate(note, 0);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);
	return id;
}

std::vector<NOTEID> DocumentsOf(const std::string& path) {
	DBHANDLE db;
	EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	std::vector<Visit> visits;
	EXPECT_EQ(Search(db, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	NSFDbClose(db);
	std::vector<NOTEID> ids;
	for (const Visit& visit : visits) ids.push_back(visit.id);
	return ids;
}

}  // namespace

TEST(PlatformBulkLoad, AFailedUpdateUndoesOnlyItselfAndTheRestReachesTheFile) {
	std::string path;
	NOTEID kept, stubbed, high;
	{
		TestDb db("bulk_failures.nsf");
		path = db.path();
		ASSERT_EQ(EmuDbBulkLoad(db, TRUE), NOERROR);
		kept = AddDocument(db, {{"Form", "Kept"}});
		NOTEHANDLE note;
		ASSERT_EQ(NSFNoteOpen(db, kept, 0, &note), NOERROR);
		ORIGINATORID keptOid = OidOf(note);
		NSFNoteClose(note);

		// Refused before it writes anything: a second live note with the same UNID.
		STATUS status;
		AddWithOid(db, keptOid, status);
		EXPECT_EQ(status, ERR_CONFLICT);

		// Refused after it removed a deletion stub: no note ID is left to give. The stub must
		// come back with the rest of the failed update undone.
		stubbed = AddDocument(db, {{"Form", "Stubbed"}});
		ASSERT_EQ(NSFNoteOpen(db, stubbed, 0, &note), NOERROR);
		ORIGINATORID stubOid = OidOf(note);
		NSFNoteClose(note);
		ASSERT_EQ(NSFNoteDelete(db, stubbed, 0), NOERROR);
		ASSERT_EQ(EmuDbSetNextNoteID(db, NOTEID_RESERVED - 4), NOERROR);
		high = AddDocument(db, {{"Form", "High"}});
		EXPECT_EQ(high, NOTEID_RESERVED - 4);
		AddWithOid(db, stubOid, status);
		EXPECT_EQ(status, ERR_NOTE_ID);
		ASSERT_EQ(NSFNoteOpen(db, stubbed, 0, &note), ERR_NOTE_DELETED) << "the stub was lost";
		EXPECT_EQ(EmuDbBulkLoad(db, FALSE), NOERROR);
	}
	EXPECT_EQ(DocumentsOf(path), (std::vector<NOTEID>{kept, high}));
}

TEST(PlatformBulkLoad, ClosingTheDatabaseWritesTheOpenGroup) {
	std::string path;
	std::vector<NOTEID> added;
	{
		TestDb db("bulk_close.nsf");
		path = db.path();
		ASSERT_EQ(EmuDbBulkLoad(db, TRUE), NOERROR);
		for (int i = 0; i < 3; ++i) added.push_back(AddDocument(db, {{"Form", "Memo"}}));
		EXPECT_EQ(TextOf(db, added[1], "Form"), "Memo");  // readable before the group is written
	}
	EXPECT_EQ(DocumentsOf(path), added);
}

// nsfdb keeps the note IDs a database description gives by moving the counter before each note.
TEST(PlatformBulkLoad, TheNoteIdCounterMovesOnlyForwardAndIsKeptWithTheGroup) {
	std::string path;
	{
		TestDb db("bulk_counter.nsf");
		path = db.path();
		ASSERT_EQ(EmuDbBulkLoad(db, TRUE), NOERROR);
		ASSERT_EQ(EmuDbSetNextNoteID(db, 0x3002), NOERROR);
		EXPECT_EQ(AddDocument(db, {{"Form", "A"}}), 0x3002u);
		EXPECT_EQ(EmuDbSetNextNoteID(db, 0x3002), ERR_NOTE_ID) << "an ID in use";
		EXPECT_EQ(EmuDbSetNextNoteID(db, 0x2802), ERR_NOTE_ID) << "backwards";
		ASSERT_EQ(EmuDbSetNextNoteID(db, 0x4002), NOERROR);
	}
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	EXPECT_EQ(EmuDbSetNextNoteID(db, 0x3802), ERR_NOTE_ID) << "the counter set in the group was lost";
	EXPECT_EQ(AddDocument(db, {{"Form", "B"}}), 0x4002u);
	NSFDbClose(db);
}
