// The steps the patch's searches share, against the emulated platform: how far the formula and
// item-text buffers are filled, which note a search callback opens, and the bounded status text.
#include <cstring>
#include <string>

#include "PatchTestServer.h"
#include "global.h"
#include "PatchRPX.h"
#include "nsferr.h"
#include "osmem.h"

using namespace patch_test;

namespace {

using NoteSearchStepsTest = PatchPlatformTest;

const char kFormula[] = "Form=\"Expression\"";

TEST_F(NoteSearchStepsTest, AFormulaIsCutToOneByteLessThanItsBufferBeforeItIsCompiled) {
    char roomy[32];
    FORMULAHANDLE compiled = NULLHANDLE;
    EXPECT_EQ(CompileNativeFormula(kFormula, sizeof kFormula - 1, roomy, sizeof roomy, &compiled), NOERROR);
    EXPECT_STREQ(roomy, kFormula);
    if (compiled != NULLHANDLE) OSMemFree(compiled);

    // Exactly as long as the text: the last byte ends it, so the closing quote is lost.
    char exact[sizeof kFormula - 1];
    compiled = NULLHANDLE;
    EXPECT_EQ(CompileNativeFormula(kFormula, sizeof kFormula - 1, exact, sizeof exact, &compiled),
              ERR_FORMULA_COMPILATION);
    EXPECT_EQ(std::string(exact), std::string(kFormula, sizeof kFormula - 2));
}

TEST_F(NoteSearchStepsTest, AnItemIsReadOnlyWhenPresentAndAlwaysEnded) {
    DBHANDLE db = FreshDatabase("steps.nsf");
    NOTEID id = AddNote(db, NOTE_CLASS_DOCUMENT, {{"Version", "1234567890"}});
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);

    char text[6];
    std::memset(text, 'x', sizeof text);
    EXPECT_FALSE(ReadPresentItemText(note, "Missing", text, sizeof text, sizeof text));
    EXPECT_EQ(std::string(text, sizeof text), "xxxxxx");  // untouched

    // The read limit, not the buffer, bounds the text; the platform counts the ending zero in it.
    EXPECT_TRUE(ReadPresentItemText(note, "Version", text, sizeof text, sizeof text));
    EXPECT_STREQ(text, "12345");
    EXPECT_TRUE(ReadPresentItemText(note, "Version", text, sizeof text, 3));
    EXPECT_STREQ(text, "12");
    NSFNoteClose(note);
    NSFDbClose(db);
}

TEST_F(NoteSearchStepsTest, TheMatchedNoteIsOpenedInTheDatabaseTheParameterRecordStartsWith) {
    DBHANDLE db = FreshDatabase("steps-match.nsf");
    AddNote(db, NOTE_CLASS_DOCUMENT, {{"Subject", "first"}});
    NOTEID second = AddNote(db, NOTE_CLASS_DOCUMENT, {{"Subject", "second"}});
    struct Record {
        DBHANDLE hDb;
        int other;
    } record{db, 7};

    SEARCH_MATCH selected = MatchFor(second);
    EXPECT_TRUE(IsSelectedMatch(&selected));
    SEARCH_MATCH notSelected = MatchFor(second, 0);
    EXPECT_FALSE(IsSelectedMatch(&notSelected));

    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(OpenMatchedNote(&record, &selected, &note), NOERROR);
    char subject[16] = "";
    NSFItemGetText(note, "Subject", subject, sizeof subject - 1);
    EXPECT_STREQ(subject, "second");
    NSFNoteClose(note);

    SEARCH_MATCH gone = MatchFor(second + 4000);
    EXPECT_NE(OpenMatchedNote(&record, &gone, &note), NOERROR);
    NSFDbClose(db);
}

TEST_F(NoteSearchStepsTest, AStatusTextIsEndedWithinASmallBuffer) {
    char full[256];
    LoadStatusText(ERR_FORMULA_COMPILATION, full, sizeof full);
    ASSERT_GT(std::strlen(full), 8u);

    char small[8];
    std::memset(small, 'x', sizeof small);
    LoadStatusText(ERR_FORMULA_COMPILATION, small, sizeof small);
    EXPECT_EQ(std::string(small), std::string(full, 7));
}

}  // namespace
