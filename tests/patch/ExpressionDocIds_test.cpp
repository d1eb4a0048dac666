// The expression fix-up of rpx/rpconf.nsf, in process: "DocID" set to the document's own UNID,
// "RefContent" linked to the predefined document of an expression that the table knows byte for
// byte, every Expression document saved, other forms left alone, and the table listed in the
// debug log whether or not the database exists.
#include "global.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ConfigMigration.h"
#include "PatchRunTestSupport.h"
#include "emu/notesemu.h"

using namespace patch_test;

namespace {

const char kConfigDb[] = "rpx/rpconf.nsf";
const std::string kHoaxUnid = "CCCD9A452EEE6AF248256E1600236933";
const std::string kChainLetterUnid = "9CA8289B72BE6CE848256E1600236921";
const std::string kScriptUnid = "48D8D19C551210C848256E1600236930";

class ExpressionDocIdsTest : public PatchRunTest {
protected:
    void SetUp() override {
        PatchRunTest::SetUp();
        db_ = FreshDatabase(kConfigDb);
    }
    void TearDown() override {
        if (db_ != NULLHANDLE) NSFDbClose(db_);
        PatchRunTest::TearDown();
    }

    // An Expression document; refContent, when given, is stored as a text list.
    NOTEID AddExpression(const std::string& expression, const std::string& docId,
                         const std::vector<std::string>& refContent = {}, const std::string& form = "Expression") {
        TextItems items{{"Form", form}, {"Expression", expression}};
        if (!docId.empty()) items.push_back({"DocID", docId});
        NOTEID id = AddNote(db_, NOTE_CLASS_DOCUMENT, items);
        if (!refContent.empty()) {
            NOTEHANDLE note = NULLHANDLE;
            EXPECT_EQ(NSFNoteOpen(db_, id, 0, &note), NOERROR);
            for (const std::string& entry : refContent) {
                NSFItemAppendTextList(note, "RefContent", entry.c_str(), (WORD)entry.size(), TRUE);
            }
            EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
            NSFNoteClose(note);
        }
        return id;
    }

    ORIGINATORID Oid(NOTEID id) {
        ORIGINATORID oid{};
        NOTEHANDLE note = NULLHANDLE;
        if (NSFNoteOpen(db_, id, 0, &note) == NOERROR) {
            NSFNoteGetInfo(note, _NOTE_OID, &oid);
            NSFNoteClose(note);
        }
        return oid;
    }

    std::string UnidText(NOTEID id) {
        ORIGINATORID oid = Oid(id);
        char text[33];
        std::snprintf(text, sizeof text, "%08X%08X%08X%08X", (unsigned)oid.File.Innards[1],
                      (unsigned)oid.File.Innards[0], (unsigned)oid.Note.Innards[1], (unsigned)oid.Note.Innards[0]);
        return text;
    }

    DWORD Sequence(NOTEID id) { return Oid(id).Sequence & OID_SEQNO_MASK; }

    std::vector<std::string> RefContent(NOTEID id) {
        std::vector<std::string> entries;
        NOTEHANDLE note = NULLHANDLE;
        if (NSFNoteOpen(db_, id, 0, &note) != NOERROR) return {"<note not found>"};
        WORD count = NSFItemGetTextListEntries(note, "RefContent");
        for (WORD i = 0; i < count; ++i) {
            char entry[256] = {0};
            WORD length = NSFItemGetTextListEntry(note, "RefContent", i, entry, sizeof entry - 1);
            entries.emplace_back(entry, length);
        }
        NSFNoteClose(note);
        return entries;
    }

    // The fix-up runs on its own handles: this one is closed while it works.
    STATUS RunFixUp() {
        NSFDbClose(db_);
        STATUS status = UpdateExpresionDocID();
        EXPECT_EQ(NSFDbOpen(kConfigDb, &db_), NOERROR);
        return status;
    }

    DBHANDLE db_ = NULLHANDLE;
};

struct LevelledMessage {
    int level;
    std::string text;
};

// The debug log's lines with the level of their "[module=..]" field.
std::vector<LevelledMessage> LevelledLog() {
    std::vector<LevelledMessage> lines;
    std::istringstream in(DebugLogText());
    for (std::string line; std::getline(in, line);) {
        size_t module = line.find("[module=");
        size_t end = module == std::string::npos ? std::string::npos : line.find("]:", module);
        if (end == std::string::npos) continue;
        int level = (int)std::stol(line.substr(module + 8, end - module - 8), nullptr, 16);
        lines.push_back({level, line.substr(end + 2)});
    }
    return lines;
}

std::vector<LevelledMessage> TableLines() {
    std::vector<LevelledMessage> table;
    for (const LevelledMessage& line : LevelledLog()) {
        if (line.text.rfind("\tgMap[", 0) == 0) table.push_back(line);
    }
    return table;
}

std::string TableLine(const std::string& key, const std::string& unid) {
    return "\tgMap[\"" + key + "\"]=\"" + unid + "\";";
}

}  // namespace

TEST_F(ExpressionDocIdsTest, DocIdBecomesTheOwnUnidAndKnownExpressionsGainTheirReference) {
    NOTEID stale = AddExpression("SandMan", "0123456789ABCDEF0123456789ABCDEF");
    NOTEID noDocId = AddExpression("this is not a joke", "", {"11111111111111111111111111111111"});
    NOTEID alreadyLinked = AddExpression("<html> .AND. <script .AND. </script .AND. text/html", "", {kScriptUnid});
    NOTEID unknown = AddExpression("quarterly figures", "");
    NOTEID current = AddExpression("quarterly results", "");
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db_, current, 0, &note), NOERROR);
    NSFItemSetText(note, "DocID", UnidText(current).c_str(), MAXWORD);
    NSFNoteUpdate(note, 0);
    NSFNoteClose(note);
    DWORD currentSequence = Sequence(current);

    ASSERT_EQ(RunFixUp(), NOERROR);

    EXPECT_EQ(ItemText(db_, stale, "DocID"), UnidText(stale));
    EXPECT_EQ(RefContent(stale), std::vector<std::string>{kHoaxUnid});
    EXPECT_EQ(ItemText(db_, noDocId, "DocID"), UnidText(noDocId));
    EXPECT_EQ(RefContent(noDocId), (std::vector<std::string>{"11111111111111111111111111111111", kChainLetterUnid}));
    EXPECT_EQ(RefContent(alreadyLinked), std::vector<std::string>{kScriptUnid});
    EXPECT_EQ(ItemText(db_, unknown, "DocID"), UnidText(unknown));
    EXPECT_FALSE(HasItem(db_, unknown, "RefContent"));

    // Nothing to change, and still saved.
    EXPECT_EQ(ItemText(db_, current, "DocID"), UnidText(current));
    EXPECT_FALSE(HasItem(db_, current, "RefContent"));
    EXPECT_GT(Sequence(current), currentSequence);

    // A second run adds nothing.
    ASSERT_EQ(RunFixUp(), NOERROR);
    EXPECT_EQ(RefContent(stale), std::vector<std::string>{kHoaxUnid});
    EXPECT_EQ(RefContent(noDocId), (std::vector<std::string>{"11111111111111111111111111111111", kChainLetterUnid}));
    EXPECT_EQ(RefContent(alreadyLinked), std::vector<std::string>{kScriptUnid});
    EXPECT_EQ(ItemText(db_, stale, "DocID"), UnidText(stale));
}

TEST_F(ExpressionDocIdsTest, AnExpressionMatchesItsKeyOnlyByteForByte) {
    std::vector<NOTEID> nearMisses = {
        AddExpression("sandman", ""),                                 // case
        AddExpression("SandMan ", ""),                                // a trailing blank
        AddExpression("JOIN THE CREW .AND. virus", ""),               // the key has two blanks
        AddExpression("virus .AND.  erase .NEAR. hard drive", ""),    // the key ends in a full stop
        AddExpression("erase .NEAR. IMEI and IMSI .AND. virus", ""),  // the key spells it "IMIE"
    };
    NOTEID exactTwoBlanks = AddExpression("JOIN THE CREW .AND.  virus", "");
    NOTEID exactFullStop = AddExpression("virus .AND.  erase .NEAR. hard drive.", "");
    NOTEID exactMisspelt = AddExpression("erase .NEAR. IMIE and IMSI .AND. virus", "");

    ASSERT_EQ(RunFixUp(), NOERROR);

    for (NOTEID id : nearMisses) {
        EXPECT_FALSE(HasItem(db_, id, "RefContent")) << ItemText(db_, id, "Expression");
        EXPECT_EQ(ItemText(db_, id, "DocID"), UnidText(id)) << "DocID is fixed whatever the expression";
    }
    for (NOTEID id : {exactTwoBlanks, exactFullStop, exactMisspelt}) {
        EXPECT_EQ(RefContent(id), std::vector<std::string>{kHoaxUnid}) << ItemText(db_, id, "Expression");
    }
}

TEST_F(ExpressionDocIdsTest, OtherFormsAreNeverTouchedEvenWhenTheSearchOffersThem) {
    NOTEID otherForm = AddExpression("SandMan", "0123456789ABCDEF0123456789ABCDEF", {}, "Expressions");
    NOTEID noForm = AddNote(db_, NOTE_CLASS_DOCUMENT, {{"Expression", "SandMan"}, {"DocID", "stale"}});
    NOTEID expression = AddExpression("SandMan", "stale");
    DWORD otherSequence = Sequence(otherForm);
    DWORD noFormSequence = Sequence(noForm);

    EmuSearchReportNonMatches(TRUE);  // the platform may offer non-matching notes, flagged as such
    STATUS status = RunFixUp();
    EmuSearchReportNonMatches(FALSE);
    ASSERT_EQ(status, NOERROR);

    EXPECT_EQ(ItemText(db_, otherForm, "DocID"), "0123456789ABCDEF0123456789ABCDEF");
    EXPECT_FALSE(HasItem(db_, otherForm, "RefContent"));
    EXPECT_EQ(Sequence(otherForm), otherSequence);
    EXPECT_EQ(ItemText(db_, noForm, "DocID"), "stale");
    EXPECT_EQ(Sequence(noForm), noFormSequence);
    EXPECT_EQ(ItemText(db_, expression, "DocID"), UnidText(expression));
}

TEST_F(ExpressionDocIdsTest, WithoutTheConfigurationDatabaseTheWholeTableIsStillListed) {
    NSFDbClose(db_);
    db_ = NULLHANDLE;
    ASSERT_EQ(NSFDbDelete(kConfigDb), NOERROR);

    ASSERT_EQ(UpdateExpresionDocID(), NOERROR);

    // Every row of the data file, in ascending byte order of the keys, at level 3.
    std::map<std::string, std::string> rows;
    std::ifstream data(EXPRESSION_TABLE_FILE, std::ios::binary);
    for (std::string line; std::getline(data, line);) {
        size_t tab = line.find('\t');
        ASSERT_NE(tab, std::string::npos) << line;
        rows[line.substr(0, tab)] = line.substr(tab + 1);
    }
    ASSERT_EQ(rows.size(), 80u);
    std::vector<std::string> expected;
    for (const auto& row : rows) expected.push_back(TableLine(row.first, row.second));

    std::vector<std::string> listed;
    for (const LevelledMessage& line : TableLines()) {
        EXPECT_EQ(line.level, 3) << line.text;
        listed.push_back(line.text);
    }
    EXPECT_EQ(listed, expected);
    // Rows whose exact bytes matter, as the shipped documents hold them.
    for (const char* key : {"An Internet flower for you .AND.  virus", "JOIN THE CREW .AND.  virus",
                            "virus .AND.  erase .NEAR. hard drive.", "erase .NEAR. IMIE and IMSI .AND. virus",
                            ".(. fictional company .NEAR. Internet Western Associates. .). .AND. anti-virus"}) {
        EXPECT_NE(std::find(listed.begin(), listed.end(), TableLine(key, kHoaxUnid)), listed.end()) << key;
    }
    EXPECT_NE(std::find(listed.begin(), listed.end(),
                        TableLine(".WILD. forward this * to as many * as you can", kChainLetterUnid)),
              listed.end());
    EXPECT_NE(std::find(listed.begin(), listed.end(),
                        TableLine("<html> .AND. <script .AND. </script .AND. text/html", kScriptUnid)),
              listed.end());
}
