// The server side of the platform: taking databases offline, the console
// (add-in messages, remote console commands, program starts) and local time.
// Tests of the stand-in server's own machinery (server.json: busy databases,
// injected faults, the virtual clock, the simulated rpxreal task) run on a
// server folder of their own and use the Emu* extensions where they must.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "PlatformTest.h"
#include "acl.h"
#include "addin.h"
#include "clerr.h"
#include "emu/notesemu.h"
#include "kfm.h"
#include "misc.h"
#include "nsferr.h"
#include "osenv.h"
#include "osfile.h"
#include "oserr.h"
#include "osmisc.h"
#include "ostime.h"

namespace platform_test {
namespace {

// Data directory of the server the platform runs on now.
std::string DataFolderNow() {
	char dir[MAXPATH];
	OSGetDataDirectory(dir);
	return dir;
}

bool FileExists(const std::string& path) {
	struct stat st;
	return ::stat(path.c_str(), &st) == 0;
}

void CopyFile(const std::string& from, const std::string& to) {
	std::ifstream in(from, std::ios::binary);
	std::ofstream out(to, std::ios::binary | std::ios::trunc);
	out << in.rdbuf();
}

std::string ConsoleLogPath() {
	char ini[MAXPATH];
	OSGetIniFileName(ini);
	std::string path = ini;
	return path.substr(0, path.find_last_of('/')) + "/console.log";
}

std::vector<std::string> ConsoleLines() {
	std::vector<std::string> lines;
	std::ifstream in(ConsoleLogPath());
	for (std::string line; std::getline(in, line);) lines.push_back(line);
	return lines;
}

// Console lines written since it was made, without their time stamps.
class ConsoleWatch {
public:
	ConsoleWatch() : start_(ConsoleLines().size()) {}
	std::vector<std::string> Texts() const {
		std::vector<std::string> all = ConsoleLines(), texts;
		for (size_t i = start_; i < all.size(); ++i) texts.push_back(all[i].size() > 21 ? all[i].substr(21) : "");
		return texts;
	}
	bool Has(const std::string& text) const {
		for (const std::string& line : Texts())
			if (line == text) return true;
		return false;
	}
	bool HasLineContaining(const std::string& part) const {
		for (const std::string& line : Texts())
			if (line.find(part) != std::string::npos) return true;
		return false;
	}

private:
	size_t start_;
};

std::string OwnServerName() {
	char name[MAXUSERNAME + 1];
	EXPECT_EQ(SECKFMGetUserName(name), NOERROR);
	return name;
}

STATUS Console(const std::string& command, std::string* answer = nullptr) {
	std::string server = OwnServerName();
	DHANDLE response = NULLHANDLE;
	STATUS s = NSFRemoteConsole(&server[0], const_cast<char*>(command.c_str()), &response);
	if (response != NULLHANDLE) {
		if (answer) *answer = static_cast<const char*>(OSLockObject(response));
		OSUnlockObject(response);
		OSMemFree(response);
	}
	return s;
}

std::string Title(DBHANDLE db, WORD what = INFOPARSE_TITLE) {
	char info[NSF_INFO_SIZE], field[NSF_INFO_SIZE];
	if (NSFDbInfoGet(db, info) != NOERROR) return "<no info>";
	NSFDbInfoParse(info, what, field, sizeof field);
	return field;
}

void SetInfo(DBHANDLE db, WORD what, const char* value) {
	char info[NSF_INFO_SIZE];
	ASSERT_EQ(NSFDbInfoGet(db, info), NOERROR);
	NSFDbInfoModify(info, what, value);
	ASSERT_EQ(NSFDbInfoSet(db, info), NOERROR);
}

// A fresh database at a Notes path of the current server, closed at once.
void CreateDb(const std::string& path, const char* title, const char* templateName = "") {
	std::string file = DataFolderNow() + "/" + path;
	std::remove(file.c_str());
	ASSERT_EQ(NSFDbCreate(path.c_str(), DBCLASS_BY_EXTENSION, FALSE), NOERROR);
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	SetInfo(db, INFOPARSE_TITLE, title);
	if (*templateName) SetInfo(db, INFOPARSE_CLASS, templateName);
	NSFDbClose(db);
}

NOTEID AddNoteOfClass(DBHANDLE db, WORD noteClass, const char* title) {
	NOTEHANDLE note;
	EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
	NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);
	EXPECT_EQ(NSFItemSetText(note, "$Title", title, MAXWORD), NOERROR);
	EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);
	return id;
}

std::vector<std::string> TitlesOfClass(DBHANDLE db, WORD noteClass) {
	std::vector<Visit> visits;
	EXPECT_EQ(Search(db, NULLHANDLE, noteClass, visits), NOERROR);
	std::vector<std::string> titles;
	for (const Visit& visit : visits)
		if (visit.noteClass == noteClass) titles.push_back(TextOf(db, visit.id, "$Title"));
	return titles;
}

void CollectName(void* param, char* name, WORD, ACL_PRIVILEGES*, WORD) {
	static_cast<std::vector<std::string>*>(param)->push_back(name);
}

std::vector<std::string> AclNames(DBHANDLE db) {
	DHANDLE acl;
	std::vector<std::string> names;
	if (NSFDbReadACL(db, &acl) != NOERROR) return names;
	ACLEnumEntries(acl, CollectName, &names);
	OSMemFree(acl);
	return names;
}

int64_t TicksBetween(const TIMEDATE& from, const TIMEDATE& to) {
	int64_t days = static_cast<int64_t>(to.Innards[1] & 0xFFFFFF) - static_cast<int64_t>(from.Innards[1] & 0xFFFFFF);
	return days * TICKS_IN_DAY + static_cast<int64_t>(to.Innards[0]) - static_cast<int64_t>(from.Innards[0]);
}

// ---- A server folder of its own, with a server.json ---------------------------------------

// Restarts the platform on a temporary server folder and back on the suite's
// server at the end.
class OwnServer {
public:
	explicit OwnServer(const std::string& serverJson) {
		char pattern[] = "/tmp/platform_server_XXXXXX";
		EXPECT_NE(mkdtemp(pattern), nullptr);
		folder_ = pattern;
		::mkdir((folder_ + "/data").c_str(), 0755);
		::mkdir((folder_ + "/data/rpx").c_str(), 0755);
		std::ofstream ini(folder_ + "/notes.ini");
		ini << "[Notes]\nDirectory=" << folder_ << "/data\nServerName=" << TestServerName() << "\n";
		ini.close();
		EXPECT_EQ(Restart(serverJson), NOERROR);
	}
	~OwnServer() {
		NotesTerm();
		std::string ini = "=" + ServerFolder() + "/notes.ini";
		char* argv[] = {const_cast<char*>("platform_tests"), &ini[0], nullptr};
		EXPECT_EQ(NotesInitExtended(2, argv), NOERROR);
		std::string command = "rm -rf '" + folder_ + "'";
		if (std::system(command.c_str()) != 0) std::fprintf(stderr, "could not remove %s\n", folder_.c_str());
	}
	// Writes server.json (none for "") and initialises the platform again.
	STATUS Restart(const std::string& serverJson) {
		std::string json = folder_ + "/server.json";
		std::remove(json.c_str());
		if (!serverJson.empty()) std::ofstream(json) << serverJson;
		NotesTerm();
		std::string ini = "=" + folder_ + "/notes.ini";
		char* argv[] = {const_cast<char*>("platform_tests"), &ini[0], nullptr};
		return NotesInitExtended(2, argv);
	}
	const std::string& folder() const { return folder_; }

private:
	std::string folder_;
};

// ---- Offline and online -------------------------------------------------------------------

TEST(PlatformOffline, NoDeleteKeepsTheFileRefusesOpensAndSeesAReplacedFileWhenOnline) {
	CreateDb("srv/keep.nsf", "Old");
	CreateDb("srv/other.nsf", "New");
	std::string file = DataFolderNow() + "/srv/keep.nsf";

	ASSERT_EQ(NSFTakeDatabaseOffline("srv/keep.nsf", 0, OFFLINE_NODELETE), NOERROR);
	EXPECT_TRUE(FileExists(file));
	DBHANDLE db = NULLHANDLE;
	EXPECT_NE(NSFDbOpen("srv/keep.nsf", &db), NOERROR);
	EXPECT_EQ(db, NULLHANDLE);
	EXPECT_EQ(NSFTakeDatabaseOffline("srv/keep.nsf", 0, OFFLINE_NODELETE), NOERROR) << "already offline";

	CopyFile(DataFolderNow() + "/srv/other.nsf", file);
	ASSERT_EQ(NSFBringDatabaseOnline("srv/keep.nsf", 0), NOERROR);
	ASSERT_EQ(NSFDbOpen("srv/keep.nsf", &db), NOERROR);
	EXPECT_EQ(Title(db), "New");
	NSFDbClose(db);
}

TEST(PlatformOffline, OptionZeroDeletesTheFileSoItCanBeCreatedAgain) {
	CreateDb("srv/template.ntf", "Template", "SrvTemplate");
	CreateDb("srv/gone.nsf", "Gone");
	std::string file = DataFolderNow() + "/srv/gone.nsf";

	ASSERT_EQ(NSFTakeDatabaseOffline("srv/gone.nsf", 1000, 0), NOERROR);
	EXPECT_FALSE(FileExists(file));
	DBHANDLE db = NULLHANDLE;
	EXPECT_NE(NSFDbOpen("srv/gone.nsf", &db), NOERROR);

	ASSERT_EQ(NSFDbCreateAndCopy("srv/template.ntf", "srv/gone.nsf", NOTE_CLASS_ALL, 0, 0, &db), NOERROR);
	EXPECT_EQ(Title(db), "Template");
	NSFDbClose(db);
	EXPECT_EQ(NSFBringDatabaseOnline("srv/gone.nsf", 0), NOERROR);
	ASSERT_EQ(NSFDbOpen("srv/gone.nsf", &db), NOERROR);
	NSFDbClose(db);
}

TEST(PlatformOffline, MissingDatabaseIsNotFound) {
	EXPECT_EQ(ERR(NSFTakeDatabaseOffline("srv/never.nsf", 0, OFFLINE_NODELETE)), ERR_NOEXIST);
	EXPECT_EQ(ERR(NSFBringDatabaseOnline("srv/never.nsf", 0)), ERR_NOEXIST);
}

// The toolkit documents no status for this; ERR_NOT_NSF is the one NSFDbOpen gives such a file.
TEST(PlatformOffline, WhatIsNotADatabaseIsRefusedAndKept) {
	std::string folder = DataFolderNow() + "/srv/folder.nsf";
	std::string plain = DataFolderNow() + "/srv/plain.nsf";
	::mkdir((DataFolderNow() + "/srv").c_str(), 0755);
	::mkdir(folder.c_str(), 0755);
	std::ofstream(plain) << "not a database";
	EXPECT_EQ(ERR(NSFTakeDatabaseOffline("srv/folder.nsf", 0, 0)), ERR_NOT_NSF);
	EXPECT_EQ(ERR(NSFTakeDatabaseOffline("srv/plain.nsf", 0, 0)), ERR_NOT_NSF);
	EXPECT_EQ(ERR(NSFTakeDatabaseOffline("srv/plain.nsf", 0, OFFLINE_NODELETE)), ERR_NOT_NSF);
	EXPECT_TRUE(FileExists(folder));
	EXPECT_TRUE(FileExists(plain)) << "option 0 deleted a file that is not a database";
	::unlink(plain.c_str());
	::rmdir(folder.c_str());
}

TEST(PlatformOffline, DatabaseOpenThroughAHandleIsInUseUntilClosed) {
	CreateDb("srv/held.nsf", "Held");
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("srv/held.nsf", &db), NOERROR);
	auto start = std::chrono::steady_clock::now();
	EXPECT_EQ(ERR(NSFTakeDatabaseOffline("srv/held.nsf", 200, OFFLINE_NODELETE)), ERR_DBINUSE);
	EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200)) << "retried for WaitTime";

	// Closed by another thread during the wait: the database comes free in time.
	std::thread closer([db] {
		std::this_thread::sleep_for(std::chrono::milliseconds(100));
		NSFDbClose(db);
	});
	start = std::chrono::steady_clock::now();
	EXPECT_EQ(NSFTakeDatabaseOffline("srv/held.nsf", 5000, OFFLINE_NODELETE), NOERROR);
	EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4000));
	closer.join();
	EXPECT_EQ(NSFBringDatabaseOnline("srv/held.nsf", 0), NOERROR);
}

// ---- Console ----------------------------------------------------------------------------------------

TEST(PlatformConsole, MessagesAreStampedAndCarryTheStatusText) {
	ConsoleWatch watch;
	AddInLogMessageText(const_cast<char*>("Copied %d files to %s"), NOERROR, 3, "rpx");
	AddInLogMessageText(const_cast<char*>("Open of %s failed"), ERR_NOEXIST, "rpx/a.nsf");
	char text[256];
	OSLoadString(NULLHANDLE, ERR_NOEXIST, text, sizeof text - 1);

	EXPECT_TRUE(watch.Has("Copied 3 files to rpx"));
	EXPECT_TRUE(watch.Has(std::string("Open of rpx/a.nsf failed: ") + text));
	std::regex stamped(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d  Copied 3 files to rpx)");
	bool found = false;
	for (const std::string& line : ConsoleLines()) found = found || std::regex_match(line, stamped);
	EXPECT_TRUE(found) << "\"MM/DD/YYYY HH:MM:SS\", two blanks, the text";
}

TEST(PlatformConsole, RemoteCommandsToTheOwnServerAreRecordedAndAnswered) {
	ConsoleWatch watch;
	std::string answer = "untouched";
	EXPECT_EQ(Console("frobnicate the server", &answer), NOERROR);
	EXPECT_TRUE(watch.Has("> frobnicate the server"));
	EXPECT_TRUE(watch.Has("Unknown command"));
	EXPECT_EQ(answer, "Unknown command");

	char name[] = "alpha/acme";
	char command[] = "another unknown";
	EXPECT_EQ(NSFRemoteConsole(name, command, nullptr), NOERROR) << "abbreviated name, no response wanted";
	EXPECT_TRUE(watch.Has("> another unknown"));
}

TEST(PlatformConsole, AnotherServerDoesNotRespond) {
	static_assert(ERR_SERVER_NOT_RESPONDING == 0x0807, "PKG_CLIENT+7");
	ConsoleWatch watch;
	char server[] = "CN=Elsewhere/O=Acme";
	char command[] = "tell rpxreal restart";
	DHANDLE response = 7;
	EXPECT_EQ(ERR(NSFRemoteConsole(server, command, &response)), ERR_SERVER_NOT_RESPONDING);
	EXPECT_EQ(response, NULLHANDLE);
	EXPECT_TRUE(watch.Texts().empty());
}

TEST(PlatformConsole, ServerProgramStartedWithACommandRunsIt) {
	ConsoleWatch watch;
	char dir[MAXPATH], ini[MAXPATH];
	OSGetExecutableDirectory(dir);
	OSGetIniFileName(ini);
	std::string program = std::string(dir) + "/server";
	std::string arguments = std::string("=") + ini + " -c \"tell nosuchtask restart\" ";
	EXPECT_EQ(OSLoadProgram(&program[0], dir, &arguments[0], 0), NOERROR);
	EXPECT_TRUE(watch.HasLineContaining("Program started: " + program));
	EXPECT_TRUE(watch.Has("> tell nosuchtask restart"));
	EXPECT_TRUE(watch.Has("Task nosuchtask is not running"));

	ConsoleWatch other;
	char tool[] = "/usr/bin/true";
	char args[] = "-c \"load convert x * y\"";
	EXPECT_EQ(OSLoadProgram(tool, nullptr, args, 0), NOERROR);
	EXPECT_TRUE(other.HasLineContaining("Program started: /usr/bin/true"));
	EXPECT_FALSE(other.HasLineContaining("> load convert")) << "only the server program runs commands";
}

// ---- Convert and Designer tasks -----------------------------------------------------------------

class PlatformDesignTasks : public ::testing::Test {
protected:
	void SetUp() override {
		CreateDb("srv/design.ntf", "Design template", "SrvDesign");
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen("srv/design.ntf", &db), NOERROR);
		AddNoteOfClass(db, NOTE_CLASS_FORM, "NewForm");
		AddNoteOfClass(db, NOTE_CLASS_HELP, "NewHelp");
		AddNoteOfClass(db, NOTE_CLASS_REPLFORMULA, "TemplateReplication");
		NSFDbClose(db);
	}

	// A database with an old design, a document, a replication formula and an ACL entry of its own.
	void MakeOldDatabase(const std::string& path) {
		CreateDb(path, "Live");
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
		AddNoteOfClass(db, NOTE_CLASS_FORM, "OldForm");
		AddNoteOfClass(db, NOTE_CLASS_VIEW, "OldView");
		AddNoteOfClass(db, NOTE_CLASS_REPLFORMULA, "OwnReplication");
		AddDocument(db, {{"Form", "Policy"}, {"$Title", "Kept"}});
		DHANDLE acl;
		ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
		ASSERT_EQ(ACLAddEntry(acl, "CN=Keeper/O=Acme", ACL_LEVEL_EDITOR, nullptr, 0), NOERROR);
		ASSERT_EQ(NSFDbStoreACL(db, acl, 0, 0), NOERROR);
		OSMemFree(acl);
		NSFDbClose(db);
	}

	void ExpectNewDesignKeepingData(const std::string& path) {
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
		EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_FORM), std::vector<std::string>{"NewForm"});
		EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_HELP), std::vector<std::string>{"NewHelp"});
		EXPECT_TRUE(TitlesOfClass(db, NOTE_CLASS_VIEW).empty());
		EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_REPLFORMULA), std::vector<std::string>{"OwnReplication"});
		EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_DOCUMENT), std::vector<std::string>{"Kept"});
		std::vector<std::string> acl = AclNames(db);
		EXPECT_NE(std::find(acl.begin(), acl.end(), "CN=Keeper/O=Acme"), acl.end());
		EXPECT_EQ(Title(db), "Live");
		EXPECT_EQ(Title(db, INFOPARSE_DESIGN_CLASS), "SrvDesign");
		NSFDbClose(db);
	}
};

TEST_F(PlatformDesignTasks, ConvertReplacesTheDesignByTemplateFileOrName) {
	MakeOldDatabase("srv/byfile.nsf");
	MakeOldDatabase("srv/byname.nsf");
	ConsoleWatch watch;
	EXPECT_EQ(Console("load convert srv/byfile.nsf * srv/design.ntf"), NOERROR);
	EXPECT_EQ(Console("LOAD CONVERT srv/byname.nsf * SrvDesign"), NOERROR);
	EXPECT_TRUE(watch.Has("> load convert srv/byfile.nsf * srv/design.ntf"));
	ExpectNewDesignKeepingData("srv/byfile.nsf");
	ExpectNewDesignKeepingData("srv/byname.nsf");
}

TEST_F(PlatformDesignTasks, ConvertOfAMissingOrOfflineDatabaseOrTemplateWritesAnErrorLine) {
	MakeOldDatabase("srv/offline.nsf");
	ASSERT_EQ(NSFTakeDatabaseOffline("srv/offline.nsf", 0, OFFLINE_NODELETE), NOERROR);
	ConsoleWatch watch;
	EXPECT_EQ(Console("load convert srv/offline.nsf * srv/design.ntf"), NOERROR);
	EXPECT_EQ(Console("load convert srv/nothere.nsf * srv/design.ntf"), NOERROR);
	EXPECT_EQ(Console("load convert srv/offline.nsf * NoSuchTemplate"), NOERROR);
	std::vector<std::string> texts = watch.Texts();
	EXPECT_EQ(std::count_if(texts.begin(), texts.end(),
	                        [](const std::string& t) { return t.find("error") != std::string::npos; }),
	          3);
	ASSERT_EQ(NSFBringDatabaseOnline("srv/offline.nsf", 0), NOERROR);
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("srv/offline.nsf", &db), NOERROR);
	EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_FORM), std::vector<std::string>{"OldForm"});
	NSFDbClose(db);
}

TEST_F(PlatformDesignTasks, ConvertNamingAnotherCurrentTemplateLeavesTheDatabaseAlone) {
	MakeOldDatabase("srv/mail.nsf");
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("srv/mail.nsf", &db), NOERROR);
	SetInfo(db, INFOPARSE_DESIGN_CLASS, "MailTemplate");
	NSFDbClose(db);
	EXPECT_EQ(Console("load convert srv/mail.nsf OtherTemplate srv/design.ntf"), NOERROR);
	ASSERT_EQ(NSFDbOpen("srv/mail.nsf", &db), NOERROR);
	EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_FORM), std::vector<std::string>{"OldForm"});
	NSFDbClose(db);
	EXPECT_EQ(Console("load convert -d srv/mail.nsf mailtemplate srv/design.ntf"), NOERROR);
	ExpectNewDesignKeepingData("srv/mail.nsf");
}

TEST_F(PlatformDesignTasks, DesignRefreshUsesTheInheritedTemplate) {
	MakeOldDatabase("srv/inherits.nsf");
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("srv/inherits.nsf", &db), NOERROR);
	SetInfo(db, INFOPARSE_DESIGN_CLASS, "srvdesign");
	NSFDbClose(db);
	MakeOldDatabase("srv/orphan.nsf");

	ConsoleWatch watch;
	EXPECT_EQ(Console("load design -f srv/inherits.nsf"), NOERROR);
	EXPECT_EQ(Console("load design -f srv/orphan.nsf"), NOERROR);
	EXPECT_TRUE(watch.Has("> load design -f srv/orphan.nsf"));
	EXPECT_TRUE(watch.HasLineContaining("does not inherit"));
	ASSERT_EQ(NSFDbOpen("srv/inherits.nsf", &db), NOERROR);
	EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_FORM), std::vector<std::string>{"NewForm"});
	EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_DOCUMENT), std::vector<std::string>{"Kept"});
	NSFDbClose(db);
	ASSERT_EQ(NSFDbOpen("srv/orphan.nsf", &db), NOERROR);
	EXPECT_EQ(TitlesOfClass(db, NOTE_CLASS_FORM), std::vector<std::string>{"OldForm"});
	NSFDbClose(db);
}

// ---- Local time ---------------------------------------------------------------------------------------

class PlatformLocalTime : public ::testing::Test {
protected:
	void SetUp() override {
		const char* tz = std::getenv("TZ");
		hadTz_ = tz != nullptr;
		if (tz) oldTz_ = tz;
		setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
		tzset();
	}
	void TearDown() override {
		if (hadTz_) setenv("TZ", oldTz_.c_str(), 1);
		else unsetenv("TZ");
		tzset();
	}
	static TIME At(int julianDay, DWORD ticks) {
		TIME t{};
		t.GM.Innards[0] = ticks;
		t.GM.Innards[1] = static_cast<DWORD>(julianDay);
		return t;
	}

private:
	bool hadTz_ = false;
	std::string oldTz_;
};

TEST_F(PlatformLocalTime, ZonesArePositiveWestAndDaylightSavingIsSeparate) {
	int zone = 99, dst = 99;
	OSCurrentTimeZone(&zone, &dst);
	EXPECT_EQ(zone, 5);
	EXPECT_TRUE(dst == 0 || dst == 1);
	OSCurrentTimeZone(nullptr, nullptr);

	// 2024-01-15 (JD 2460325) 12:00:00.25 GMT is 07:00 EST, a Monday.
	TIME winter = At(2460325, 12 * TICKS_IN_HOUR + 25);
	ASSERT_FALSE(TimeGMToLocal(&winter));
	EXPECT_EQ(winter.year, 2024);
	EXPECT_EQ(winter.month, 1);
	EXPECT_EQ(winter.day, 15);
	EXPECT_EQ(winter.weekday, 2);
	EXPECT_EQ(winter.hour, 7);
	EXPECT_EQ(winter.hundredth, 25);
	EXPECT_EQ(winter.zone, 5);
	EXPECT_EQ(winter.dst, 0);

	// 2024-07-15 (JD 2460507) 02:30 GMT is the evening before in EDT.
	TIME summer = At(2460507, 2 * TICKS_IN_HOUR + 30 * TICKS_IN_MINUTE);
	ASSERT_FALSE(TimeGMToLocal(&summer));
	EXPECT_EQ(summer.day, 14);
	EXPECT_EQ(summer.hour, 22);
	EXPECT_EQ(summer.minute, 30);
	EXPECT_EQ(summer.dst, 1);

	// The caller's zone: 3½ hours east (-3003), no daylight saving.
	TIME india = At(2460325, 12 * TICKS_IN_HOUR);
	india.zone = -3003;
	india.dst = 0;
	ASSERT_FALSE(TimeGMToLocalZone(&india));
	EXPECT_EQ(india.hour, 15);
	EXPECT_EQ(india.minute, 30);

	TIME bad = At(2460325, TICKS_IN_DAY + 1);
	EXPECT_TRUE(TimeGMToLocal(&bad)) << "TRUE reports an error";
}

// ---- The stand-in server's machinery: server.json -------------------------------------------------------

TEST(EmuServer, BusyDatabasesAnswerInUseUnderTheVirtualClockWithoutWaiting) {
	OwnServer server(R"({"clock": "virtual", "busy": {"rpx/rpmsg.nsf": 3, "RPX\\RPENCY": "always"}})");
	CreateDb("rpx/rpmsg.nsf", "Messages");
	CreateDb("rpx/rpency.nsf", "Patterns");
	TIMEDATE before, after;
	OSCurrentTIMEDATE(&before);
	auto start = std::chrono::steady_clock::now();
	for (int attempt = 0; attempt < 3; ++attempt)
		EXPECT_EQ(NSFTakeDatabaseOffline("rpx/rpmsg.nsf", 10000, OFFLINE_NODELETE), ERR_DBINUSE) << attempt;
	EXPECT_EQ(NSFTakeDatabaseOffline("rpx/rpmsg.nsf", 10000, OFFLINE_NODELETE), NOERROR);
	for (int attempt = 0; attempt < 5; ++attempt)
		EXPECT_EQ(NSFTakeDatabaseOffline("rpx/rpency.nsf", 10000, 0), ERR_DBINUSE) << attempt;
	EXPECT_TRUE(FileExists(server.folder() + "/data/rpx/rpency.nsf"));
	EXPECT_FALSE(AddInIdleDelay(60000));
	OSCurrentTIMEDATE(&after);

	EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "no real wait";
	int64_t advanced = TicksBetween(before, after);
	EXPECT_GE(advanced, (8 * 10000 + 60000) / 10);
	EXPECT_LT(advanced, (8 * 10000 + 60000 + 5000) / 10);
}

TEST(EmuServer, RpxrealHoldsItsDatabasesWhileItRuns) {
	OwnServer server(R"({"clock": "virtual", "tasks": {"rpxreal": {"running": true, "holds": ["rpx/rpvlog.nsf"]}}})");
	CreateDb("rpx/rpvlog.nsf", "Log");
	EXPECT_EQ(NSFTakeDatabaseOffline("rpx/rpvlog.nsf", 1000, OFFLINE_NODELETE), ERR_DBINUSE);
	std::string answer;
	EXPECT_EQ(Console("tell rpxreal restart", &answer), NOERROR);
	EXPECT_NE(answer.find("started"), std::string::npos);
	EXPECT_EQ(NSFTakeDatabaseOffline("rpx/rpvlog.nsf", 1000, OFFLINE_NODELETE), ERR_DBINUSE) << "holds it again";

	ConsoleWatch watch;
	EXPECT_EQ(Console("tell rpxreal quit"), NOERROR);
	EXPECT_EQ(NSFTakeDatabaseOffline("rpx/rpvlog.nsf", 1000, OFFLINE_NODELETE), NOERROR);
	EXPECT_EQ(Console("tell rpxreal restart", &answer), NOERROR);
	EXPECT_EQ(answer, "Task rpxreal is not running");
	EXPECT_TRUE(watch.Has("> tell rpxreal quit"));
	EXPECT_TRUE(watch.Has("Task rpxreal is not running"));

	ASSERT_EQ(server.Restart(R"({"tasks": {"rpxreal": {"running": false}}})"), NOERROR);
	EXPECT_EQ(Console("tell RPXREAL restart", &answer), NOERROR);
	EXPECT_EQ(answer, "Task RPXREAL is not running");
}

TEST(EmuServer, FaultsReachCallsByPathAndByUnidForTheirCount) {
	OwnServer server("");
	CreateDb("rpx/rpconf.nsf", "Configuration");
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("rpx/rpconf.nsf", &db), NOERROR);
	NOTEID target = AddDocument(db, {{"Form", "Policy"}});
	NOTEID other = AddDocument(db, {{"Form", "Policy"}});
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(db, target, 0, &note), NOERROR);
	std::string unid = UnidText(OidOf(note));
	NSFNoteClose(note);
	NSFDbClose(db);

	ASSERT_EQ(server.Restart(R"({"faults": [
	    {"call": "NSFDbOpen", "path": "RPX/rpconf", "status": 259, "count": 2},
	    {"call": "NSFNoteOpen", "unid": ")" + unid + R"(", "status": 1028, "count": 2},
	    {"call": "NSFItemGetText", "path": "rpx/rpconf.nsf", "unid": ")" + unid + R"(", "status": 546, "count": 1},
	    {"call": "OSLoadString", "status": 1}]})"),
	          NOERROR);
	CreateDb("rpx/rpmsg.nsf", "Messages");
	ASSERT_EQ(NSFDbOpen("rpx/rpmsg.nsf", &db), NOERROR) << "another database";
	NSFDbClose(db);
	EXPECT_EQ(NSFDbOpen("rpx/rpconf.nsf", &db), 259);
	EXPECT_EQ(NSFDbOpen("rpx/rpconf.nsf", &db), 259);
	ASSERT_EQ(NSFDbOpen("rpx/rpconf.nsf", &db), NOERROR) << "count used up";
	ASSERT_EQ(NSFNoteOpen(db, other, 0, &note), NOERROR) << "another note";
	NSFNoteClose(note);
	EXPECT_EQ(NSFNoteOpen(db, target, 0, &note), 1028);
	EXPECT_EQ(NSFNoteOpen(db, target, 0, &note), 1028);
	ASSERT_EQ(NSFNoteOpen(db, target, 0, &note), NOERROR);
	char text[32] = "x";
	EXPECT_EQ(NSFItemGetText(note, "Form", text, sizeof text - 1), 0) << "fails once";
	EXPECT_EQ(NSFItemGetText(note, "Form", text, sizeof text - 1), 6);
	NSFNoteClose(note);
	EXPECT_EQ(OSLoadString(NULLHANDLE, ERR_NOEXIST, text, sizeof text - 1), 0) << "every call, any database";
	EXPECT_EQ(OSLoadString(NULLHANDLE, ERR_NOEXIST, text, sizeof text - 1), 0);
	NSFDbClose(db);
}

TEST(EmuServer, MalformedServerJsonStopsInitialisationWithAMessage) {
	OwnServer server("");
	for (const char* json : {"{\"clock\": \"virtual\",", R"({"clock": "sundial"})", R"({"busy": {"rpx/a.nsf": "often"}})",
	                         R"({"faults": [{"call": "NSFDbOpen"}]})", R"({"faults": [{"call": "NSFDbOpen", "status": 259, "unid": "12"}]})",
	                         R"({"tasks": {"rpxreal": {"holds": "rpx/a.nsf"}}})"}) {
		::testing::internal::CaptureStderr();
		STATUS s = server.Restart(json);
		std::string message = ::testing::internal::GetCapturedStderr();
		EXPECT_NE(s, NOERROR) << json;
		EXPECT_NE(message.find("server.json"), std::string::npos) << json;
	}
	EXPECT_EQ(server.Restart(R"({"tempFolder": false, "clock": "real"})"), NOERROR);
}

// A typo must not silently disable a fault or widen it to every call: the whole object is
// checked, and the message names the key path and what is allowed.
TEST(EmuServer, ServerSettingsAreCheckedWhollyWithTheKeyPath) {
	struct Case {
		const char* json;
		const char* message;
	};
	const Case refused[] = {
	    {R"({"clok": "virtual"})", "clok: unknown key (allowed: clock, busy, faults, tasks, tempFolder)"},
	    {R"({"busy": {"rpx/a.nsf": 0}})", "busy[\"rpx/a.nsf\"]: a positive whole number or \"always\" expected"},
	    {R"({"faults": [{"call": "NSFDbOpen", "status": 259, "paht": "rpx/a.nsf"}]})",
	     "faults[0].paht: unknown key (allowed: call, action, status, path, unid, count, after)"},
	    {R"({"faults": [{"call": "NSFDbOpen", "status": 259}, {"call": "NSFDbOpenX", "status": 259}]})",
	     "faults[1].call: \"NSFDbOpenX\" is not a function of the platform API"},
	    {R"({"faults": [{"call": "malloc", "status": 1}]})", "faults[0].call: \"malloc\" is not a function"},
	    {R"({"faults": [{"call": "EmuConsoleCommand", "status": 1}]})", "faults[0].call:"},
	    {R"({"tasks": {"rpxreal": {"runing": false}}})", "tasks.rpxreal.runing: unknown key (allowed: running, holds)"},
	    {R"({"tempFolder": "no"})", "tempFolder: true or false expected"},
	    {R"([1])", "the settings must be a JSON object"},
	};
	char problem[256];
	for (const Case& c : refused) {
		EXPECT_EQ(EmuCheckServerSettings(c.json, problem, sizeof problem), ERR_IOERROR) << c.json;
		EXPECT_EQ(std::string(problem).find(c.message), 0u) << c.json << " gave " << problem;
	}
	EXPECT_EQ(EmuCheckServerSettings(R"({"clock": "virtual", "busy": {"rpx/a": "always"},
	                                     "faults": [{"call": "NSFNoteOpen", "status": 1028, "count": 2}],
	                                     "tasks": {"rpxreal": {"running": false, "holds": []}}})",
	                                 problem, sizeof problem),
	          NOERROR)
	    << problem;
	EXPECT_STREQ(problem, "");

	// Initialisation refuses the same and says where.
	OwnServer server("");
	::testing::internal::CaptureStderr();
	EXPECT_NE(server.Restart(R"({"faults": [{"call": "NSFDbOpenX", "status": 259}]})"), NOERROR);
	std::string message = ::testing::internal::GetCapturedStderr();
	EXPECT_NE(message.find("server.json: faults[0].call: \"NSFDbOpenX\""), std::string::npos) << message;
}

// notes.ini must name the data directory and be text in the native character set; the emulator
// has no default data directory to fall back on.
TEST(EmuServer, UnusableNotesIniStopsInitialisationWithAMessage) {
	OwnServer server("");
	std::string ini = server.folder() + "/notes.ini";
	std::string good;
	{
		std::ifstream in(ini);
		std::getline(in, good, '\0');
	}
	const std::string bad[] = {"", "[Notes]\nServerName=CN=Alpha/O=Acme\n", "[Notes]\nDirectory=\n",
	                           std::string("\xFF\xFE[\0N\0o\0t\0e\0s\0]\0", 16),
	                           std::string("[\0N\0o\0t\0e\0s\0]\0\n\0", 16)};
	for (const std::string& content : bad) {
		std::ofstream(ini, std::ios::binary | std::ios::trunc) << content;
		::testing::internal::CaptureStderr();
		STATUS s = server.Restart("");
		std::string message = ::testing::internal::GetCapturedStderr();
		EXPECT_NE(s, NOERROR) << ::testing::PrintToString(content);
		EXPECT_NE(message.find(ini), std::string::npos) << message;
	}
	std::ofstream(ini, std::ios::binary | std::ios::trunc) << "\xEF\xBB\xBF" << good;
	EXPECT_EQ(server.Restart(""), NOERROR) << "a UTF-8 byte order mark is skipped";
	char dir[MAXPATH];
	OSGetDataDirectory(dir);
	EXPECT_EQ(std::string(dir), server.folder() + "/data");
}

TEST(EmuServer, ConsoleCommandsOfTheHostAreRecordedAndEchoed) {
	OwnServer server("");
	EmuConsoleEcho(TRUE);
	::testing::internal::CaptureStdout();
	EXPECT_EQ(EmuConsoleCommand("tell rpxreal restart"), NOERROR);
	AddInLogMessageText(const_cast<char*>("echoed %s"), NOERROR, "message");
	std::string out = ::testing::internal::GetCapturedStdout();
	EmuConsoleEcho(FALSE);
	EXPECT_NE(out.find("  > tell rpxreal restart\n"), std::string::npos) << out;
	EXPECT_NE(out.find("  echoed message\n"), std::string::npos) << out;
	std::vector<std::string> lines = ConsoleLines();
	ASSERT_GE(lines.size(), 2u);
	EXPECT_EQ(lines[0].substr(21), "> tell rpxreal restart");
	EXPECT_EQ(ERR(EmuConsoleCommand(nullptr)), ERR_UNKNOWN);

	::testing::internal::CaptureStdout();
	AddInLogMessageText(const_cast<char*>("not echoed"), NOERROR);
	EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(EmuServer, OpenHandlesAreReportedOneLineEach) {
	OwnServer server("");
	CreateDb("rpx/open.nsf", "Open");
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen("rpx/open.nsf", &db), NOERROR);
	DHANDLE mem;
	ASSERT_EQ(OSMemAlloc(0, 16, &mem), NOERROR);
	FORMULAHANDLE formula;
	WORD length, errorCode, line, column, offset, errorLength;
	char text[] = "SELECT @All";
	ASSERT_EQ(NSFFormulaCompile(nullptr, 0, text, sizeof text - 1, &formula, &length, &errorCode, &line, &column,
	                            &offset, &errorLength),
	          NOERROR);
	std::vector<std::string> lines;
	EmuOpenHandleReport([](const char* line, void* ctx) { static_cast<std::vector<std::string>*>(ctx)->push_back(line); },
	                    &lines);
	ASSERT_EQ(lines.size(), EmuOpenHandleCount());
	ASSERT_EQ(lines.size(), 3u);
	EXPECT_NE(lines[0].find("database"), std::string::npos);
	EXPECT_NE(lines[0].find("rpx/open.nsf"), std::string::npos);
	// Memory names the call that allocated it, so a leak can be told from a handle kept on purpose.
	EXPECT_EQ(lines[1], "memory handle " + std::to_string(mem) + " (16 bytes) from OSMemAlloc");
	EXPECT_EQ(lines[2].find("memory handle " + std::to_string(formula) + " ("), 0u) << lines[2];
	EXPECT_NE(lines[2].find(") from NSFFormulaCompile"), std::string::npos) << lines[2];
	OSMemFree(formula);
	OSMemFree(mem);
	NSFDbClose(db);
}

}  // namespace
}  // namespace platform_test
