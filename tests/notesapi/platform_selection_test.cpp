// Selection of one field against texts (Form = "a" | Form = "b", the search the product runs most)
// over notes whose Form is of every kind: cases, lists, absent, empty, a number, not a summary item,
// LMBCS text, deleted, of other classes. Written in several equivalent ways, the formula selects
// the same notes; "| @False" gives the plain rules to compare with.
#include <algorithm>
#include <tuple>

#include "PlatformTest.h"
#include "misc.h"

namespace platform_test {
namespace {

// A reported note as something gtest compares and prints: ID, class, flags.
using Report = std::tuple<NOTEID, WORD, int>;

STATUS LNCALLBACK CollectVisit(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	static_cast<std::vector<Report>*>(param)->emplace_back(m.ID.NoteID, m.NoteClass, m.SERetFlags);
	return NOERROR;
}

class PlatformSelection : public ::testing::Test {
protected:
	void SetUp() override {
		lower_ = AddDocument(db_, {{"Subject", "a"}, {"Form", "dictionary"}});
		upper_ = AddDocument(db_, {{"Form", "DICTIONARY"}});
		mixed_ = AddDocument(db_, {{"Name", "x"}, {"Subject", "y"}, {"Form", "EnTiTy"}});
		trailing_ = AddDocument(db_, {{"Form", "entity "}});
		other_ = AddDocument(db_, {{"Form", "rule"}});
		absent_ = AddDocument(db_, {{"Subject", "dictionary"}});
		empty_ = AddDocument(db_, {{"Form", ""}});
		accented_ = AddDocument(db_, {{"Form", "ENTIT\x90"}});  // LMBCS E-acute
		list_ = AddNote(NOTE_CLASS_DOCUMENT, [](NOTEHANDLE note) {
			NSFItemAppendTextList(note, "Form", "rule", 4, FALSE);
			NSFItemAppendTextList(note, "Form", "Entity", 6, FALSE);
		});
		number_ = AddNote(NOTE_CLASS_DOCUMENT, [](NOTEHANDLE note) {
			NUMBER five = 5;
			NSFItemSetNumber(note, "Form", &five);
		});
		hidden_ = AddNote(NOTE_CLASS_DOCUMENT, [](NOTEHANDLE note) {  // searches see summary items only
			NSFItemAppend(note, 0, "Form", 4, TYPE_TEXT, "dictionary", 10);
		});
		// A number whose bytes spell "template".
		spelled_ = AddNote(NOTE_CLASS_DOCUMENT, [](NOTEHANDLE note) {
			NUMBER number;
			std::memcpy(&number, "template", sizeof number);
			NSFItemSetNumber(note, "Form", &number);
		});
		design_ = AddNote(NOTE_CLASS_FORM,
		                  [](NOTEHANDLE note) { NSFItemSetText(note, "Form", "Entity", MAXWORD); });
		deleted_ = AddDocument(db_, {{"Form", "dictionary"}});
		EXPECT_EQ(NSFNoteDelete(db_, deleted_, 0), NOERROR);
	}

	template <typename Fill>
	NOTEID AddNote(WORD noteClass, Fill fill) {
		NOTEHANDLE note;
		EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
		NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);
		fill(note);
		EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
		NOTEID id = IdOf(note);
		NSFNoteClose(note);
		return id;
	}

	// Every note the search reports; with `since`, non-matches and deletions too.
	std::vector<Report> Run(const std::string& formula, WORD classMask, bool since) {
		FORMULAHANDLE f = Compile(formula.c_str());
		std::vector<Report> visits;
		TIMEDATE earliest;
		TimeConstant(TIMEDATE_MINIMUM, &earliest);
		const WORD flags = since ? SEARCH_NOTIFYDELETIONS : 0;
		EXPECT_EQ(NSFSearch(db_, f, nullptr, flags, classMask, since ? &earliest : nullptr, CollectVisit,
		                    &visits, nullptr),
		          NOERROR)
		    << formula;
		if (f) OSMemFree(f);
		return visits;
	}

	std::vector<NOTEID> Selected(const std::string& formula, WORD classMask) {
		std::vector<NOTEID> ids;
		for (const Report& r : Run(formula, classMask, false)) ids.push_back(std::get<0>(r));
		return ids;
	}

	TestDb db_{"selection.nsf"};
	NOTEID lower_ = 0, upper_ = 0, mixed_ = 0, trailing_ = 0, other_ = 0, absent_ = 0, empty_ = 0;
	NOTEID accented_ = 0, list_ = 0, number_ = 0, spelled_ = 0, hidden_ = 0, design_ = 0, deleted_ = 0;
};

TEST_F(PlatformSelection, FormAgainstTextsSelectsByTheTextRules) {
	using Ids = std::vector<NOTEID>;
	EXPECT_EQ(Selected("Form = \"dictionary\" | Form = \"entity\"", NOTE_CLASS_DOCUMENT),
	          (Ids{lower_, upper_, mixed_, list_}));
	EXPECT_EQ(Selected("Form = \"dictionary\" | Form = \"entity\"", NOTE_CLASS_DOCUMENT | NOTE_CLASS_FORM),
	          (Ids{lower_, upper_, mixed_, list_, design_}));
	// A missing Form, and one that is no summary item, read as the empty text.
	EXPECT_EQ(Selected("Form = \"\" | Form = \"rule\"", NOTE_CLASS_DOCUMENT),
	          (Ids{other_, absent_, empty_, list_, hidden_}));
	EXPECT_EQ(Selected("Form = \"entit\x82\"", NOTE_CLASS_DOCUMENT), (Ids{accented_}));
	// A number is no text, whatever its bytes look like.
	EXPECT_TRUE(Selected("Form = \"template\"", NOTE_CLASS_DOCUMENT).empty());
}

TEST_F(PlatformSelection, EquivalentFormulasSelectTheSameNotes) {
	const std::vector<std::pair<std::string, std::vector<std::string>>> groups = {
	    {"Form = \"dictionary\" | Form = \"entity\" | @False",
	     {"Form = \"dictionary\" | Form = \"entity\"", "\"ENTITY\" = form | FORM = \"Dictionary\"",
	      "SELECT (Form = \"entity\") | (Form = \"dictionary\")"}},
	    {"Form = \"\" | Form = \"rule\" | @False",
	     {"Form = \"rule\" | Form = \"\"", "\"\" = Form | \"RULE\" = Form"}},
	    {"Form = \"entit\x82\" | Form = \"dictionary \" | @False",
	     {"Form = \"entit\x82\" | Form = \"dictionary \""}},
	    {"Form = \"template\" | Form = \"rule\" | @False", {"Form = \"template\" | Form = \"rule\""}},
	};
	for (WORD classMask : {WORD{NOTE_CLASS_DOCUMENT}, WORD{NOTE_CLASS_DOCUMENT | NOTE_CLASS_FORM}}) {
		for (bool since : {false, true}) {
			for (const auto& group : groups) {
				const std::vector<Report> expected = Run(group.first, classMask, since);
				EXPECT_FALSE(expected.empty()) << group.first;
				for (const std::string& formula : group.second)
					EXPECT_EQ(Run(formula, classMask, since), expected)
					    << formula << " (class mask " << classMask << (since ? ", since" : "") << ")";
			}
		}
	}
	// The deleted note is reported as a deletion when asked for, never as a match.
	const std::vector<Report> all = Run("Form = \"dictionary\"", NOTE_CLASS_DOCUMENT, true);
	const auto stub =
	    std::find_if(all.begin(), all.end(), [&](const Report& r) { return std::get<0>(r) == deleted_; });
	ASSERT_NE(stub, all.end());
	EXPECT_TRUE(std::get<1>(*stub) & NOTE_CLASS_NOTIFYDELETION);
	EXPECT_FALSE(std::get<2>(*stub) & SE_FMATCH);
}

}  // namespace
}  // namespace platform_test
