// The pattern database is never lost by its rebuild: a copy kept in rpxtemp while the rebuild
// runs is put back when a killed run left it, and the rebuild does not start when no copy can
// be kept.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;

Json OldPatternDatabase() {
    Json db{{"title", "Patterns"}, {"replicaId", "33333333:44444444"}};
    db["acl"] = Acl({{"-Default-", "noaccess"}, {"CN=Pattern Keeper/O=Acme", "manager"}});
    db["notes"] = Json::array({Document({{"Form", "Patternfile"}, {"InternalPVer", "1234"}, {"Marker", "kept"}})});
    return db;
}

Json PatternTemplate() {
    Json db{{"title", "Patterns"}, {"templateName", "RPXPattern"}, {"replicaId", "55555555:66666666"}};
    db["acl"] = Acl({{"-Default-", "reader"}, {"CN=Template Owner/O=Vendor", "manager"}});
    db["notes"] = Json::array({HelpNote(3001), Document({{"Form", "Patternfile"}, {"InternalPVer", "5.6.1.1"}})});
    return db;
}

// A patch that replaces rplists.nsf, which receives the pattern database's ACL.
Json ScenarioShippingLists() {
    Json scenario = BaseScenario(PatchIniShipping("rplists.nsf"));
    scenario["install"][kPatch + "/rplists.nsf"] = ProductDatabase("Lists", 3100, "shipped");
    scenario["data"]["rpx/rpency.ntf"] = PatternTemplate();
    return scenario;
}

}  // namespace

TEST(InterruptedRebuild, ACopyLeftByAKilledRebuildIsPutBackBeforeTheWalkAndTheRebuildRunsAgain) {
    Json scenario = ScenarioShippingLists();
    scenario["data"]["rpxtemp/rpency.nsf.keep"] = OldPatternDatabase();  // rpx/rpency.nsf itself is gone
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    ASSERT_EQ(run.exitCode, 0) << run.err;

    auto messages = server.DebugMessages();
    std::string kept = server.DataPath("rpxtemp/rpency.nsf.keep").string();
    size_t found = IndexOf(messages, "Found rpency.nsf kept by an interrupted rebuild. (" + kept + ")");
    size_t putBack = IndexOf(messages, "Put back the original rpency.nsf. (" +
                                           server.DataPath("rpx/rpency.nsf").string() + "):(0)");
    size_t walk = IndexOf(messages, "Enter nsfStr switch.");
    ASSERT_LT(walk, messages.size());
    EXPECT_LT(found, putBack);
    EXPECT_LT(putBack, walk) << "the walk reads the ACL of the pattern database";
    EXPECT_EQ(IndexOf(messages, "Read ACL error. (rpx/rpency.nsf):(103)"), messages.size());
    EXPECT_LT(IndexOf(messages, "Success created new rpency.nsf", walk), messages.size());

    Json pattern = server.Dump("rpx/rpency.nsf");
    EXPECT_EQ(pattern.value("replicaId", ""), "852552F9:001E96E4");
    EXPECT_EQ(AclLevels(pattern), AclLevels(OldPatternDatabase()));
    EXPECT_EQ(AclLevels(server.Dump("rpx/rplists.nsf")), AclLevels(OldPatternDatabase()));
    EXPECT_FALSE(fs::exists(kept));
}

TEST(InterruptedRebuild, WithoutRoomForTheCopyTheOldDatabaseStaysAsItIs) {
    Json scenario = ScenarioShippingLists();
    scenario["data"]["rpx/rpency.nsf"] = OldPatternDatabase();
    scenario["server"]["tempFolder"] = false;
    scenario["data"]["rpxtemp"] = "a plain file where the temp folder belongs: no copy can be written";
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    ASSERT_EQ(run.exitCode, 0) << run.err;

    auto console = server.ConsoleLines();
    EXPECT_LT(IndexOf(console, "updrpx: rpency.nsf was not recreated: no copy of it could be kept in the temp folder"),
              console.size());
    auto documents = NotesOfClass(server.Dump("rpx/rpency.nsf"), "document");
    ASSERT_EQ(documents.size(), 1u);
    EXPECT_EQ(ItemText(documents[0], "Marker"), "kept");
    EXPECT_EQ(server.Dump("rpx/rpency.nsf").value("replicaId", ""), "33333333:44444444");
}
