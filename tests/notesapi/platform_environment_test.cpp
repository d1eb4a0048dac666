// The test server the platform suite runs on, and the settings that
// initialisation reads from its notes.ini.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "PlatformTest.h"
#include "emu/notesemu.h"
#include "kfm.h"
#include "names.h"
#include "osenv.h"
#include "osfile.h"
#include "osmisc.h"

namespace platform_test {
namespace {

std::string gServer;

// "Grüße 日本" in the native character set (UTF-8), as an editor writes it into notes.ini.
const char kNativeGreeting[] = "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC";

class PlatformEnvironment : public ::testing::Environment {
public:
	void SetUp() override {
		char pattern[] = "/tmp/platform_tests_XXXXXX";
		ASSERT_NE(mkdtemp(pattern), nullptr);
		gServer = pattern;
		ASSERT_EQ(mkdir((gServer + "/data").c_str(), 0755), 0);
		std::ofstream ini(gServer + "/notes.ini");
		ini << "[Notes]\n"
		    << "Directory=" << gServer << "/data\n"
		    << "ServerName=" << TestServerName() << "\n"
		    << "MailServer=CN=Beta/O=Acme\n"
		    << "RPX_ENABLE_RPENCY_LOG=1\n"
		    << "Greeting=" << kNativeGreeting << "\n";
		ini.close();
		std::string arg = "=" + gServer + "/notes.ini";
		char* argv[] = {const_cast<char*>("platform_tests"), &arg[0], nullptr};
		ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
	}
	void TearDown() override {
		NotesTerm();
		std::string command = "rm -rf '" + gServer + "'";
		if (std::system(command.c_str()) != 0) std::fprintf(stderr, "could not remove %s\n", gServer.c_str());
	}
};

const auto* const gEnvironment = ::testing::AddGlobalTestEnvironment(new PlatformEnvironment);

}  // namespace

const std::string& ServerFolder() { return gServer; }
std::string DataFolder() { return gServer + "/data"; }
const char* TestServerName() { return "CN=Alpha/O=Acme"; }

// ---- Helpers shared by the suite ---------------------------------------------------

TestDb::TestDb(const std::string& name) : path_("tests/" + name) {
	std::remove((DataFolder() + "/" + path_).c_str());
	EXPECT_EQ(NSFDbCreate(path_.c_str(), DBCLASS_BY_EXTENSION, FALSE), NOERROR);
	EXPECT_EQ(NSFDbOpen(path_.c_str(), &handle_), NOERROR);
}

TestDb::~TestDb() {
	if (handle_ != NULLHANDLE) NSFDbClose(handle_);
}

std::string UnidText(const ORIGINATORID& oid) {
	char text[33];
	std::snprintf(text, sizeof text, "%08X%08X%08X%08X", oid.File.Innards[1], oid.File.Innards[0],
	              oid.Note.Innards[1], oid.Note.Innards[0]);
	return text;
}

ORIGINATORID OidOf(NOTEHANDLE note) {
	ORIGINATORID oid;
	std::memset(&oid, 0, sizeof oid);
	NSFNoteGetInfo(note, _NOTE_OID, &oid);
	return oid;
}

NOTEID IdOf(NOTEHANDLE note) {
	NOTEID id = 0;
	NSFNoteGetInfo(note, _NOTE_ID, &id);
	return id;
}

NOTEID AddDocument(DBHANDLE db, const std::vector<std::pair<std::string, std::string>>& texts) {
	NOTEHANDLE note;
	EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
	for (const auto& text : texts)
		EXPECT_EQ(NSFItemSetText(note, text.first.c_str(), text.second.c_str(), MAXWORD), NOERROR);
	EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
	NOTEID id = IdOf(note);
	NSFNoteClose(note);
	return id;
}

std::string TextOf(DBHANDLE db, NOTEID id, const char* item) {
	NOTEHANDLE note;
	if (NSFNoteOpen(db, id, 0, &note) != NOERROR) return "<no note>";
	char text[256];
	NSFItemGetText(note, item, text, sizeof text);
	NSFNoteClose(note);
	return text;
}

FORMULAHANDLE Compile(const char* text) {
	FORMULAHANDLE formula = NULLHANDLE;
	WORD length = 0, line = 0, column = 0, offset = 0, errorLength = 0;
	STATUS error = 0;
	STATUS s = NSFFormulaCompile(nullptr, 0, text, static_cast<WORD>(std::strlen(text)), &formula, &length,
	                             &error, &line, &column, &offset, &errorLength);
	EXPECT_EQ(s, NOERROR) << text;
	return formula;
}

namespace {

STATUS LNCALLBACK Collect(void* param, SEARCH_MATCH* match, ITEM_TABLE*) {
	SEARCH_MATCH m;
	std::memcpy(&m, match, sizeof m);
	static_cast<std::vector<Visit>*>(param)->push_back({m.ID.NoteID, m.NoteClass, m.SERetFlags});
	return NOERROR;
}

}  // namespace

STATUS Search(DBHANDLE db, FORMULAHANDLE formula, WORD classMask, std::vector<Visit>& visits,
              WORD searchFlags) {
	visits.clear();
	return NSFSearch(db, formula, nullptr, searchFlags, classMask, nullptr, Collect, &visits, nullptr);
}

// ---- Settings read from notes.ini ------------------------------------------------

TEST(PlatformSettings, NotesIniValuesAreReadCaseInsensitively) {
	char value[MAXENVVALUE];
	ASSERT_TRUE(OSGetEnvironmentString("mailserver", value, sizeof value - 1));
	EXPECT_STREQ(value, "CN=Beta/O=Acme");
	EXPECT_EQ(OSGetEnvironmentLong("RPX_ENABLE_RPENCY_LOG"), 1);
	EXPECT_EQ(OSGetEnvironmentLong("NoSuchSetting"), 0);
	EXPECT_FALSE(OSGetEnvironmentString("NoSuchSetting", value, sizeof value - 1));
	EXPECT_STREQ(value, "");
}

TEST(PlatformSettings, ValueIsCutToTheBufferAndTerminated) {
	char value[6];
	std::memset(value, 'x', sizeof value);
	ASSERT_TRUE(OSGetEnvironmentString("MailServer", value, sizeof value - 1));
	EXPECT_STREQ(value, "CN=Be");
}

TEST(PlatformSettings, SetVariableIsSeenByLaterReads) {
	OSSetEnvironmentVariable("PlatformTestSetting", "42");
	EXPECT_EQ(OSGetEnvironmentLong("PLATFORMTESTSETTING"), 42);
	OSSetEnvironmentVariable("PlatformTestSetting", "text");
	EXPECT_EQ(OSGetEnvironmentLong("PlatformTestSetting"), 0);
}

TEST(PlatformSettings, DirectoriesAndServerNameComeFromNotesIni) {
	char path[MAXPATH];
	WORD length = OSGetDataDirectory(path);
	EXPECT_EQ(std::string(path), DataFolder());
	EXPECT_EQ(length, DataFolder().size());
	OSGetExecutableDirectory(path);
	EXPECT_EQ(std::string(path), ServerFolder());
	length = OSGetIniFileName(path);
	EXPECT_EQ(std::string(path), ServerFolder() + "/notes.ini");
	EXPECT_EQ(length, std::strlen(path));
	char name[MAXUSERNAME + 1];
	ASSERT_EQ(SECKFMGetUserName(name), NOERROR);
	EXPECT_STREQ(name, TestServerName());
}

// The platform's texts are LMBCS: a notes.ini value written in the native character set comes
// back as LMBCS, and OSTranslate gives the native text again.
TEST(PlatformSettings, ValuesAreHandedOutAsLmbcs) {
	char lmbcs[MAXENVVALUE];
	WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, kNativeGreeting, MAXWORD, lmbcs, sizeof lmbcs - 1);
	lmbcs[length] = '\0';
	ASSERT_NE(std::string(lmbcs), kNativeGreeting);

	char value[MAXENVVALUE];
	ASSERT_TRUE(OSGetEnvironmentString("Greeting", value, sizeof value - 1));
	EXPECT_EQ(std::string(value), lmbcs);
	char native[MAXENVVALUE];
	length = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, value, MAXWORD, native, sizeof native - 1);
	native[length] = '\0';
	EXPECT_STREQ(native, kNativeGreeting);

	// A value set through the API is LMBCS too and reads back unchanged.
	OSSetEnvironmentVariable("PlatformTestGreeting", lmbcs);
	ASSERT_TRUE(OSGetEnvironmentString("PlatformTestGreeting", value, sizeof value - 1));
	EXPECT_EQ(std::string(value), lmbcs);
}

// A path given to the platform is LMBCS: the file on disk has the native name.
TEST(PlatformSettings, DatabasePathsAreTakenAsLmbcs) {
	std::string native = std::string("tests/") + kNativeGreeting + ".nsf";
	char lmbcs[MAXPATH];
	WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, native.c_str(), MAXWORD, lmbcs, sizeof lmbcs - 1);
	lmbcs[length] = '\0';
	std::remove((DataFolder() + "/" + native).c_str());
	ASSERT_EQ(NSFDbCreate(lmbcs, DBCLASS_BY_EXTENSION, FALSE), NOERROR);
	struct stat st;
	EXPECT_EQ(::stat((DataFolder() + "/" + native).c_str(), &st), 0) << "no file " << native;
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(lmbcs, &db), NOERROR);
	NSFDbClose(db);
	EXPECT_EQ(NSFDbDelete(lmbcs), NOERROR);
}

TEST(PlatformSettings, NotesProgramOverridesTheExecutableDirectory) {
	OSSetEnvironmentVariable("NotesProgram", "/opt/notes/program");
	char path[MAXPATH];
	OSGetExecutableDirectory(path);
	OSSetEnvironmentVariable("NotesProgram", "");
	EXPECT_STREQ(path, "/opt/notes/program");
}

}  // namespace platform_test

namespace platform_test {

TEST(PlatformSettings, NetworkPathsAreBuiltAndTakenApart) {
	char path[MAXPATH], port[MAXPATH], server[MAXUSERNAME], file[MAXPATH];
	ASSERT_EQ(OSPathNetConstruct(nullptr, "CN=Alpha/O=Acme", "rpx/rpconf.nsf", path), NOERROR);
	EXPECT_STREQ(path, "CN=Alpha/O=Acme!!rpx/rpconf.nsf");
	ASSERT_EQ(OSPathNetParse(path, port, server, file), NOERROR);
	EXPECT_STREQ(port, "");
	EXPECT_STREQ(server, "CN=Alpha/O=Acme");
	EXPECT_STREQ(file, "rpx/rpconf.nsf");
	ASSERT_EQ(OSPathNetConstruct("TCPIP", "Alpha", "names.nsf", path), NOERROR);
	ASSERT_EQ(OSPathNetParse(path, port, server, file), NOERROR);
	EXPECT_STREQ(port, "TCPIP");
	EXPECT_STREQ(file, "names.nsf");
	ASSERT_EQ(OSPathNetConstruct(nullptr, "", "local.nsf", path), NOERROR);
	EXPECT_STREQ(path, "local.nsf");
}

}  // namespace platform_test
