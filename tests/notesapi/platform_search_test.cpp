// NSFSearch and selection formulas: what reaches the callback, formula
// rules (case, lists, logic), changes made from inside the callback, and
// summary buffers.
#include <algorithm>

#include "PlatformTest.h"
#include "emu/notesemu.h"  // emulator switch, used by one test below
#include "nsferr.h"
#include "osmem.h"

namespace platform_test {
namespace {

class PlatformSearch : public ::testing::Test {
protected:
	void SetUp() override {
		dictionary_ = AddDocument(db_, {{"Form", "dictionary"}, {"Name", "Credit cards"}});
		entity_ = AddDocument(db_, {{"Form", "Entity"}, {"Name", "IBAN"}});
		other_ = AddDocument(db_, {{"Form", "template"}, {"Name", "credit"}});
		NOTEHANDLE note;
		ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
		NSFItemAppendTextList(note, "Form", "rule", 4, FALSE);
		NSFItemAppendTextList(note, "Form", "dictionary", 10, FALSE);
		NUMBER count = 7;
		NSFItemSetNumber(note, "Count", &count);
		ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
		list_ = IdOf(note);
		NSFNoteClose(note);
	}

	std::vector<NOTEID> Matches(const char* formula) {
		FORMULAHANDLE f = Compile(formula);
		std::vector<Visit> visits;
		EXPECT_EQ(Search(db_, f, NOTE_CLASS_DOCUMENT, visits), NOERROR) << formula;
		if (f) OSMemFree(f);
		std::vector<NOTEID> ids;
		for (const Visit& v : visits) {
			EXPECT_TRUE(v.flags & SE_FMATCH);
			ids.push_back(v.id);
		}
		return ids;
	}

	TestDb db_{"search.nsf"};
	NOTEID dictionary_ = 0, entity_ = 0, other_ = 0, list_ = 0;
};

TEST_F(PlatformSearch, NoFormulaVisitsEveryNoteOfTheClassInIdOrder) {
	std::vector<Visit> visits;
	ASSERT_EQ(Search(db_, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	ASSERT_EQ(visits.size(), 4u);
	EXPECT_TRUE(std::is_sorted(visits.begin(), visits.end(),
	                           [](const Visit& a, const Visit& b) { return a.id < b.id; }));
	for (const Visit& v : visits) {
		EXPECT_EQ(v.noteClass, NOTE_CLASS_DOCUMENT);
		EXPECT_EQ(v.flags & SE_FMATCH, SE_FMATCH);
	}
	// The new database's ACL note is of another class.
	ASSERT_EQ(Search(db_, NULLHANDLE, NOTE_CLASS_ALLNONDATA, visits), NOERROR);
	ASSERT_EQ(visits.size(), 1u);
	EXPECT_EQ(visits[0].noteClass, NOTE_CLASS_ACL);
}

TEST_F(PlatformSearch, FormulaRulesForCaseListsAndLogic) {
	using Ids = std::vector<NOTEID>;
	// Field names and "=" on text ignore case.
	EXPECT_EQ(Matches("FORM=\"Dictionary\""), (Ids{dictionary_, list_}));
	// A list matches when any element does.
	EXPECT_EQ(Matches("Form=\"rule\""), (Ids{list_}));
	EXPECT_EQ(Matches("Form=\"dictionary\" | Form=\"entity\""), (Ids{dictionary_, entity_, list_}));
	EXPECT_EQ(Matches("SELECT Form=\"dictionary\" & Name=\"Credit cards\""), (Ids{dictionary_}));
	EXPECT_EQ(Matches("!(Form=\"dictionary\")"), (Ids{entity_, other_}));
	EXPECT_EQ(Matches("Count > 5"), (Ids{list_}));
	EXPECT_EQ(Matches("SELECT @All"), (Ids{dictionary_, entity_, other_, list_}));
	EXPECT_EQ(Matches("@Contains(Name; \"credit\")"), (Ids{other_}));
	EXPECT_TRUE(Matches("Form=\"nothing\"").empty());
}

TEST_F(PlatformSearch, CompileErrorsReportWhere) {
	FORMULAHANDLE f = 99;
	WORD length = 0, line = 0, column = 0, offset = 0, errorLength = 0;
	STATUS error = 0;
	const char* text = "Form=\"dictionary\" |";
	EXPECT_EQ(NSFFormulaCompile(nullptr, 0, text, static_cast<WORD>(std::strlen(text)), &f, &length, &error, &line,
	                            &column, &offset, &errorLength),
	          ERR_FORMULA_COMPILATION);
	EXPECT_EQ(f, static_cast<FORMULAHANDLE>(NULLHANDLE));
	EXPECT_NE(error, NOERROR);
	EXPECT_EQ(line, 1);
	EXPECT_GE(column, 1);
}

TEST_F(PlatformSearch, CompiledFormulaIsStoredAsAFormulaItem) {
	const char* text = "SELECT @All";
	FORMULAHANDLE f;
	WORD length = 0, line, column, offset, errorLength;
	STATUS error;
	ASSERT_EQ(NSFFormulaCompile(nullptr, 0, text, 11, &f, &length, &error, &line, &column, &offset, &errorLength),
	          NOERROR);
	DWORD size = 0;
	ASSERT_EQ(OSMemGetSize(f, &size), NOERROR);
	EXPECT_GE(size, length);
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
	void* bytes = OSLockObject(f);
	ASSERT_NE(bytes, nullptr);
	ASSERT_EQ(NSFItemAppend(note, ITEM_SUMMARY, "$ReplFormula", 12, TYPE_FORMULA, bytes, length), NOERROR);
	OSUnlockObject(f);
	EXPECT_EQ(OSMemFree(f), NOERROR);
	ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	WORD type;
	DWORD stored;
	ASSERT_EQ(NSFItemInfo(note, "$ReplFormula", 12, nullptr, &type, nullptr, &stored), NOERROR);
	EXPECT_EQ(type, TYPE_FORMULA);
	EXPECT_EQ(stored, length + sizeof(WORD));
	NSFNoteClose(note);
}

struct ChangingWalk {
	DBHANDLE db;
	std::vector<NOTEID> seen;
	NOTEID toDelete = 0;
};

STATUS LNCALLBACK UpdateDeleteAndCreate(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	auto* walk = static_cast<ChangingWalk*>(param);
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	walk->seen.push_back(m.ID.NoteID);
	NOTEHANDLE note;
	if (NSFNoteOpen(walk->db, m.ID.NoteID, 0, &note) != NOERROR) return NOERROR;
	NSFItemSetText(note, "Visited", "yes", MAXWORD);
	NSFNoteUpdate(note, UPDATE_FORCE);
	NSFNoteClose(note);
	if (walk->toDelete) {
		NSFNoteDelete(walk->db, walk->toDelete, UPDATE_FORCE);
		walk->toDelete = 0;
	}
	AddDocument(walk->db, {{"Form", "dictionary"}});
	return NOERROR;
}

TEST_F(PlatformSearch, ChangesMadeByTheCallbackDoNotDisturbTheWalk) {
	FORMULAHANDLE f = Compile("Form=\"dictionary\" | Form=\"entity\"");
	ChangingWalk walk{db_, {}, list_};
	ASSERT_EQ(NSFSearch(db_, f, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, UpdateDeleteAndCreate, &walk, nullptr),
	          NOERROR);
	OSMemFree(f);
	// Each note once, the one deleted during the walk not at all, the new ones not either.
	EXPECT_EQ(walk.seen, (std::vector<NOTEID>{dictionary_, entity_}));
	EXPECT_EQ(TextOf(db_, dictionary_, "Visited"), "yes");
	std::vector<Visit> visits;
	ASSERT_EQ(Search(db_, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	EXPECT_EQ(visits.size(), 3u + 2u);  // four less the deleted one, plus two new
}

struct GrowingWalk {
	DBHANDLE db;
	std::vector<NOTEID> seen;
};

STATUS LNCALLBACK AddANoteForTheFirstTen(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	auto* walk = static_cast<GrowingWalk*>(param);
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	walk->seen.push_back(m.ID.NoteID);
	if (walk->seen.size() <= 10) AddDocument(walk->db, {{"Form", "dictionary"}});
	return NOERROR;
}

// Long enough that the walk cannot have read every note before the first callback.
TEST(PlatformSearchLongWalk, NotesCreatedDuringTheWalkAreNotVisited) {
	TestDb db("long_walk.nsf");
	std::vector<NOTEID> before;
	for (int i = 0; i < 3000; ++i) before.push_back(AddDocument(db, {{"Form", "dictionary"}}));
	FORMULAHANDLE f = Compile("Form=\"dictionary\"");
	GrowingWalk walk{db, {}};
	ASSERT_EQ(NSFSearch(db, f, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, AddANoteForTheFirstTen, &walk, nullptr),
	          NOERROR);
	OSMemFree(f);
	EXPECT_EQ(walk.seen, before);
}

STATUS LNCALLBACK StopAtSecond(void* param, SEARCH_MATCH*, ITEM_TABLE*) {
	int* calls = static_cast<int*>(param);
	return ++*calls == 2 ? ERR_NOTE_DELETED : NOERROR;
}

TEST_F(PlatformSearch, ACallbackErrorEndsTheSearchWithThatStatus) {
	int calls = 0;
	EXPECT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, StopAtSecond, &calls, nullptr),
	          ERR_NOTE_DELETED);
	EXPECT_EQ(calls, 2);
}

struct SummaryCheck {
	int withBuffer = 0;
	std::string firstName;
};

STATUS LNCALLBACK ReadSummary(void* param, SEARCH_MATCH* match, ITEM_TABLE* summary) {
	auto* check = static_cast<SummaryCheck*>(param);
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	if (!summary) return NOERROR;
	++check->withBuffer;
	ITEM_TABLE table;
	std::memcpy(&table, summary, sizeof table);
	EXPECT_EQ(table.Length, m.SummaryLength);
	char name[64] = "";
	if (check->firstName.empty() && NSFGetSummaryValue(summary, "Name", name, sizeof name)) check->firstName = name;
	return NOERROR;
}

TEST_F(PlatformSearch, SummaryBufferOnlyWhenAskedFor) {
	SummaryCheck check;
	ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, ReadSummary, &check, nullptr),
	          NOERROR);
	EXPECT_EQ(check.withBuffer, 0);
	ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_DOCUMENT, nullptr, ReadSummary, &check,
	                    nullptr),
	          NOERROR);
	EXPECT_EQ(check.withBuffer, 4);
	EXPECT_EQ(check.firstName, "Credit cards");
}

TEST_F(PlatformSearch, NonMatchesAreReportedWhenAskedFor) {
	FORMULAHANDLE f = Compile("Form=\"entity\"");
	std::vector<Visit> visits;
	ASSERT_EQ(Search(db_, f, NOTE_CLASS_DOCUMENT, visits, SEARCH_ALL_VERSIONS), NOERROR);
	ASSERT_EQ(visits.size(), 4u);
	for (const Visit& v : visits) EXPECT_EQ((v.flags & SE_FMATCH) != 0, v.id == entity_);
	// The emulator's process-wide switch does the same without the flag.
	EmuSearchReportNonMatches(TRUE);
	ASSERT_EQ(Search(db_, f, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	EmuSearchReportNonMatches(FALSE);
	EXPECT_EQ(visits.size(), 4u);
	OSMemFree(f);
}

TEST_F(PlatformSearch, StaleHandlesAreRefused) {
	std::vector<Visit> visits;
	EXPECT_NE(Search(NULLHANDLE, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	FORMULAHANDLE f = Compile("@All");
	ASSERT_EQ(OSMemFree(f), NOERROR);
	EXPECT_NE(Search(db_, f, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
	EXPECT_NE(Search(db_, note, NOTE_CLASS_DOCUMENT, visits), NOERROR);  // a note is no formula
	NSFNoteClose(note);
}

}  // namespace
}  // namespace platform_test

namespace platform_test {
namespace {

struct ClosingWalk {
	DBHANDLE db;
	int calls = 0;
};

STATUS LNCALLBACK CloseTheDatabase(void* param, SEARCH_MATCH*, ITEM_TABLE*) {
	auto* walk = static_cast<ClosingWalk*>(param);
	++walk->calls;
	NSFDbClose(walk->db);
	return NOERROR;
}

TEST(PlatformSearchMisuse, ClosingTheSearchedDatabaseInTheCallbackEndsTheWalk) {
	DBHANDLE db;
	ASSERT_EQ(NSFDbCreate("tests/close_in_callback.nsf", DBCLASS_BY_EXTENSION, TRUE), NOERROR);
	ASSERT_EQ(NSFDbOpen("tests/close_in_callback.nsf", &db), NOERROR);
	AddDocument(db, {{"Form", "a"}});
	AddDocument(db, {{"Form", "b"}});
	ClosingWalk walk{db};
	EMU_KNOWN_DIFFERENCE("the real platform's behaviour here is undefined; the emulator stops with an error");
	EXPECT_NE(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CloseTheDatabase, &walk, nullptr),
	          NOERROR);
	EXPECT_EQ(walk.calls, 1);
}

TEST(PlatformSearchMisuse, OpenHandlesAreCountedForLeakReports) {
	// Emulator extension (emu/notesemu.h): the host reports handles left open.
	DWORD before = EmuOpenHandleCount();
	DBHANDLE db;
	ASSERT_EQ(NSFDbCreate("tests/handle_count.nsf", DBCLASS_BY_EXTENSION, TRUE), NOERROR);
	ASSERT_EQ(NSFDbOpen("tests/handle_count.nsf", &db), NOERROR);
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
	NSFItemSetText(note, "Form", "x", MAXWORD);
	BLOCKID value;
	ASSERT_EQ(NSFItemInfo(note, "Form", 4, nullptr, nullptr, &value, nullptr), NOERROR);  // item memory is the note's
	DHANDLE mem;
	ASSERT_EQ(OSMemAlloc(0, 16, &mem), NOERROR);
	EXPECT_EQ(EmuOpenHandleCount(), before + 3);
	EXPECT_NE(OSMemFree(value.pool), NOERROR);  // never freed by the caller
	OSMemFree(mem);
	NSFDbClose(db);  // takes the note with it
	EXPECT_EQ(EmuOpenHandleCount(), before);
	EXPECT_EQ(OSLockObject(value.pool), nullptr);
}

}  // namespace
}  // namespace platform_test
