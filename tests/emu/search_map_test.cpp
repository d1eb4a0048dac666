// A search that reports matches only takes its batches from the connection's map of the notes once
// a walk has filled it, and reads only the notes the map cannot rule out. Whichever way it goes, it
// must report exactly what the full walk reports: here every search is compared with the full walk
// (the emulator's switch that also reports non-matches makes every search one) on databases with
// notes of every kind, changed at random between the searches.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "global.h"
#include "names.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsferr.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmem.h"
#include "emu/notesemu.h"

namespace {

std::string gServer;

class SearchMapServer : public ::testing::Environment {
public:
	void SetUp() override {
		char pattern[] = "/tmp/search_map_tests_XXXXXX";
		ASSERT_NE(mkdtemp(pattern), nullptr);
		gServer = pattern;
		ASSERT_EQ(mkdir((gServer + "/data").c_str(), 0755), 0);
		std::ofstream(gServer + "/notes.ini") << "[Notes]\nDirectory=" << gServer << "/data\n";
		std::string arg = "=" + gServer + "/notes.ini";
		char* argv[] = {const_cast<char*>("emu_tests"), &arg[0], nullptr};
		ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
	}
	void TearDown() override {
		NotesTerm();
		std::string command = "rm -rf '" + gServer + "'";
		if (std::system(command.c_str()) != 0) std::fprintf(stderr, "could not remove %s\n", gServer.c_str());
	}
};

const auto* const gEnvironment = ::testing::AddGlobalTestEnvironment(new SearchMapServer);

const std::string kLongForm(200, 'd');  // longer than any text the map keeps

FORMULAHANDLE Compile(const std::string& text) {
	FORMULAHANDLE formula = NULLHANDLE;
	WORD length, line, column, offset, errorLength;
	STATUS error;
	EXPECT_EQ(NSFFormulaCompile(nullptr, 0, text.c_str(), static_cast<WORD>(text.size()), &formula, &length, &error,
	                            &line, &column, &offset, &errorLength),
	          NOERROR)
	    << text;
	return formula;
}

struct Reported {
	NOTEID id;
	WORD noteClass;
	bool operator==(const Reported& o) const { return id == o.id && noteClass == o.noteClass; }
};

std::ostream& operator<<(std::ostream& out, const Reported& r) { return out << r.id << "/" << r.noteClass; }

STATUS LNCALLBACK CollectMatches(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	if (m.SERetFlags & SE_FMATCH) static_cast<std::vector<Reported>*>(param)->push_back({m.ID.NoteID, m.NoteClass});
	return NOERROR;
}

std::vector<Reported> Matches(DBHANDLE db, FORMULAHANDLE formula, WORD classMask, WORD flags, bool fullWalk) {
	std::vector<Reported> out;
	EmuSearchReportNonMatches(fullWalk ? TRUE : FALSE);
	EXPECT_EQ(NSFSearch(db, formula, nullptr, flags, classMask, nullptr, CollectMatches, &out, nullptr), NOERROR);
	EmuSearchReportNonMatches(FALSE);
	return out;
}

// Gives a note's Form one of the kinds of value a database may hold.
void SetRandomForm(NOTEHANDLE note, std::mt19937& random) {
	static const char* const kTexts[] = {"dictionary", "Dictionary", "DICTIONARY", "entity", "memo",
	                                     "",           "dictionary ", "Entit\x82",  "ENTIT\x90"};
	while (NSFItemDelete(note, "Form", 4) == NOERROR) {
	}
	NUMBER number = 7;
	switch (random() % 8) {
		case 0: break;  // none
		case 1:
			NSFItemAppendTextList(note, "Form", "memo", MAXWORD, FALSE);
			NSFItemAppendTextList(note, "Form", "entity", MAXWORD, FALSE);
			break;
		case 2: NSFItemSetNumber(note, "Form", &number); break;
		case 3: NSFItemAppend(note, 0, "Form", 4, TYPE_TEXT, "dictionary", 10); break;  // not summary
		case 4:  // the formula reads the first one
			NSFItemAppend(note, ITEM_SUMMARY, "FORM", 4, TYPE_TEXT, "memo", 4);
			NSFItemAppend(note, ITEM_SUMMARY, "Form", 4, TYPE_TEXT, "dictionary", 10);
			break;
		case 5: NSFItemSetText(note, "Form", kLongForm.c_str(), MAXWORD); break;
		default: NSFItemSetText(note, "Form", kTexts[random() % 9], MAXWORD); break;
	}
	NSFItemSetText(note, "Subject", random() % 2 ? "a" : "b", MAXWORD);
}

WORD RandomClass(std::mt19937& random) {
	static const WORD kClasses[] = {NOTE_CLASS_DOCUMENT, NOTE_CLASS_DOCUMENT, NOTE_CLASS_DOCUMENT,
	                                NOTE_CLASS_FORM, NOTE_CLASS_HELP, NOTE_CLASS_VIEW};
	return kClasses[random() % 6];
}

NOTEID AddRandomNote(DBHANDLE db, std::mt19937& random) {
	NOTEHANDLE note;
	EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
	WORD noteClass = RandomClass(random);
	NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);
	SetRandomForm(note, random);
	EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = 0;
	NSFNoteGetInfo(note, _NOTE_ID, &id);
	NSFNoteClose(note);
	return id;
}

// Rewrites, deletes (with or without a stub) or adds notes at random.
void ChangeAtRandom(DBHANDLE db, std::vector<NOTEID>& ids, std::mt19937& random, int changes) {
	for (int i = 0; i < changes; ++i) {
		size_t at = random() % ids.size();
		NOTEHANDLE note;
		switch (random() % 6) {
			case 0: NSFNoteDelete(db, ids[at], random() % 2 ? UPDATE_NOSTUB : 0); break;
			case 1: ids.push_back(AddRandomNote(db, random)); break;
			default:
				if (NSFNoteOpen(db, ids[at], 0, &note) != NOERROR) break;  // deleted before
				SetRandomForm(note, random);
				EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
				NSFNoteClose(note);
		}
	}
}

const std::vector<std::string>& Formulas() {
	static const std::vector<std::string> formulas = {
	    "",  // none
	    "Form=\"dictionary\"",
	    "Form=\"dictionary\" | FORM=\"Entity\"",
	    "Form=\"\"",
	    "form=\"MEMO\" : \"dictionary \"",
	    "Form=\"" + kLongForm + "\"",
	    "Form=\"entit\x82\"",
	    "Subject=\"a\"",
	    "Form=\"dictionary\" & Subject=\"a\"",
	    "@All",
	};
	return formulas;
}

void ExpectSameAsFullWalk(DBHANDLE db, const std::string& where) {
	const WORD masks[] = {NOTE_CLASS_DOCUMENT, NOTE_CLASS_ALL, NOTE_CLASS_HELP | NOTE_CLASS_FORM};
	const WORD flags[] = {0, SEARCH_DATAONLY_FORMULA};
	for (const std::string& text : Formulas()) {
		FORMULAHANDLE formula = text.empty() ? NULLHANDLE : Compile(text);
		for (WORD mask : masks) {
			for (WORD flag : flags) {
				// Twice: a walk fills the map, the next one uses it.
				std::vector<Reported> expected = Matches(db, formula, mask, flag, true);
				EXPECT_EQ(Matches(db, formula, mask, flag, false), expected)
				    << where << ": " << text << ", classes " << mask << ", flags " << flag;
				EXPECT_EQ(Matches(db, formula, mask, flag, false), expected)
				    << where << " (again): " << text << ", classes " << mask << ", flags " << flag;
			}
		}
		if (formula) OSMemFree(formula);
	}
}

TEST(SearchMap, EverySearchReportsWhatTheFullWalkReports) {
	for (unsigned seed : {1u, 2u}) {
		std::mt19937 random(seed);
		std::string path = "map_" + std::to_string(seed) + ".nsf";
		ASSERT_EQ(NSFDbCreate(path.c_str(), DBCLASS_NOTEFILE, FALSE), NOERROR);
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
		std::vector<NOTEID> ids;
		for (int i = 0; i < 2500; ++i) ids.push_back(AddRandomNote(db, random));
		ExpectSameAsFullWalk(db, "seed " + std::to_string(seed));
		ChangeAtRandom(db, ids, random, 300);
		ExpectSameAsFullWalk(db, "seed " + std::to_string(seed) + ", changed");
		NSFDbClose(db);
	}
}

// The walk that fills the map has its callback change notes behind and ahead of it, delete some and
// add new ones: the map it leaves must agree with the file.
struct ChangingWalk {
	DBHANDLE db;
	std::vector<NOTEID>& ids;
	std::mt19937& random;
};

STATUS LNCALLBACK ChangeOneNote(void* param, SEARCH_MATCH*, ITEM_TABLE*) {
	auto* walk = static_cast<ChangingWalk*>(param);
	ChangeAtRandom(walk->db, walk->ids, walk->random, 1);
	return NOERROR;
}

TEST(SearchMap, ChangesMadeWhileTheMapIsFilledAreKept) {
	std::mt19937 random(11);
	ASSERT_EQ(NSFDbCreate("map_filling.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("map_filling.nsf", &db), NOERROR);
	std::vector<NOTEID> ids;
	for (int i = 0; i < 2500; ++i) ids.push_back(AddRandomNote(db, random));
	NSFDbClose(db);
	ASSERT_EQ(NSFDbOpen("map_filling.nsf", &db), NOERROR);  // a connection without a map
	FORMULAHANDLE formula = Compile("Form=\"dictionary\" | Form=\"memo\"");
	ChangingWalk walk{db, ids, random};
	ASSERT_EQ(NSFSearch(db, formula, nullptr, 0, NOTE_CLASS_ALL, nullptr, ChangeOneNote, &walk, nullptr), NOERROR);
	OSMemFree(formula);
	ExpectSameAsFullWalk(db, "after the walk that filled the map");
	NSFDbClose(db);
}

// A search inside the callback, on another field, starts a map of its own; the outer walk goes on
// without one and still reports every match once.
struct NestedWalk {
	DBHANDLE db;
	FORMULAHANDLE inner;
	std::vector<Reported> seen;
	size_t innerMatches = 0;
};

STATUS LNCALLBACK SearchAgainInside(void* param, SEARCH_MATCH* match, ITEM_TABLE* summary) {
	auto* walk = static_cast<NestedWalk*>(param);
	if (walk->seen.empty())
		walk->innerMatches = Matches(walk->db, walk->inner, NOTE_CLASS_DOCUMENT, 0, false).size();
	return CollectMatches(&walk->seen, match, summary);
}

TEST(SearchMap, ASearchInsideTheCallbackDoesNotDisturbTheWalk) {
	std::mt19937 random(7);
	ASSERT_EQ(NSFDbCreate("map_nested.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("map_nested.nsf", &db), NOERROR);
	for (int i = 0; i < 3000; ++i) AddRandomNote(db, random);
	FORMULAHANDLE outer = Compile("Form=\"dictionary\"");
	FORMULAHANDLE inner = Compile("Subject=\"a\"");
	const std::vector<Reported> expected = Matches(db, outer, NOTE_CLASS_DOCUMENT, 0, true);
	const size_t innerExpected = Matches(db, inner, NOTE_CLASS_DOCUMENT, 0, true).size();
	for (int pass = 0; pass < 2; ++pass) {  // without a map, then with the outer field's map
		NestedWalk walk{db, inner, {}, 0};
		ASSERT_EQ(NSFSearch(db, outer, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, SearchAgainInside, &walk, nullptr),
		          NOERROR);
		EXPECT_EQ(walk.seen, expected) << "pass " << pass;
		EXPECT_EQ(walk.innerMatches, innerExpected) << "pass " << pass;
		Matches(db, outer, NOTE_CLASS_DOCUMENT, 0, false);
	}
	OSMemFree(outer);
	OSMemFree(inner);
	NSFDbClose(db);
}

// A design refresh that fails halfway (the database has no note IDs left) is rolled back: the
// design note it had already removed is back, and searches find it again.
TEST(SearchMap, ARolledBackChangeLeavesSearchesRight) {
	ASSERT_EQ(NSFDbCreate("map_design.ntf", DBCLASS_NOTEFILE, FALSE), NOERROR);
	ASSERT_EQ(NSFDbCreate("map_target.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
	DBHANDLE source, target;
	ASSERT_EQ(NSFDbOpen("map_design.ntf", &source), NOERROR);
	ASSERT_EQ(NSFDbOpen("map_target.nsf", &target), NOERROR);
	char info[NSF_INFO_SIZE] = "Design\n\n#1MapDesign";
	ASSERT_EQ(NSFDbInfoSet(source, info), NOERROR);
	std::snprintf(info, sizeof info, "Target\n\n#2MapDesign");
	ASSERT_EQ(NSFDbInfoSet(target, info), NOERROR);
	auto addForm = [](DBHANDLE db, const char* form) {
		NOTEHANDLE note;
		ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
		WORD noteClass = NOTE_CLASS_FORM;
		NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);
		NSFItemSetText(note, "Form", form, MAXWORD);
		ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
		NSFNoteClose(note);
	};
	addForm(source, "entity");
	addForm(source, "entity");
	addForm(target, "dictionary");
	FORMULAHANDLE formula = Compile("Form=\"dictionary\" | Form=\"entity\"");
	const std::vector<Reported> before = Matches(target, formula, NOTE_CLASS_ALL, 0, false);
	ASSERT_EQ(before.size(), 1u);
	// Room for one more note: the refresh removes the old design note, adds one and fails on the second.
	ASSERT_EQ(EmuDbSetNextNoteID(target, NOTEID_RESERVED - 4), NOERROR);
	ASSERT_EQ(EmuConsoleCommand("load design -f map_target.nsf"), NOERROR);
	EXPECT_EQ(Matches(target, formula, NOTE_CLASS_ALL, 0, false), before);
	EXPECT_EQ(Matches(target, formula, NOTE_CLASS_ALL, 0, true), before);
	OSMemFree(formula);
	NSFDbClose(source);
	NSFDbClose(target);
}

// A map outlives the connection and serves the next open of the same file, but only while the file
// is what the map was made from: not after another process changed it (and died with it open), nor
// after the file was replaced by a copy of another database or by an older copy of itself.
DBHANDLE OpenFilled(const std::string& path) {
	DBHANDLE db = NULLHANDLE;
	EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	FORMULAHANDLE formula = Compile("Form=\"dictionary\"");
	Matches(db, formula, NOTE_CLASS_ALL, 0, false);
	OSMemFree(formula);
	return db;
}

void ChangeInAChildThatDies(const std::string& path, unsigned seed) {
	pid_t child = fork();
	if (child == 0) {
		std::mt19937 random(seed);
		DBHANDLE db;
		if (NSFDbOpen(path.c_str(), &db) != NOERROR) _exit(1);
		std::vector<NOTEID> ids;
		for (int i = 0; i < 50; ++i) ids.push_back(AddRandomNote(db, random));
		ChangeAtRandom(db, ids, random, 400);
		_exit(0);
	}
	int status = -1;
	ASSERT_EQ(waitpid(child, &status, 0), child);
	ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(SearchMap, AMapKeptAtCloseServesOnlyTheFileItWasMadeFrom) {
	namespace fs = std::filesystem;
	const std::string data = gServer + "/data/";
	std::mt19937 random(21);
	std::vector<NOTEID> ids;
	for (const char* name : {"kept.nsf", "kept_other.nsf"}) {
		ASSERT_EQ(NSFDbCreate(name, DBCLASS_NOTEFILE, FALSE), NOERROR);
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(name, &db), NOERROR);
		for (int i = 0; i < 1500; ++i) ids.push_back(AddRandomNote(db, random));
		NSFDbClose(db);
	}
	ids.clear();
	NSFDbClose(OpenFilled("kept.nsf"));
	fs::copy_file(data + "kept.nsf", data + "kept_before.nsf");

	DBHANDLE db = OpenFilled("kept.nsf");  // unchanged: the map is taken back, then changed with the file
	ExpectSameAsFullWalk(db, "reopened");
	for (int i = 0; i < 20; ++i) ids.push_back(AddRandomNote(db, random));
	ChangeAtRandom(db, ids, random, 200);
	NSFDbClose(db);
	db = OpenFilled("kept.nsf");
	ExpectSameAsFullWalk(db, "reopened after changes");
	NSFDbClose(db);

	ChangeInAChildThatDies("kept.nsf", 5);
	db = OpenFilled("kept.nsf");
	ExpectSameAsFullWalk(db, "changed by a process that died");
	NSFDbClose(db);

	fs::copy_file(data + "kept_other.nsf", data + "kept.nsf", fs::copy_options::overwrite_existing);
	db = OpenFilled("kept.nsf");
	ExpectSameAsFullWalk(db, "replaced by another database");
	NSFDbClose(db);

	fs::copy_file(data + "kept_before.nsf", data + "kept.nsf", fs::copy_options::overwrite_existing);
	db = OpenFilled("kept.nsf");
	ExpectSameAsFullWalk(db, "replaced by an older copy");
	NSFDbClose(db);
}

}  // namespace
