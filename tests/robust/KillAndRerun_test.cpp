// The example patch killed at points spread over its run (a server.json fault that ends the
// process at the N-th use of a platform call), then run again without faults: the databases
// end as after one clean run. The points where that cannot be, because the order of the run
// makes it so, are named with the reason.
#include <sstream>

#include "ExampleRuns.h"

using namespace robust;

namespace {

struct KillPoint {
    std::string name;
    Json fault;
    // Empty when the rerun must end like a clean run; otherwise why it cannot.
    std::string unrecoverableBecause;
};

Json KillAt(const std::string& call, int after, const std::string& path = "") {
    Json fault{{"call", call}, {"after", after}, {"action", "kill"}};
    if (!path.empty()) fault["path"] = path;
    return fault;
}

const char kStampedBeforeSigning[] =
    "the build stamp is written into every database before they are signed and given their "
    "replication note, so the rerun finds the patch applied and does nothing";

std::vector<KillPoint> KillPoints() {
    return {
        {"at the first platform call", KillAt("*", 0), ""},
        {"at the first note update", KillAt("NSFNoteUpdate", 0), ""},
        {"with rpvlog.ntf taken offline", KillAt("NSFTakeDatabaseOffline", 1), ""},
        {"with rpvlog.ntf copied, before it is online", KillAt("NSFBringDatabaseOnline", 0), ""},
        {"at the conversion command of rpvlog.nsf", KillAt("NSFRemoteConsole", 0), ""},
        {"with rplists.nsf replaced, before its ACL", KillAt("NSFDbStoreACL", 0), ""},
        {"after the walk, at the pattern database check", KillAt("NSFFormulaCompile", 0), ""},
        {"with rpency.nsf taken offline and deleted, before the create", KillAt("NSFDbCreateAndCopy", 0), ""},
        {"with rpency.nsf created, before its replica ID", KillAt("NSFDbReplicaInfoSet", 0, "rpx/rpency.nsf"), ""},
        {"with rpency.nsf created, before its ACL", KillAt("NSFDbStoreACL", 0, "rpx/rpency.nsf"), ""},
        {"while the replaced databases are signed", KillAt("NSFNoteSign", 5), ""},
        {"at the 300th platform call", KillAt("*", 300), ""},
        {"in the final signing walk, at rpconf.nsf", KillAt("NSFNoteSign", 0, "rpx/rpconf.nsf"), kStampedBeforeSigning},
        {"in the final signing walk, at rpmsg.nsf", KillAt("NSFNoteSign", 0, "rpx/rpmsg.nsf"), kStampedBeforeSigning},
        {"at the restart of the real-time task", KillAt("NSFRemoteConsole", 2), ""},
    };
}

struct KillOutcome {
    bool created = false;
    CommandResult killed;
    CommandResult rerun;
    std::vector<std::string> different;
    std::string rerunLog;
};

}  // namespace

TEST(KillAndRerun, EveryKillPointEndsAsACleanRunOrIsNamed) {
    E2eServer clean;
    ASSERT_TRUE(clean.Create(ExampleScenario()));
    ASSERT_EQ(RunWithTimeLimit(clean, 300).exitCode, 0);
    auto cleanFiles = DataFiles(clean);

    std::vector<KillPoint> points = KillPoints();
    std::vector<KillOutcome> outcomes(points.size());
    RunSideBySide(points.size(), [&](size_t i) {
        E2eServer server;
        KillOutcome& outcome = outcomes[i];
        outcome.created = server.Create(ExampleWithFaults(Json::array({points[i].fault})));
        if (!outcome.created) return;
        outcome.killed = RunWithTimeLimit(server, 300);
        SetFaults(server, Json::array());
        outcome.rerun = RunWithTimeLimit(server, 300);
        outcome.different = DifferentFiles(cleanFiles, DataFiles(server));
        for (const std::string& line : server.DebugMessages()) outcome.rerunLog += line + "\n";
    });

    for (size_t i = 0; i < points.size(); ++i) {
        const KillPoint& point = points[i];
        const KillOutcome& outcome = outcomes[i];
        SCOPED_TRACE("killed " + point.name + " (" + point.fault.dump() + ")");
        ASSERT_TRUE(outcome.created);
        EXPECT_TRUE(WasKilled(outcome.killed)) << "the kill point was never reached:\n" << outcome.killed.err;
        EXPECT_EQ(outcome.rerun.exitCode, 0) << outcome.rerun.err;
        std::ostringstream names;
        for (const std::string& name : outcome.different) names << " " << name;
        if (point.unrecoverableBecause.empty()) {
            EXPECT_TRUE(outcome.different.empty()) << "differ from a clean run:" << names.str();
        } else {
            EXPECT_FALSE(outcome.different.empty()) << "expected to stay different: " << point.unrecoverableBecause;
            EXPECT_NE(outcome.rerunLog.find("The database build is large than build number of the patch"),
                      std::string::npos);
        }
    }
}
