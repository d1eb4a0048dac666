// The conflict action and default-policy fixes of the configuration database, end to end: a patch
// that ships rpconf.ntf reaches them through the configuration migration; also with a template
// that cannot be opened and without a configuration database.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const std::string kDesignRefreshed = "Run command load design -f rpx/rpconf.nsf";

// The note parts of the shipped default documents, one per form.
const std::string kPolicyNote = "C1256E390066396D";
const std::string kMailConfigurationNote = "482575820024ABCC";
const std::string kLocalSettingsNote = "48256E16002368DD";
const std::string kDxAgentSettingsNote = "4825751A002F965C";
const std::string kDtasSettingNote = "48257A2300200EA2";

Json DocumentWithUnid(const std::string& unid, Json items) {
    Json note = Document(std::move(items));
    note["unid"] = unid;
    return note;
}

// A document with "DefaultRule" = "1"; the file part of its UNID keeps the UNIDs apart.
Json Marked(const std::string& filePart, const std::string& notePart, const std::string& form) {
    return DocumentWithUnid(filePart + notePart, {{"Form", form}, {"DefaultRule", "1"}});
}

Json Register(const std::string& unid, const Json& conflictAction) {
    Json items{{"Form", "Register"}, {"Server", "CN=Alpha/O=Acme"}};
    if (!conflictAction.is_null()) items["$ConflictAction"] = conflictAction;
    return DocumentWithUnid(unid, items);
}

// The installed configuration database and its template, with the patch shipping a new template.
Json ConfigurationScenario(const Json& documents) {
    Json scenario = BaseScenario(PatchIniShipping("rpconf.ntf"));
    Json db = ProductDatabase("Configuration", 3001);
    db["inheritFrom"] = "RPXConfig";
    for (const Json& note : documents) db["notes"].push_back(note);
    scenario["data"]["rpx/rpconf.nsf"] = db;
    scenario["data"]["rpx/rpconf.ntf"] = ProductTemplate("Configuration Template", "RPXConfig", 3001, "old");
    scenario["install"][kPatch + "/rpconf.ntf"] = ProductTemplate("Configuration Template", "RPXConfig", 3100, "new");
    return scenario;
}

Json NoteByUnid(const Json& db, const std::string& unid) {
    for (const Json& note : NotesOfClass(db, "document")) {
        if (note.value("unid", "") == unid) return note;
    }
    ADD_FAILURE() << "no document " << unid;
    return Json();
}

bool HasCompileFailure(const std::vector<std::string>& messages) {
    for (const std::string& text : messages) {
        if (text.find("Cannot compile the formula!") != std::string::npos) return true;
    }
    return false;
}

}  // namespace

TEST(DefaultPoliciesRun, RegisterDocumentsGetConflictActionThreeUnlessItAlreadyBeginsWithThree) {
    Json scenario = ConfigurationScenario(Json::array({
        Register("00000000000000000000000000000A01", "3x"),
        Register("00000000000000000000000000000A02", "1"),
        Register("00000000000000000000000000000A03", Json()),
        Register("00000000000000000000000000000A04", ""),
        DocumentWithUnid("00000000000000000000000000000A05", {{"Form", "Server Settings"}, {"$ConflictAction", "1"}}),
    }));
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    auto messages = server.DebugMessages();
    EXPECT_EQ(CountOf(messages, kDesignRefreshed), 1u);
    EXPECT_FALSE(HasCompileFailure(messages));
    Json conf = server.Dump("rpx/rpconf.nsf");
    auto conflictAction = [&](const std::string& unid) { return ItemValue(NoteByUnid(conf, unid), "$ConflictAction"); };
    EXPECT_EQ(conflictAction("00000000000000000000000000000A01"), Json("3x")) << "begins with 3: left alone";
    EXPECT_EQ(conflictAction("00000000000000000000000000000A02"), Json("3"));
    EXPECT_EQ(conflictAction("00000000000000000000000000000A03"), Json("3")) << "absent: added";
    EXPECT_EQ(conflictAction("00000000000000000000000000000A04"), Json("3")) << "empty: replaced";
    EXPECT_EQ(conflictAction("00000000000000000000000000000A05"), Json("1")) << "not a Register document";
}

TEST(DefaultPoliciesRun, OnlyTheShippedDefaultOfEachFormKeepsItsDefaultMark) {
    const std::string shipped = "852552F9001E96E4";  // file parts: not compared
    const std::string lowerCasePolicy = "0123456789ABCDEF" + kPolicyNote;
    const std::string secondPolicy = shipped + "00000000000000B2";
    const std::string policyWithMailId = "1111111111111111" + kMailConfigurationNote;
    const std::string mailWithPolicyId = "2222222222222222" + kPolicyNote;
    const std::string unlistedForm = "3333333333333333" + kDtasSettingNote;
    const std::string unmarkedUnid = "00000000000000000000000000000B01";
    Json unmarked = DocumentWithUnid(unmarkedUnid, {{"Form", "Policy"}, {"DefaultRule", "0"}});
    Json scenario = ConfigurationScenario(Json::array({
        Marked(shipped, kPolicyNote, "Policy"),
        Marked(shipped, kMailConfigurationNote, "MailConfiguration"),
        Marked(shipped, kLocalSettingsNote, "LocalSettings"),
        Marked(shipped, kDxAgentSettingsNote, "DxAgentSettings"),
        Marked(shipped, kDtasSettingNote, "DTASsetting"),
        Marked("0123456789ABCDEF", kPolicyNote, "policy"),
        Marked(shipped, "00000000000000B2", "Policy"),
        Marked("1111111111111111", kMailConfigurationNote, "Policy"),
        Marked("2222222222222222", kPolicyNote, "MailConfiguration"),
        Marked("3333333333333333", kDtasSettingNote, "Rule"),
        unmarked,
    }));
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    Json conf = server.Dump("rpx/rpconf.nsf");
    auto defaultRule = [&](const std::string& unid) { return ItemValue(NoteByUnid(conf, unid), "DefaultRule"); };
    // Each form's shipped default keeps its mark, the form name compared without case.
    for (const std::string& unid : {shipped + kPolicyNote, shipped + kMailConfigurationNote,
                                    shipped + kLocalSettingsNote, shipped + kDxAgentSettingsNote,
                                    shipped + kDtasSettingNote, lowerCasePolicy}) {
        EXPECT_EQ(defaultRule(unid), Json("1")) << unid;
    }
    // A second policy, another form's default ID, a form not listed: the mark is taken away.
    for (const std::string& unid : {secondPolicy, policyWithMailId, mailWithPolicyId, unlistedForm}) {
        EXPECT_TRUE(defaultRule(unid).is_null()) << unid;
        EXPECT_FALSE(ItemText(NoteByUnid(conf, unid), "Form").empty()) << "only the mark goes: " << unid;
    }
    // A document not marked is not selected and stays as it was.
    EXPECT_EQ(NoteByUnid(conf, unmarkedUnid)["items"], unmarked["items"]);
    EXPECT_FALSE(HasCompileFailure(server.DebugMessages()));
}

TEST(DefaultPoliciesRun, FixesStayWhenTheTemplateCannotBeOpened) {
    const std::string policy = "00000000000000000000000000000C01";
    Json scenario = ConfigurationScenario(Json::array({Register("00000000000000000000000000000C02", "2"),
                                                       DocumentWithUnid(policy, {{"Form", "Policy"}, {"DefaultRule", "1"}})}));
    scenario["server"]["faults"] =
        Json::array({{{"call", "NSFDbOpen"}, {"path", "rpx/rpconf.ntf"}, {"status", 0x0103}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    auto log = server.DebugLog();
    auto refreshed = std::find_if(log.begin(), log.end(), [](const LogLine& line) { return line.text == kDesignRefreshed; });
    ASSERT_NE(refreshed, log.end());
    auto notOpened = std::find_if(refreshed, log.end(), [](const LogLine& line) {
        return line.text == "cannot open rpconf.ntf, path: rpx/rpconf.ntf";
    });
    ASSERT_NE(notOpened, log.end());
    EXPECT_EQ(notOpened->level, 3);
    EXPECT_EQ(IndexOf(server.DebugMessages(), "m_nsf_ObsoleteUNIDSet is NULL, so happy!"), server.DebugMessages().size())
        << "no upgrade and no reference cleanup without the template";

    Json conf = server.Dump("rpx/rpconf.nsf");
    EXPECT_EQ(ItemValue(NoteByUnid(conf, "00000000000000000000000000000C02"), "$ConflictAction"), Json("3"));
    EXPECT_TRUE(ItemValue(NoteByUnid(conf, policy), "DefaultRule").is_null());
}

TEST(DefaultPoliciesRun, WithoutAConfigurationDatabaseTheMigrationStopsSilentlyAfterTheDesignRefresh) {
    Json scenario = ConfigurationScenario(Json::array());
    scenario["data"].erase("rpx/rpconf.nsf");
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    auto messages = server.DebugMessages();
    size_t refreshed = IndexOf(messages, kDesignRefreshed);
    ASSERT_LT(refreshed, messages.size());
    ASSERT_LT(refreshed + 1, messages.size());
    // The next line is the driver's own, from the build stamping after the walk.
    EXPECT_EQ(messages[refreshed + 1], "Info: Begin process databases.");
    EXPECT_FALSE(fs::exists(server.DataPath("rpx/rpconf.nsf")));
}
