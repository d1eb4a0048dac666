// The configuration migration's DLP upgrade and reference cleanup, end to end: a patch that ships
// rpconf.ntf makes the run upgrade the DLP documents of rpconf.nsf and put their references
// right; injected platform failures end the work on one document only.
#include <regex>

#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const char kReplicaId[] = "48257A11:00301777";

// Installed documents and their UNIDs.
const char kCardOld[] = "48257A1100301777C1256E390066A001";   // pre-defined, template has another UNID
const char kPci[] = "48257A1100301777C1256E390066A002";       // pre-defined, same UNID in the template
const char kIban[] = "48257A1100301777C1256E390066A003";      // pre-defined once, changed by the admin
const char kFalcon[] = "48257A1100301777C1256E390066B001";    // the administrator's dictionary
const char kFinance[] = "48257A1100301777C1256E390066B002";   // the administrator's template
// Template-only UNIDs.
const char kCardNew[] = "48257A1100301000C1256F0000000001";
const char kFinancial[] = "48257A1100301000C1256F0000000002";  // a dictionary type the database lacks
const char kEu[] = "48257A1100301000C1256F0000000003";         // a region the database lacks

Json Dlp(const std::string& unid, Json items) {
    Json note = Document(std::move(items));
    note["unid"] = unid;
    return note;
}

std::string Rule(const std::string& first, const std::string& second) {
    return first + ">=3 & " + second + ">=1";
}

Json InstalledConfiguration() {
    Json db = ProductDatabase("Configuration", 3001);
    db["replicaId"] = kReplicaId;
    db["inheritFrom"] = "RPXConfig";
    db["notes"].push_back(Dlp(kCardOld, {{"Form", "dictionary"}, {"name", "Credit Card Numbers"},
                                         {"pre-defined", "true"}, {"Keywords", "visa;mastercard"},
                                         {"ReferDocs", {kPci, kFinance}}}));
    db["notes"].push_back(Dlp(kPci, {{"Form", "template"}, {"name", "PCI-DSS"}, {"pre-defined", "TRUE"},
                                     {"UseDocs", {kCardOld, kIban}}, {"matchRule", {Rule(kCardOld, kIban)}}}));
    db["notes"].push_back(Dlp(kIban, {{"Form", "entity"}, {"name", "IBAN"}, {"pre-defined", "false"},
                                      {"Pattern", "DE[0-9]{20}"}, {"ReferDocs", {kPci}}}));
    db["notes"].push_back(Dlp(kFalcon, {{"Form", "dictionary"}, {"name", "Project Falcon"},
                                        {"Keywords", "falcon;raptor"}, {"ReferDocs", {kFinance}}}));
    db["notes"].push_back(Dlp(kFinance, {{"Form", "template"}, {"name", "Finance outbound"},
                                         {"UseDocs", {kCardOld, kFalcon}}, {"matchRule", {Rule(kCardOld, kFalcon)}}}));
    return db;
}

Json ShippedTemplate() {
    Json db = ProductTemplate("Configuration Template", "RPXConfig", 3100, "config");
    db["replicaId"] = kReplicaId;
    db["notes"].push_back(Dlp(kCardNew, {{"Form", "dictionary"}, {"name", "Credit Card Numbers"},
                                         {"pre-defined", "true"}, {"Keywords", "visa;mastercard;amex;discover"},
                                         {"ReferDocs", {kPci}}}));
    db["notes"].push_back(Dlp(kPci, {{"Form", "template"}, {"name", "PCI-DSS"}, {"pre-defined", "true"},
                                     {"UseDocs", {kCardNew, kIban}}, {"matchRule", {Rule(kCardNew, kIban)}}}));
    db["notes"].push_back(Dlp(kIban, {{"Form", "entity"}, {"name", "IBAN"}, {"pre-defined", "true"},
                                      {"Pattern", "[A-Z]{2}[0-9]{2}[A-Z0-9]{11,30}"}}));
    db["notes"].push_back(Dlp(kFinancial, {{"Form", "dictionary_type"}, {"name", "Financial Data"},
                                           {"pre-defined", "true"}, {"UseDocs", {kCardNew, kIban}}}));
    db["notes"].push_back(Dlp(kEu, {{"Form", "region"}, {"name", "European Union"}, {"pre-defined", "true"}}));
    return db;
}

Json MigrationScenario(const Json& configuration, const Json& shippedTemplate) {
    Json scenario = BaseScenario(PatchIniShipping("rpconf.ntf"));
    scenario["data"]["rpx/rpconf.nsf"] = configuration;
    scenario["install"][kPatch + "/rpconf.ntf"] = shippedTemplate;
    return scenario;
}

// The live document of a dump with this UNID; null when there is none.
Json NoteByUnid(const Json& db, const std::string& unid) {
    for (const Json& note : NotesOfClass(db, "document")) {
        if (note.value("unid", "") == unid) return note;
    }
    return Json();
}

std::vector<Json> NotesNamed(const Json& db, const std::string& name) {
    std::vector<Json> notes;
    for (const Json& note : NotesOfClass(db, "document")) {
        if (ItemText(note, "name") == name) notes.push_back(note);
    }
    return notes;
}

Json List(std::vector<std::string> entries) {
    return Json(entries);
}

// Whether a whole message matches pattern.
bool LoggedMatching(const std::vector<std::string>& messages, const std::string& pattern) {
    const std::regex expression(pattern);
    for (const std::string& message : messages) {
        if (std::regex_match(message, expression)) return true;
    }
    return false;
}

}  // namespace

TEST(DLPUpgradeRun, PredefinedDocumentsKeepTheirUnidsAndReferencesWhileTheAdministratorsStayAsTheyWere) {
    E2eServer server;
    ASSERT_TRUE(server.Create(MigrationScenario(InstalledConfiguration(), ShippedTemplate())));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    Json db = server.Dump("rpx/rpconf.nsf");

    // Replaced under its old UNID: the template's content, its references then the old ones.
    Json card = NoteByUnid(db, kCardOld);
    ASSERT_FALSE(card.is_null());
    EXPECT_EQ(ItemText(card, "Keywords"), "visa;mastercard;amex;discover");
    EXPECT_EQ(ItemValue(card, "ReferDocs"), List({kPci, kFinance}));
    EXPECT_TRUE(NoteByUnid(db, kCardNew).is_null());
    EXPECT_EQ(NotesNamed(db, "Credit Card Numbers").size(), 1u);

    // Recreated with the same UNID; the references to the replaced document name the old UNID.
    Json pci = NoteByUnid(db, kPci);
    EXPECT_EQ(ItemValue(pci, "UseDocs"), List({kCardOld, kIban}));
    EXPECT_EQ(ItemValue(pci, "matchRule"), List({Rule(kCardOld, kIban)}));

    // The administrator's documents, and the pre-defined one they changed, are as they were.
    EXPECT_EQ(ItemText(NoteByUnid(db, kIban), "Pattern"), "DE[0-9]{20}");
    EXPECT_EQ(ItemValue(NoteByUnid(db, kFalcon), "Keywords"), "falcon;raptor");
    Json finance = NoteByUnid(db, kFinance);
    EXPECT_EQ(ItemValue(finance, "UseDocs"), List({kCardOld, kFalcon}));
    EXPECT_EQ(ItemValue(finance, "matchRule"), List({Rule(kCardOld, kFalcon)}));

    // Copied in with the template's UNIDs; the obsolete reference is dropped.
    EXPECT_EQ(ItemValue(NoteByUnid(db, kFinancial), "UseDocs"), List({kIban}));
    EXPECT_EQ(ItemText(NoteByUnid(db, kEu), "Form"), "region");

    auto messages = server.DebugMessages();
    ExpectInOrder(messages, {"UpgradeDLPDocumentFromNTFtoNSF IN",
                             "===========dictionary start==============",
                             "Credit Card Numbers is find in nsf, it is predefine",
                             "Credit Card Numbers is used by any rule or template, try to delete and recreate",
                             "The UNID is different, need action!",
                             "Update form documents: dictionary  success ",
                             "===========entity start==============",
                             "IBAN is find in nsf, it is NOT predefine",
                             "===========template start==============",
                             "PCI-DSS is NOT used by any rule or template, try to delete and recreate",
                             "not find Financial Data, add to nsf",
                             "not find European Union, add to nsf",
                             "===========validator end==============",
                             "===========ObsoleteUNIDSet start==============",
                             kCardNew,
                             "===========ObsoleteUNIDSet end==============",
                             std::string("RemoveTextListfield: Remove the Obsolete UNID ") + kCardNew +
                                 " from UseDocs in doc: " + kPci + "!",
                             "new oristr=" + Rule(kCardOld, kIban)});
    EXPECT_EQ(CountOf(messages, "The UNID is different, need action!"), 1u);
    EXPECT_EQ(IndexOf(messages, "m_nsf_ObsoleteUNIDSet is NULL, so happy!"), messages.size());
}

TEST(DLPUpgradeRun, FailureOfOnePlatformCallEndsTheWorkOnThatDocumentOnly) {
    const char copyFails[] = "0000000000000000000000000000C0A1";
    const char deleteFails[] = "0000000000000000000000000000D0A1";
    const char deleteFailsNew[] = "0000000000000000000000000000D0B1";
    const char updateFails[] = "0000000000000000000000000000E0A1";
    const char updateFailsNew[] = "0000000000000000000000000000E0B1";
    const char appendFails[] = "0000000000000000000000000000F0A1";
    const char appendFailsNew[] = "0000000000000000000000000000F0B1";
    const char fine[] = "00000000000000000000000000009A01";
    const char fineNew[] = "00000000000000000000000000009B01";
    Json configuration = ProductDatabase("Configuration", 3001);
    configuration["replicaId"] = kReplicaId;
    Json shipped = ProductTemplate("Configuration Template", "RPXConfig", 3100, "config");
    shipped["replicaId"] = kReplicaId;
    shipped["notes"].push_back(Dlp(copyFails, {{"Form", "dictionary"}, {"name", "Copy fails"}}));
    auto both = [&](const char* installed, const char* fresh, const std::string& name) {
        configuration["notes"].push_back(Dlp(installed, {{"Form", "entity"}, {"name", name}, {"pre-defined", "true"},
                                                         {"Version", "old"}, {"ReferDocs", {"OLD-REFERENCE"}}}));
        shipped["notes"].push_back(Dlp(fresh, {{"Form", "entity"}, {"name", name}, {"pre-defined", "true"},
                                               {"Version", "new"}, {"ReferDocs", {"NEW-REFERENCE"}}}));
    };
    both(deleteFails, deleteFailsNew, "Delete fails");
    both(updateFails, updateFailsNew, "Update fails");
    both(appendFails, appendFailsNew, "Append fails");
    both(fine, fineNew, "Fine");
    Json scenario = MigrationScenario(configuration, shipped);
    const int denied = 582;
    scenario["server"]["faults"] = {
        {{"call", "NSFDbCopyNote"}, {"path", "rpx/rpconf.ntf"}, {"unid", copyFails}, {"status", denied}},
        {{"call", "NSFNoteDelete"}, {"path", "rpx/rpconf.nsf"}, {"unid", deleteFails}, {"status", denied}},
        {{"call", "NSFNoteUpdate"}, {"path", "rpx/rpconf.nsf"}, {"unid", updateFailsNew}, {"status", denied},
         {"count", 1}},
        {{"call", "NSFItemAppendTextList"}, {"path", "rpx/rpconf.nsf"}, {"unid", appendFailsNew},
         {"status", denied}, {"count", 1}}};
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    Json db = server.Dump("rpx/rpconf.nsf");
    auto messages = server.DebugMessages();

    EXPECT_TRUE(LoggedMatching(messages, R"(NSFDbCopyNote error\. old notesid=\d+, sError is 582, czErrorMessage is .+\.\.\.)"));
    EXPECT_TRUE(NotesNamed(db, "Copy fails").empty());

    EXPECT_TRUE(LoggedMatching(messages,
                               R"(Delete original dlp template error\. notesid=\d+, sError is 582, czErrorMessage is .+\.\.\.)"));
    EXPECT_EQ(ItemText(NoteByUnid(db, deleteFails), "Version"), "old") << "left as it was";
    EXPECT_TRUE(NoteByUnid(db, deleteFailsNew).is_null());

    // Nothing is rolled back: the original is gone and the template's copy stays as copied.
    EXPECT_TRUE(LoggedMatching(messages, R"(NSFNoteUpdate error\. sError is 582, czErrorMessage is .+\.\.\.)"));
    EXPECT_TRUE(NoteByUnid(db, updateFails).is_null());
    EXPECT_EQ(ItemValue(NoteByUnid(db, updateFailsNew), "ReferDocs"), List({"NEW-REFERENCE"}));

    EXPECT_TRUE(LoggedMatching(messages, R"(NSFItemAppendTextList error\. sError is 582, czErrorMessage is .+\.\.\.)"));
    EXPECT_TRUE(NoteByUnid(db, appendFails).is_null());
    EXPECT_EQ(ItemValue(NoteByUnid(db, appendFailsNew), "ReferDocs"), List({"NEW-REFERENCE"}));

    // The walk went on: the last document was replaced under its old UNID.
    Json fineNote = NoteByUnid(db, fine);
    EXPECT_EQ(ItemText(fineNote, "Version"), "new");
    EXPECT_EQ(ItemValue(fineNote, "ReferDocs"), List({"NEW-REFERENCE", "OLD-REFERENCE"}));
    ExpectInOrder(messages, {"===========ObsoleteUNIDSet start==============", fineNew,
                             "===========ObsoleteUNIDSet end=============="});
    EXPECT_EQ(Slice(messages, "===========ObsoleteUNIDSet start==============",
                    "===========ObsoleteUNIDSet end==============").size(), 3u);
}

TEST(DLPUpgradeRun, TemplateThatIsNotAReplicaGivesCopiesNewUnids) {
    Json shipped = ShippedTemplate();
    shipped["replicaId"] = "48257A11:00301000";
    E2eServer server;
    ASSERT_TRUE(server.Create(MigrationScenario(InstalledConfiguration(), shipped)));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;
    Json db = server.Dump("rpx/rpconf.nsf");

    // The platform keeps a copied note's UNID only between replicas.
    EXPECT_TRUE(NoteByUnid(db, kEu).is_null());
    ASSERT_EQ(NotesNamed(db, "European Union").size(), 1u);
    // Pre-defined documents still end under their old UNIDs, so references to them hold ...
    EXPECT_EQ(ItemText(NoteByUnid(db, kCardOld), "Keywords"), "visa;mastercard;amex;discover");
    EXPECT_EQ(ItemText(NoteByUnid(db, kPci), "name"), "PCI-DSS");
    EXPECT_EQ(NotesNamed(db, "PCI-DSS").size(), 1u);
    // ... but the template's own UNIDs are never recorded as obsolete, so references to them stay.
    Json financial = NotesNamed(db, "Financial Data").at(0);
    EXPECT_EQ(ItemValue(financial, "UseDocs"), List({kCardNew, kIban}));
}
