// Database maintenance when the platform fails, end to end: a preparation search refused with
// 0x9728, a note that cannot be opened while signing, searches that fail in the stamping and
// signing walks, a pattern database that cannot be created again, and a server without
// "MailServer". Each failure is logged and the walk goes on.
#include "E2eScenario.h"

using namespace e2e;

namespace {

const std::string kPatch = kPatchFolder;
const int kHiddenDesign = 0x0020;
const std::string kLockedFormUnid = "0123456789ABCDEF0123456789ABCDEF";
const std::string kLockedHelpUnid = "FEDCBA9876543210FEDCBA9876543210";
const int kNoAccess = 0x0246;  // "You are not authorized to perform that operation"
const int kIoError = 0x010E;   // "I/O data error"
const int kNoteDeleted = 0x0225;  // "Document has been deleted"

Json Note(const std::string& noteClass, Json items) {
    return Json{{"class", noteClass}, {"items", std::move(items)}};
}

bool Signed(const Json& note) { return !ItemValue(note, "$Signature").is_null(); }

int ReplicaFlags(const Json& db) { return db.value("replicaFlags", 0); }

// A shipped database: a help note, a view, an old replication note and a form, in that order.
Json Shipped(const std::string& title) {
    Json db{{"title", title}};
    db["notes"] = Json::array({HelpNote(3001), Note("view", {{"$TITLE", title + " view"}}),
                               Note("replformula", {{"$TITLE", "old source"}}),
                               Note("form", {{"$TITLE", title + " form"}})});
    return db;
}

bool Absent(const std::vector<std::string>& messages, const std::string& text) {
    return IndexOf(messages, text) == messages.size();
}

}  // namespace

TEST(MaintenanceFailures, FailuresAreLoggedAndEveryDatabaseIsStillWorkedOn) {
    Json scenario = BaseScenario(PatchIniShipping("rpconf.nsf,rpquar.nsf,rpvlog.nsf"));
    scenario["notesIni"].erase("MailServer");
    scenario["install"][kPatch + "/rpconf.nsf"] = Shipped("Configuration");
    scenario["install"][kPatch + "/rpquar.nsf"] = Shipped("Quarantine");
    Json virusLog = Shipped("Virus Log");
    virusLog["notes"].back()["unid"] = kLockedFormUnid;  // the last note: everything before it is reached
    scenario["install"][kPatch + "/rpvlog.nsf"] = virusLog;
    scenario["data"]["rpx/rpftypes.nsf"] = Shipped("File Types");
    Json time{{"notes", Json::array({HelpNote(3001), HelpNote(3001)})}};
    time["notes"][0]["unid"] = kLockedHelpUnid;
    scenario["data"]["rpx/rptime.nsf"] = time;
    scenario["data"]["rpx/rpency.nsf"] =
        Json{{"notes", Json::array({Document({{"Form", "Patternfile"}, {"InternalPVer", "1234"}})})}};
    scenario["data"]["rpx/rpency.ntf"] = Json{{"templateName", "RPXPattern"}, {"notes", Json::array({HelpNote(3001)})}};
    scenario["server"]["faults"] = Json::array(
        {{{"call", "NSFSearch"}, {"path", "rpx/rpquar.nsf"}, {"status", 0x9728}, {"count", 1}},
         {{"call", "NSFNoteOpen"}, {"unid", kLockedFormUnid}, {"status", kNoAccess}},
         {{"call", "NSFSearch"}, {"path", "rpx/rpftypes.nsf"}, {"status", kIoError}},
         {{"call", "NSFDbCreateAndCopy"}, {"status", kIoError}},
         {{"call", "NSFNoteOpen"}, {"unid", kLockedHelpUnid}, {"status", kNoteDeleted}}});
    E2eServer server;
    ASSERT_TRUE(server.Create(scenario));
    const CommandResult& run = server.Run();
    ASSERT_EQ(run.exitCode, 0) << run.err;
    auto messages = server.DebugMessages();

    // Preparation of a database that can be signed: signed, then its design hidden.
    ExpectInOrder(messages, {"Info: Start to sign - rpconf.nsf\n", "Info: Succeeded to sign - rpconf.nsf\n",
                             "Info: Start to hide design of rpconf.nsf \n", "Info: End to hide the design.\n"});
    Json conf = server.Dump("rpx/rpconf.nsf");
    EXPECT_TRUE(ReplicaFlags(conf) & kHiddenDesign);
    EXPECT_TRUE(Signed(NotesOfClass(conf, "form").at(0)));

    // 0x9728 from the signing search: its own message with the number, the design not hidden and
    // the database left open (the host reports it at exit).
    ExpectInOrder(messages, {"Info: Start to sign - rpquar.nsf\n",
                             "Error: Sign database failed - rpquar.nsf. The error number is 38696\n"});
    EXPECT_TRUE(Absent(messages, "Info: Start to hide design of rpquar.nsf \n"));
    EXPECT_NE(run.err.find("rpx/rpquar.nsf"), std::string::npos) << run.err;
    Json quar = server.Dump("rpx/rpquar.nsf");
    EXPECT_EQ(ReplicaFlags(quar) & kHiddenDesign, 0);
    EXPECT_EQ(HelpBuildNumber(quar), "5.6.1.3100");
    EXPECT_TRUE(Signed(NotesOfClass(quar, "form").at(0))) << "the final walk signs it";

    // A note that cannot be opened ends the signing search with the note's status.
    const std::string noAccess = "You are not authorized to perform that operation";
    ExpectInOrder(messages, {"Info: Start to sign - rpvlog.nsf\n", "Signning failed!!!",
                             "Failed to sign rpvlog.nsf - " + noAccess + "\n"});
    EXPECT_TRUE(Absent(messages, "Info: Start to hide design of rpvlog.nsf \n"));
    ExpectInOrder(messages, {"SignDatabase Enter", "Start to sign - rpx\\rpvlog.nsf", "Signning failed!!!",
                             "Failed to sign rpx\\rpvlog.nsf - " + noAccess});
    Json vlog = server.Dump("rpx/rpvlog.nsf");
    EXPECT_EQ(ReplicaFlags(vlog) & kHiddenDesign, 0);
    EXPECT_TRUE(Signed(NotesOfClass(vlog, "view").at(0))) << "notes before the locked one are signed";
    EXPECT_FALSE(Signed(NotesOfClass(vlog, "form").at(0)));
    EXPECT_EQ(HelpBuildNumber(vlog), "5.6.1.3100");

    // Every search on this database fails: no stamp, no signature, the old replication note stays.
    const std::string ioError = "I/O data error";
    EXPECT_LT(IndexOf(messages, "Error: Set build number failed -'rpx/rpftypes.nsf'.\n"), messages.size());
    ExpectInOrder(messages, {"Start to sign - rpx\\rpftypes.nsf", "Failed to sign rpx\\rpftypes.nsf - " + ioError,
                             "rpx\\rphelp.nsf", "Succeeded to sign - rpx\\rpmsg.nsf", "SignDatabase Leave"});
    Json types = server.Dump("rpx/rpftypes.nsf");
    EXPECT_EQ(HelpBuildNumber(types), "5.6.1.3001");
    EXPECT_FALSE(Signed(NotesOfClass(types, "form").at(0)));
    EXPECT_EQ(NotesOfClass(types, "replformula").size(), 1u);
    auto console = server.ConsoleLines();
    EXPECT_LT(IndexOf(console, ioError), console.size());
    EXPECT_LT(IndexOf(console, noAccess), console.size());

    // A help note that cannot be opened is reported on the console in the platform's words (once
    // by the stamping, before the signing walk reaches the database, once by the signing walk);
    // the other help note is stamped.
    auto helps = NotesOfClass(server.Dump("rpx/rptime.nsf"), "help");
    ASSERT_EQ(helps.size(), 2u);
    EXPECT_EQ(ItemText(helps[0], "BuildNumber"), "5.6.1.3001");
    EXPECT_EQ(ItemText(helps[1], "BuildNumber"), "5.6.1.3100");
    const std::string deleted = "Document has been deleted";
    EXPECT_EQ(CountOf(console, deleted), 2u);
    EXPECT_LT(IndexOf(console, deleted), IndexOf(console, "rpx\\rphelp.nsf"));
    EXPECT_LT(IndexOf(messages, "Failed to sign rpx\\rptime.nsf - " + deleted), messages.size());

    // The pattern database could not be created again: the copy kept before it was taken offline
    // is put back and brought online, and the later walks work on it as before.
    auto debugLog = server.DebugLog();
    auto rebuildFailed = std::find_if(debugLog.begin(), debugLog.end(), [](const LogLine& line) {
        return line.text == "Failed to recreate rpency.nsf, Error: 10E";
    });
    ASSERT_NE(rebuildFailed, debugLog.end());
    EXPECT_EQ(rebuildFailed->level, 0);
    ASSERT_NE(rebuildFailed + 1, debugLog.end());
    EXPECT_EQ((rebuildFailed + 1)->text, "Put back the original rpency.nsf. (" +
                                             server.DataPath("rpx/rpency.nsf").string() + "):(0)");
    EXPECT_TRUE(Absent(messages, "Success created new rpency.nsf"));
    EXPECT_LT(IndexOf(messages, "Succeeded to sign - rpx\\rpency.nsf"), messages.size());
    EXPECT_LT(IndexOf(console, "updrpx: rpency.nsf was not recreated; the original database was put back"),
              console.size());
    auto pattern = NotesOfClass(server.Dump("rpx/rpency.nsf"), "document");
    ASSERT_EQ(pattern.size(), 1u);
    EXPECT_EQ(ItemText(pattern[0], "InternalPVer"), "1234");
    EXPECT_FALSE(fs::exists(server.DataPath("rpxtemp/rpency.nsf.keep")));

    // Without "MailServer" the old replication notes go and no new one is written.
    for (const char* name : {"rpconf.nsf", "rpquar.nsf", "rpvlog.nsf", "rpmsg.nsf"}) {
        EXPECT_TRUE(NotesOfClass(server.Dump(std::string("rpx/") + name), "replformula").empty()) << name;
    }
}
