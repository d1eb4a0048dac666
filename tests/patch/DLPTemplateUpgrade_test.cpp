// The DLP template upgrade in process, on a configuration database and a template that are
// replicas: missing documents copied in, pre-defined ones recreated under their old UNID with
// their old references, the administrator's documents and other forms left alone.
#include "DLPTemplateUpgrade.h"
#include "DlpTestSupport.h"

using namespace patch_test;

namespace {

using DLPTemplateUpgradeTest = DlpPlatformTest;

const char kOldCard[] = "852552F9001E96E4C1256E390066396D";
const char kNewCard[] = "11112222333344445555666677778888";
const char kRule[] = "AAAA0000BBBB0000CCCC0000DDDD0001";
const char kAdminTemplate[] = "AAAA0000BBBB0000CCCC0000DDDD0002";
const char kPciTemplate[] = "AAAA0000BBBB0000CCCC0000DDDD0003";

DlpDoc Dictionary(const std::string& name, const std::string& predefined, const std::string& keywords,
                  const std::string& unid = "") {
    DlpDoc doc{"dictionary", {{"name", name}, {"Keywords", keywords}}, {}, unid};
    if (!predefined.empty()) doc.texts.push_back({"pre-defined", predefined});
    return doc;
}

TEST_F(DLPTemplateUpgradeTest, PredefinedDocumentIsRecreatedUnderItsOldUnidWithItsOldReferences) {
    DlpDoc installed = Dictionary("Credit Card Numbers", "TRUE", "visa", kOldCard);
    installed.lists = {{"ReferDocs", {kRule, kAdminTemplate, kPciTemplate}}, {"UseDocs", {"OLD-USE"}}};
    AddDlpDoc(db_, installed);
    DlpDoc shipped = Dictionary("Credit Card Numbers", "true", "visa;mastercard;amex", kNewCard);
    shipped.lists = {{"ReferDocs", {kPciTemplate, "ZZZZ-FROM-TEMPLATE"}}};
    AddDlpDoc(template_, shipped);

    EXPECT_EQ(UpgradeDLPDocumentFromNTFtoNSF(template_, db_), NOERROR);

    std::vector<FoundDoc> docs = DocsNamed(db_, "dictionary", "Credit Card Numbers");
    ASSERT_EQ(docs.size(), 1u) << "one live document of the name";
    EXPECT_EQ(docs[0].unid, kOldCard);
    StoredDoc card = ReadDoc(db_, kOldCard);
    EXPECT_EQ(card.text("Keywords"), "visa;mastercard;amex");
    // The template's own entries first, then the old ones it lacks, in ascending order.
    EXPECT_EQ(card.list("ReferDocs"), (TextList{kPciTemplate, "ZZZZ-FROM-TEMPLATE", kRule, kAdminTemplate}));
    EXPECT_EQ(card.list("UseDocs"), (TextList{"OLD-USE"}));
    EXPECT_FALSE(ReadDoc(db_, kNewCard).found) << "the temporary copy is gone";

    EXPECT_EQ(m_nsf_ObsoleteUNIDSet, (std::set<std::string>{kNewCard}));
    EXPECT_EQ(m_nsf_ObsoleteUNIDMap, (std::map<std::string, std::string>{{kNewCard, kOldCard}}));
}

TEST_F(DLPTemplateUpgradeTest, AdministratorsDocumentsAreNeverTouchedWhateverTheirContent) {
    std::vector<std::string> unids;
    std::vector<NOTEID> ids;
    int n = 0;
    for (const char* predefined : {"", "false", "yes", "true "}) {
        std::string name = "Own " + std::to_string(n++);
        unids.push_back(AddDlpDoc(db_, Dictionary(name, predefined, "mine")));
        ids.push_back(ReadDoc(db_, unids.back()).id);
        AddDlpDoc(template_, Dictionary(name, "true", "shipped"));
    }

    UpgradeDLPDocumentFromNTFtoNSF(template_, db_);

    for (size_t i = 0; i < unids.size(); ++i) {
        StoredDoc doc = ReadDoc(db_, unids[i]);
        ASSERT_TRUE(doc.found) << i;
        EXPECT_EQ(doc.id, ids[i]) << i;
        EXPECT_EQ(doc.text("Keywords"), "mine") << i;
        EXPECT_EQ(DocsNamed(db_, "dictionary", "Own " + std::to_string(i)).size(), 1u) << i;
    }
    EXPECT_TRUE(m_nsf_ObsoleteUNIDSet.empty());
}

TEST_F(DLPTemplateUpgradeTest, MissingDocumentsOfEveryFormAreCopiedInUnderTheTemplatesUnid) {
    const char* forms[] = {"dictionary",  "entity",   "template", "dictionary_type",
                           "entity_type", "industry", "region",   "validator"};
    std::vector<std::string> unids;
    for (const char* form : forms) {
        unids.push_back(AddDlpDoc(template_, {form, {{"name", std::string("New ") + form}}, {}, ""}));
    }
    std::string policy = AddDlpDoc(template_, {"Policy", {{"name", "Shipped policy"}}, {}, ""});
    std::string unnamed = AddDlpDoc(template_, {"dictionary", {{"name", ""}, {"Keywords", "x"}}, {}, ""});

    UpgradeDLPDocumentFromNTFtoNSF(template_, db_);

    for (size_t i = 0; i < unids.size(); ++i) {
        StoredDoc doc = ReadDoc(db_, unids[i]);
        ASSERT_TRUE(doc.found) << forms[i];
        EXPECT_EQ(doc.text("Form"), forms[i]);
    }
    EXPECT_FALSE(ReadDoc(db_, policy).found) << "other forms are not copied";
    EXPECT_FALSE(ReadDoc(db_, unnamed).found) << "a document without a name is skipped";
    EXPECT_TRUE(m_nsf_ObsoleteUNIDSet.empty());
}

TEST_F(DLPTemplateUpgradeTest, SecondTemplateDocumentOfANameReplacesTheFirstsCopyUnderTheFirstsUnid) {
    const char first[] = "0000000000000000000000000000F001";
    const char second[] = "0000000000000000000000000000F002";
    AddDlpDoc(template_, {"entity", {{"name", "IBAN"}, {"pre-defined", "true"}, {"Pattern", "v1"}}, {}, first});
    AddDlpDoc(template_, {"entity", {{"name", "IBAN"}, {"pre-defined", "true"}, {"Pattern", "v2"}}, {}, second});

    UpgradeDLPDocumentFromNTFtoNSF(template_, db_);

    std::vector<FoundDoc> docs = DocsNamed(db_, "entity", "IBAN");
    ASSERT_EQ(docs.size(), 1u);
    EXPECT_EQ(docs[0].unid, first);
    EXPECT_EQ(ReadDoc(db_, first).text("Pattern"), "v2");
    EXPECT_EQ(m_nsf_ObsoleteUNIDMap, (std::map<std::string, std::string>{{second, first}}));
}

TEST_F(DLPTemplateUpgradeTest, NameMapKeepsTheFirstDocumentOfAName) {
    std::string firstUnid = AddDlpDoc(db_, Dictionary("Twice", "", "a"));
    AddDlpDoc(db_, Dictionary("Twice", "", "b"));
    AddDlpDoc(db_, Dictionary("", "", "no name"));
    AddDlpDoc(db_, {"entity", {{"name", "Other form"}}, {}, ""});
    DLPNameMap names;
    ASSERT_EQ(SearchFormDocByDatabase(db_, "dictionary", "name", names), NOERROR);
    EXPECT_EQ(names, (DLPNameMap{{"Twice", firstUnid}}));
}

}  // namespace
