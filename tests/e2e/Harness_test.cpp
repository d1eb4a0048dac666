// The harness's own reading of the console and the debug log, on fixed texts: the E2E tests
// compare messages exactly, so a stamp left on or a message split at its newline would make
// them fail for the wrong reason.
#include "E2eHarness.h"

using namespace e2e;

TEST(E2eHarness, DebugLogLinesKeepTheirLevelAndTheirOwnNewlines) {
    auto lines = ParseDebugLog(
        "[2026/11/23 10:00:00][pid=41][tid=-1219][module=1]:Info: start to set build number -'rpx/a.ntf'.\n"
        "\n"
        "[2026/11/23 10:00:01][pid=41][tid=7][module=0]:DB in use, waiting. Retry: 0.\n"
        "[2026/11/23 10:00:01][pid=41][tid=7][module=1a]:[x]:y\n");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].level, 1);
    EXPECT_EQ(lines[0].text, "Info: start to set build number -'rpx/a.ntf'.\n");
    EXPECT_EQ(lines[1].level, 0);
    EXPECT_EQ(lines[1].text, "DB in use, waiting. Retry: 0.");
    EXPECT_EQ(lines[2].level, 0x1a);
    EXPECT_EQ(lines[2].text, "[x]:y");
}

TEST(E2eHarness, ConsoleStampIsCutOnlyWhereThereIsOne) {
    EXPECT_EQ(WithoutConsoleStamp("11/23/2026 10:00:00  > tell rpxreal restart"), "> tell rpxreal restart");
    EXPECT_EQ(WithoutConsoleStamp("11/23/2026 10:00:00   two blanks kept after the stamp"), " two blanks kept after the stamp");
    EXPECT_EQ(WithoutConsoleStamp("no stamp here"), "no stamp here");
}

TEST(E2eHarness, ItemsAreFoundInBothJsonFormsWhateverTheCase) {
    Json note = Json::parse(R"({"class": "help", "items": {"buildnumber": {"type": "text", "value": "5.6.1.1"}}})");
    EXPECT_EQ(ItemText(note, "BuildNumber"), "5.6.1.1");
    Json repeated = Json::parse(R"({"class": "form", "items": [["$Body", "one"], ["$BODY", "two"]]})");
    EXPECT_EQ(ItemText(repeated, "$body"), "one");
    EXPECT_TRUE(ItemValue(repeated, "Missing").is_null());
    Json db{{"notes", {note, repeated}}};
    EXPECT_EQ(HelpBuildNumber(db), "5.6.1.1");
    EXPECT_EQ(NotesOfClass(db, "form").size(), 1u);
}
