// The obsolete-reference cleanup in process: the reference lists of the DLP documents lose the
// obsolete UNIDs, the template documents' rules get the replacing UNIDs, every rewritten list
// comes back sorted without duplicates, and documents of other forms are never touched.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "DlpTestSupport.h"

using namespace patch_test;
namespace fs = std::filesystem;

namespace {

using ObsoleteReferenceCleanupTest = DlpPlatformTest;

const char kGone1[] = "0000000000000000000000000000A001";
const char kGone2[] = "0000000000000000000000000000A002";
const char kKept1[] = "0000000000000000000000000000B001";
const char kKept2[] = "0000000000000000000000000000B002";
const char kOnlyInSet[] = "0000000000000000000000000000C001";

class CleanupTest : public ObsoleteReferenceCleanupTest {
protected:
    void SetUp() override {
        ObsoleteReferenceCleanupTest::SetUp();
        m_nsf_ObsoleteUNIDSet = {kGone1, kGone2, kOnlyInSet};
        m_nsf_ObsoleteUNIDMap = {{kGone1, kKept1}, {kGone2, kKept2}};
    }
    std::string Add(const std::string& form, std::vector<std::pair<std::string, TextList>> lists) {
        return AddDlpDoc(db_, {form, {{"name", form}}, std::move(lists), ""});
    }
};

TEST_F(CleanupTest, ReferenceListsLoseObsoleteEntriesAndComeBackSortedWithoutDuplicates) {
    std::string allObsolete = Add("dictionary", {{"ReferDocs", {kGone2, kGone1, kGone1}}, {"UseDocs", {kKept1}}});
    std::string mixed = Add("entity_type", {{"ReferDocs", {kKept2, kKept1, kKept2, kGone1}},
                                            {"UseDocs", {kOnlyInSet, "zeta", "alpha"}}});
    std::string noneObsolete = Add("region", {{"ReferDocs", {kKept2, kKept1, kKept2}}});
    std::string absent = Add("validator", {});

    ASSERT_EQ(RemoveObsoleteUNID(db_), NOERROR);

    StoredDoc doc = ReadDoc(db_, allObsolete);
    EXPECT_FALSE(doc.has("ReferDocs")) << "a list of only obsolete entries goes away";
    EXPECT_EQ(doc.list("UseDocs"), (TextList{kKept1}));
    doc = ReadDoc(db_, mixed);
    EXPECT_EQ(doc.list("ReferDocs"), (TextList{kKept1, kKept2}));
    EXPECT_EQ(doc.list("UseDocs"), (TextList{"alpha", "zeta"}));
    // Without an obsolete entry the list is not rewritten: its order and duplicates stay.
    EXPECT_EQ(ReadDoc(db_, noneObsolete).list("ReferDocs"), (TextList{kKept2, kKept1, kKept2}));
    doc = ReadDoc(db_, absent);
    EXPECT_FALSE(doc.has("ReferDocs"));
    EXPECT_FALSE(doc.has("UseDocs"));
}

TEST_F(CleanupTest, MatchRulesGetTheReplacingUnidAtTheFirstOccurrenceOnly) {
    const std::string twice = std::string("(") + kGone1 + ">=1) | (" + kGone1 + ">=2)";
    const std::string both = std::string(kGone2) + " & " + kGone1;
    const std::string setOnly = std::string("rule ") + kOnlyInSet;
    std::string rules = Add("template", {{"matchRule", {twice, "z-plain", both, "z-plain"}}});
    std::string unmapped = Add("template", {{"matchRule", {setOnly, "b", "a", "b"}}});
    std::string plain = Add("template", {{"matchRule", {"b rule", "a rule"}}});

    ASSERT_EQ(ReplaceObsoleteUNID(db_), NOERROR);

    EXPECT_EQ(ReadDoc(db_, rules).list("matchRule"),
              (TextList{std::string("(") + kKept1 + ">=1) | (" + kGone1 + ">=2)",
                        std::string(kKept2) + " & " + kKept1, "z-plain"}));
    // An obsolete UNID with no successor makes the list be rewritten unchanged but sorted.
    EXPECT_EQ(ReadDoc(db_, unmapped).list("matchRule"), (TextList{"a", "b", setOnly}));
    EXPECT_EQ(ReadDoc(db_, plain).list("matchRule"), (TextList{"b rule", "a rule"}));
}

TEST_F(CleanupTest, DocumentsOutsideTheSelectionsAreNeverTouched) {
    std::string policy = Add("Policy", {{"ReferDocs", {kGone1, kKept1}}, {"matchRule", {kGone1}}});
    std::string dictionary = Add("dictionary", {{"matchRule", {kGone1}}});
    NOTEID policyId = ReadDoc(db_, policy).id;
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db_, policyId, 0, &note), NOERROR);
    ORIGINATORID before;
    NSFNoteGetInfo(note, _NOTE_OID, &before);
    NSFNoteClose(note);

    RemoveObsoleteUNID(db_);
    ReplaceObsoleteUNID(db_);

    EXPECT_EQ(ReadDoc(db_, policy).list("ReferDocs"), (TextList{kGone1, kKept1}));
    EXPECT_EQ(ReadDoc(db_, policy).list("matchRule"), (TextList{kGone1}));
    ASSERT_EQ(NSFNoteOpen(db_, policyId, 0, &note), NOERROR);
    ORIGINATORID after;
    NSFNoteGetInfo(note, _NOTE_OID, &after);
    NSFNoteClose(note);
    EXPECT_EQ(after.Sequence, before.Sequence) << "not even saved";
    // matchRule is only rewritten in "template" documents.
    EXPECT_EQ(ReadDoc(db_, dictionary).list("matchRule"), (TextList{kGone1}));
}

TEST_F(CleanupTest, ListingsWriteTheCollectionsInOrder) {
    const fs::path logFolder = DataFolder() + "/rpxtemp";
    for (const auto& entry : fs::directory_iterator(logFolder)) fs::remove(entry.path());
    OutputObsoleteSet(m_nsf_ObsoleteUNIDSet);
    OutputSet(m_nsf_ObsoleteUNIDMap);
    std::string log;
    for (const auto& entry : fs::directory_iterator(logFolder)) {
        std::ifstream in(entry.path());
        log.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    std::vector<std::string> expected = {
        std::string("[module=1]:") + kGone1, std::string("[module=1]:") + kGone2,
        std::string("[module=1]:") + kOnlyInSet,
        std::string("[module=3]:\tgMap[\"") + kGone1 + "\"]=\"" + kKept1 + "\";",
        std::string("[module=3]:\tgMap[\"") + kGone2 + "\"]=\"" + kKept2 + "\";"};
    size_t from = 0;
    for (const std::string& line : expected) {
        size_t at = log.find(line + "\n", from);
        ASSERT_NE(at, std::string::npos) << line << "\nin:\n" << log;
        from = at + line.size();
    }
}

}  // namespace
