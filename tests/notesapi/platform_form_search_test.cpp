// Form selections (Form = "a" | Form = "b") as the patch task runs them, several times on one open
// database while it changes: each search sees the notes as they are now, whatever kind of value
// their Form item has and however the notes were changed before or during the walk.
#include <algorithm>
#include <set>

#include "PlatformTest.h"
#include "nsferr.h"

namespace platform_test {
namespace {

using Ids = std::vector<NOTEID>;

NOTEID AddForm(DBHANDLE db, const char* form) { return AddDocument(db, {{"Form", form}, {"Subject", "s"}}); }

// Rewrites a note through its own note handle; `edit` changes the open note.
template <typename Edit>
void Change(DBHANDLE db, NOTEID id, Edit edit) {
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
	edit(note);
	EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NSFNoteClose(note);
}

// Creates a document whose items `fill` sets.
template <typename Fill>
NOTEID Add(DBHANDLE db, Fill fill) {
	NOTEHANDLE note;
	EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
	fill(note);
	EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);
	return id;
}

void SetForm(DBHANDLE db, NOTEID id, const char* form) {
	Change(db, id, [form](NOTEHANDLE note) { NSFItemSetText(note, "Form", form, MAXWORD); });
}

Ids Matches(DBHANDLE db, const char* formula) {
	FORMULAHANDLE f = Compile(formula);
	std::vector<Visit> visits;
	EXPECT_EQ(Search(db, f, NOTE_CLASS_DOCUMENT, visits), NOERROR) << formula;
	if (f) OSMemFree(f);
	Ids ids;
	for (const Visit& v : visits) {
		EXPECT_TRUE(v.flags & SE_FMATCH);
		ids.push_back(v.id);
	}
	return ids;
}

class PlatformFormSearch : public ::testing::Test {
protected:
	TestDb db_{"form_search.nsf"};
};

TEST_F(PlatformFormSearch, EveryKindOfFormValueIsJudgedByTheFormulaOnEverySearch) {
	const NOTEID lower = AddForm(db_, "dictionary");
	const NOTEID upper = AddForm(db_, "DICTIONARY");
	const NOTEID mixed = AddForm(db_, "Entity");
	const NOTEID spaced = AddForm(db_, "dictionary ");
	const NOTEID empty = AddForm(db_, "");
	const NOTEID noForm = AddDocument(db_, {{"Subject", "no form"}});
	const NOTEID list = Add(db_, [](NOTEHANDLE note) {
		NSFItemAppendTextList(note, "Form", "memo", MAXWORD, FALSE);
		NSFItemAppendTextList(note, "Form", "Dictionary", MAXWORD, FALSE);
	});
	const NOTEID number = Add(db_, [](NOTEHANDLE note) {
		NUMBER five = 5;
		NSFItemSetNumber(note, "Form", &five);
	});
	// Formulas see summary items only: a Form that is not one reads as absent.
	const NOTEID hidden =
	    Add(db_, [](NOTEHANDLE note) { NSFItemAppend(note, 0, "Form", 4, TYPE_TEXT, "dictionary", 10); });
	const NOTEID accented = AddForm(db_, "Entit\x82");  // LMBCS e-acute, not plain ASCII

	for (int round = 0; round < 3; ++round) {
		SCOPED_TRACE(round);
		EXPECT_EQ(Matches(db_, "Form=\"dictionary\""), (Ids{lower, upper, list}));
		EXPECT_EQ(Matches(db_, "Form=\"entity\" | FORM=\"DICTIONARY\""), (Ids{lower, upper, mixed, list}));
		EXPECT_EQ(Matches(db_, "Form=\"\""), (Ids{empty, noForm, hidden}));
		EXPECT_EQ(Matches(db_, "Form=\"memo\" | Form=\"dictionary \""), (Ids{spaced, list}));
		EXPECT_EQ(Matches(db_, "Form=5"), (Ids{number}));
		EXPECT_EQ(Matches(db_, "Form=\"ENTIT\x82\""), (Ids{accented}));
	}
}

TEST_F(PlatformFormSearch, ChangesThroughOtherHandlesAreSeenByTheNextSearch) {
	std::vector<NOTEID> ids;
	const char* forms[] = {"dictionary", "entity", "memo", "dictionary", "entity", "memo", "dictionary"};
	for (const char* form : forms) ids.push_back(AddForm(db_, form));
	const char* formula = "Form=\"dictionary\" | Form=\"entity\"";
	ASSERT_EQ(Matches(db_, formula), (Ids{ids[0], ids[1], ids[3], ids[4], ids[6]}));

	DBHANDLE other;
	ASSERT_EQ(NSFDbOpen(db_.path().c_str(), &other), NOERROR);
	SetForm(other, ids[0], "memo");
	SetForm(other, ids[2], "Dictionary");
	ASSERT_EQ(NSFNoteDelete(other, ids[1], 0), NOERROR);
	ASSERT_EQ(NSFNoteDelete(other, ids[3], UPDATE_NOSTUB), NOERROR);
	Change(other, ids[4], [](NOTEHANDLE note) {  // still entity, now a list
		NSFItemDelete(note, "Form", 4);
		NSFItemAppendTextList(note, "Form", "rule", MAXWORD, FALSE);
		NSFItemAppendTextList(note, "Form", "ENTITY", MAXWORD, FALSE);
	});
	Change(other, ids[6], [](NOTEHANDLE note) {  // no longer a summary item
		NSFItemDelete(note, "Form", 4);
		NSFItemAppend(note, 0, "Form", 4, TYPE_TEXT, "dictionary", 10);
	});
	const NOTEID added = AddForm(other, "ENTITY");
	NSFDbClose(other);

	EXPECT_EQ(Matches(db_, formula), (Ids{ids[2], ids[4], added}));
	EXPECT_EQ(Matches(db_, "Form=\"memo\""), (Ids{ids[0], ids[5]}));
}

TEST_F(PlatformFormSearch, AFailedUpdateLeavesTheSearchOnTheStoredNote) {
	const NOTEID id = AddForm(db_, "dictionary");
	ASSERT_EQ(Matches(db_, "Form=\"dictionary\""), (Ids{id}));
	NOTEHANDLE first, second;
	ASSERT_EQ(NSFNoteOpen(db_, id, 0, &first), NOERROR);
	ASSERT_EQ(NSFNoteOpen(db_, id, 0, &second), NOERROR);
	NSFItemSetText(first, "Form", "entity", MAXWORD);
	ASSERT_EQ(NSFNoteUpdate(first, 0), NOERROR);
	NSFItemSetText(second, "Form", "memo", MAXWORD);
	EXPECT_EQ(NSFNoteUpdate(second, 0), ERR_CONFLICT);  // opened before the first update was saved
	NSFNoteClose(first);
	NSFNoteClose(second);
	EXPECT_TRUE(Matches(db_, "Form=\"dictionary\" | Form=\"memo\"").empty());
	EXPECT_EQ(Matches(db_, "Form=\"entity\""), (Ids{id}));
}

// The callback changes notes the walk has not reached yet and adds new ones.
struct ChangingAhead {
	DBHANDLE db;
	NOTEID toMemo, toDelete, toDictionary;
	Ids seen;
	std::vector<std::string> formsSeen;
};

STATUS LNCALLBACK ChangeNotesAhead(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	auto* walk = static_cast<ChangingAhead*>(param);
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	walk->seen.push_back(m.ID.NoteID);
	walk->formsSeen.push_back(TextOf(walk->db, m.ID.NoteID, "Form"));
	if (walk->seen.size() == 1) {
		SetForm(walk->db, walk->toMemo, "memo");
		NSFNoteDelete(walk->db, walk->toDelete, 0);
		SetForm(walk->db, walk->toDictionary, "dictionary");
		AddForm(walk->db, "dictionary");
	}
	SetForm(walk->db, m.ID.NoteID, "entity");  // the visited note itself
	return NOERROR;
}

TEST_F(PlatformFormSearch, NotesChangedByTheCallbackAreReportedOnlyAsTheyAreNow) {
	Ids ids;
	for (int i = 0; i < 1500; ++i) ids.push_back(AddForm(db_, i % 3 == 0 ? "dictionary" : "memo"));
	const char* formula = "Form=\"dictionary\"";
	const Ids before = Matches(db_, formula);
	ChangingAhead walk{db_, ids[1497], ids[1494], ids[1499], {}, {}};
	FORMULAHANDLE f = Compile(formula);
	ASSERT_EQ(NSFSearch(db_, f, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, ChangeNotesAhead, &walk, nullptr), NOERROR);
	OSMemFree(f);
	EXPECT_EQ(std::set<NOTEID>(walk.seen.begin(), walk.seen.end()).size(), walk.seen.size()) << "a note twice";
	EXPECT_TRUE(std::is_sorted(walk.seen.begin(), walk.seen.end()));
	for (const std::string& form : walk.formsSeen) EXPECT_EQ(form, "dictionary");
	Ids expected;
	for (NOTEID id : before)
		if (id != ids[1497] && id != ids[1494]) expected.push_back(id);
	// The note turned into a dictionary may or may not be reached, depending on how far ahead the walk read.
	Ids seen = walk.seen;
	seen.erase(std::remove(seen.begin(), seen.end(), ids[1499]), seen.end());
	EXPECT_EQ(seen, expected);
	// Afterwards only the notes the callback left as dictionaries: the one it turned and the one it added.
	const Ids after = Matches(db_, formula);
	ASSERT_EQ(after.size(), walk.seen.size() == expected.size() ? 2u : 1u);
	EXPECT_GT(after.back(), ids.back());
}

// The callback opens every note it is given and, at the note before `ahead`, rewrites `ahead`
// through its own handle: when the walk reaches that note (read in the same batch), opening it
// shows the rewrite.
struct RewritingAhead {
	DBHANDLE db;
	NOTEID before, ahead;
	std::string subjectSeen;
	int visits = 0;
};

STATUS LNCALLBACK RewriteNoteAhead(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	auto* walk = static_cast<RewritingAhead*>(param);
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	++walk->visits;
	if (m.ID.NoteID == walk->before)
		Change(walk->db, walk->ahead, [](NOTEHANDLE note) { NSFItemSetText(note, "Subject", "rewritten", MAXWORD); });
	std::string subject = TextOf(walk->db, m.ID.NoteID, "Subject");
	if (m.ID.NoteID == walk->ahead) walk->subjectSeen = subject;
	return NOERROR;
}

TEST_F(PlatformFormSearch, ANoteRewrittenAheadOfTheWalkOpensAsRewritten) {
	Ids dictionaries;
	for (int i = 0; i < 3200; ++i) {
		NOTEID id = AddForm(db_, i % 2 == 0 ? "dictionary" : "memo");
		if (i % 2 == 0) dictionaries.push_back(id);
	}
	FORMULAHANDLE f = Compile("Form=\"dictionary\"");
	for (int pass = 0; pass < 3; ++pass) {  // the first search may fill the note map, later ones use it
		RewritingAhead walk{db_, dictionaries[1499 + pass], dictionaries[1500 + pass], {}};
		ASSERT_EQ(NSFSearch(db_, f, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, RewriteNoteAhead, &walk, nullptr), NOERROR);
		EXPECT_EQ(walk.visits, 1600);
		EXPECT_EQ(walk.subjectSeen, "rewritten") << "pass " << pass;
	}
	OSMemFree(f);
}

}  // namespace
}  // namespace platform_test
