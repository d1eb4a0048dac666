// The conflict action and default-mark fixes of the configuration database, end to end: a patch
// that ships rpconf.ntf reaches them through the configuration migration, also when the
// template cannot be opened.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const std::string kShipped = "852552F9001E96E4";  // file part of a UNID: never compared
const std::string kPolicyNote = "C1256E390066396D";

// A UNID ending in tail, zeros before it.
std::string Unid(const std::string& tail) { return std::string(32 - tail.size(), '0') + tail; }

// A document with a chosen UNID; "$ConflictAction" or "DefaultRule" is added when not null.
Json Doc(const std::string& unid, const std::string& form, const char* item = nullptr, const Json& value = Json()) {
    Json items{{"Form", form}};
    if (item != nullptr && !value.is_null()) items[item] = value;
    Json note = Document(items);
    note["unid"] = unid;
    return note;
}

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

Json Item(const Json& db, const std::string& unid, const char* item) {
    for (const Json& note : NotesOfClass(db, "document")) {
        if (note.value("unid", "") == unid) return ItemValue(note, item);
    }
    ADD_FAILURE() << "no document " << unid;
    return Json();
}

}  // namespace

TEST(DefaultPoliciesRun, ConflictActionIsThreeAndOnlyEachFormsShippedDefaultKeepsItsMark) {
    const std::vector<std::pair<std::string, std::string>> shippedDefaults = {
        {"Policy", kPolicyNote},
        {"MailConfiguration", "482575820024ABCC"},
        {"LocalSettings", "48256E16002368DD"},
        {"DxAgentSettings", "4825751A002F965C"},
        {"dtassetting", "48257A2300200EA2"}};  // form names compare without case
    Json documents = Json::array({Doc(Unid("A1"), "Register", "$ConflictAction", "3x"),
                                  Doc(Unid("A2"), "Register", "$ConflictAction", "1"), Doc(Unid("A3"), "Register"),
                                  Doc(Unid("A4"), "Server Settings", "$ConflictAction", "1"),
                                  Doc(Unid("B1"), "Policy", "DefaultRule", "1"),
                                  Doc(Unid("B2" + kPolicyNote), "MailConfiguration", "DefaultRule", "1"),
                                  Doc(Unid("B3" + kPolicyNote), "Rule", "DefaultRule", "1")});
    for (const auto& row : shippedDefaults) documents.push_back(Doc(kShipped + row.second, row.first, "DefaultRule", "1"));
    E2eServer server;
    ASSERT_TRUE(server.Create(ConfigurationScenario(documents)));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    Json conf = server.Dump("rpx/rpconf.nsf");
    EXPECT_EQ(Item(conf, Unid("A1"), "$ConflictAction"), Json("3x")) << "begins with 3: left alone";
    EXPECT_EQ(Item(conf, Unid("A2"), "$ConflictAction"), Json("3"));
    EXPECT_EQ(Item(conf, Unid("A3"), "$ConflictAction"), Json("3")) << "absent: added";
    EXPECT_EQ(Item(conf, Unid("A4"), "$ConflictAction"), Json("1")) << "not a Register document";
    for (const auto& row : shippedDefaults) EXPECT_EQ(Item(conf, kShipped + row.second, "DefaultRule"), Json("1")) << row.first;
    // Another policy, a shipped policy's note ID under another form, a form not in the list.
    for (const char* tail : {"B1", "B2C1256E390066396D", "B3C1256E390066396D"}) {
        EXPECT_TRUE(Item(conf, Unid(tail), "DefaultRule").is_null()) << tail;
        EXPECT_FALSE(Item(conf, Unid(tail), "Form").is_null()) << "only the mark goes";
    }
}

TEST(DefaultPoliciesRun, FixesStayWhenTheTemplateCannotBeOpened) {
    const std::string registerDoc = Unid("C1");
    const std::string policy = Unid("C2");
    Json scenario = ConfigurationScenario(
        Json::array({Doc(registerDoc, "Register", "$ConflictAction", "2"), Doc(policy, "Policy", "DefaultRule", "1")}));
    scenario["server"]["faults"] = Json::array({{{"call", "NSFDbOpen"}, {"path", "rpx/rpconf.ntf"}, {"status", 0x0103}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    ASSERT_EQ(server.Run().exitCode, 0) << server.LastRun().err;

    auto log = server.DebugLog();
    auto refreshed = std::find_if(log.begin(), log.end(), [](const LogLine& line) {
        return line.text == "Run command load design -f rpx/rpconf.nsf";
    });
    auto notOpened = std::find_if(refreshed, log.end(), [](const LogLine& line) {
        return line.text == "cannot open rpconf.ntf, path: rpx/rpconf.ntf";
    });
    ASSERT_NE(notOpened, log.end());
    EXPECT_EQ(notOpened->level, 3);
    Json conf = server.Dump("rpx/rpconf.nsf");
    EXPECT_EQ(Item(conf, registerDoc, "$ConflictAction"), Json("3"));
    EXPECT_TRUE(Item(conf, policy, "DefaultRule").is_null());
}
