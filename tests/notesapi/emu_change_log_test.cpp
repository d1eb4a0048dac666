// The emulator's change log beside an open database (<file>-redo): what a killed process
// left there is applied at the next open, once, and a damaged or foreign log never harms
// the database. These tests look at the emulator's own files, so they hold for it only.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <filesystem>
#include <fstream>

#include "PlatformTest.h"

using namespace platform_test;
namespace fs = std::filesystem;

namespace {

std::string MakeDatabase(const std::string& name, NOTEID& id) {
	TestDb db(name);
	id = AddDocument(db, {{"Form", "Memo"}, {"Subject", "made"}});
	return db.path();
}

void SetSubject(DBHANDLE db, NOTEID id, const char* subject) {
	NOTEHANDLE note;
	ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
	NSFItemSetText(note, "Subject", subject, MAXWORD);
	ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
	NSFNoteClose(note);
}

// Sets the Subject in a child process that dies with the database open; true if it did.
bool SetSubjectAndDie(const std::string& path, NOTEID id, const char* subject) {
	pid_t child = fork();
	if (child == 0) {
		DBHANDLE db;
		NOTEHANDLE note;
		if (NSFDbOpen(path.c_str(), &db) != NOERROR || NSFNoteOpen(db, id, 0, &note) != NOERROR) _exit(1);
		NSFItemSetText(note, "Subject", subject, MAXWORD);
		_exit(NSFNoteUpdate(note, UPDATE_FORCE) == NOERROR ? 0 : 2);
	}
	int status = -1;
	return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string SubjectOf(const std::string& path, NOTEID id) {
	DBHANDLE db;
	EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	std::string subject = TextOf(db, id, "Subject");
	NSFDbClose(db);
	return subject;
}

std::string FileOf(const std::string& path) {
	return DataFolder() + "/" + path;
}

}  // namespace

TEST(EmuChangeLog, IsGoneOnceTheLastHandleClosesAndIsAppliedOnlyOnce) {
	NOTEID id;
	std::string path = MakeDatabase("changelog_once.nsf", id);
	std::string log = FileOf(path) + "-redo";
	EXPECT_FALSE(fs::exists(log)) << "a closed database is one file";

	ASSERT_TRUE(SetSubjectAndDie(path, id, "from the killed process"));
	ASSERT_TRUE(fs::exists(log));
	std::string kept = log + ".kept";
	fs::copy_file(log, kept, fs::copy_options::overwrite_existing);

	EXPECT_EQ(SubjectOf(path, id), "from the killed process");
	EXPECT_FALSE(fs::exists(log));
	ASSERT_TRUE(SetSubjectAndDie(path, id, "from the second killed process"));
	EXPECT_EQ(SubjectOf(path, id), "from the second killed process");
	// The first log put back: its records are older than the file and must not be applied again.
	fs::copy_file(kept, log, fs::copy_options::overwrite_existing);
	EXPECT_EQ(SubjectOf(path, id), "from the second killed process");
	{
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
		SetSubject(db, id, "later");
		NSFDbClose(db);
	}
	fs::copy_file(kept, log, fs::copy_options::overwrite_existing);
	EXPECT_EQ(SubjectOf(path, id), "later");
}

// Damages the log a killed process left, in one of several ways.
void Damage(const std::string& log, const std::string& how) {
	if (how == "flipped") {  // one byte inside the only record's payload
		std::fstream f(log, std::ios::in | std::ios::out | std::ios::binary);
		const std::streamoff at = 16 + 24 + 10;
		char c = 0;
		f.seekg(at);
		f.read(&c, 1);
		c = static_cast<char>(c ^ 0x40);
		f.seekp(at);
		f.write(&c, 1);
	} else if (how == "cut") {
		fs::resize_file(log, 16 + 24 + 3);
	} else if (how == "garbage") {
		std::ofstream(log, std::ios::binary | std::ios::trunc) << std::string(4096, '\x5a');
	} else {
		std::ofstream(log, std::ios::binary | std::ios::trunc);
	}
}

TEST(EmuChangeLog, ADamagedLogNeverHarmsTheDatabase) {
	for (std::string how : {"flipped", "cut", "garbage", "empty"}) {
		SCOPED_TRACE(how);
		NOTEID id;
		std::string path = MakeDatabase("changelog_" + how + ".nsf", id);
		std::string log = FileOf(path) + "-redo";
		ASSERT_TRUE(SetSubjectAndDie(path, id, "lost"));
		ASSERT_TRUE(fs::exists(log));
		Damage(log, how);
		EXPECT_EQ(SubjectOf(path, id), "made");
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
		SetSubject(db, id, "changed after");
		NSFDbClose(db);
		EXPECT_EQ(SubjectOf(path, id), "changed after");
	}
}

namespace {

// Rewrites a note's Subject and Body. Bodies that grow to span several pages make a run of these
// rewrites outgrow the page cache, which then writes pages out before the group is committed.
STATUS Rewrite(DBHANDLE db, NOTEID id, const char* subject, char fill, size_t bodySize) {
	NOTEHANDLE note;
	if (STATUS s = NSFNoteOpen(db, id, 0, &note)) return s;
	NSFItemSetText(note, "Subject", subject, MAXWORD);
	NSFItemDelete(note, "Body", 4);
	const std::string body(bodySize, fill);
	NSFItemAppend(note, 0, "Body", 4, TYPE_TEXT, body.data(), static_cast<DWORD>(body.size()));
	STATUS s = NSFNoteUpdate(note, UPDATE_FORCE);
	NSFNoteClose(note);
	return s;
}

}  // namespace

// A rewrite the file refuses in the middle of a group (its writes are limited to a few pages, so
// writing out the group's pages fails) takes the group's transaction with it. The rewrites accepted
// before it come back from the log, once the file takes writes again in the same process, and at
// the next open; the refused one is nowhere.
TEST(EmuChangeLog, ARewriteTheFileRefusesLeavesTheAcceptedOnesAndNotItself) {
	std::vector<NOTEID> ids;
	std::string path;
	{
		TestDb db("changelog_refused.nsf");
		path = db.path();
		for (int i = 0; i < 150; ++i) ids.push_back(AddDocument(db, {{"Form", "Memo"}, {"Subject", "old"}}));
		for (NOTEID id : ids) ASSERT_EQ(Rewrite(db, id, "old", 'o', 500), NOERROR);
	}
	int fds[2];
	ASSERT_EQ(pipe(fds), 0);
	pid_t child = fork();
	if (child == 0) {
		DBHANDLE db;
		if (NSFDbOpen(path.c_str(), &db) != NOERROR || Rewrite(db, ids[0], "new", 'n', 20000) != NOERROR) _exit(1);
		std::signal(SIGXFSZ, SIG_IGN);
		rlimit limit{64 * 1024, RLIM_INFINITY};
		if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(2);
		int accepted = 1;
		while (accepted < static_cast<int>(ids.size()) && Rewrite(db, ids[accepted], "new", 'n', 20000) == NOERROR) ++accepted;
		limit.rlim_cur = RLIM_INFINITY;
		if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(3);
		int report[3] = {accepted, Rewrite(db, ids.back(), "new", 'n', 20000) == NOERROR ? 1 : 0, 0};
		for (NOTEID id : ids) report[2] += TextOf(db, id, "Subject") == "new" ? 1 : 0;
		if (write(fds[1], report, sizeof report) != sizeof report) _exit(4);
		_exit(0);  // dies with the database open
	}
	close(fds[1]);
	int report[3] = {0, 0, 0};
	ASSERT_EQ(read(fds[0], report, sizeof report), static_cast<ssize_t>(sizeof report));
	close(fds[0]);
	int status = -1;
	ASSERT_EQ(waitpid(child, &status, 0), child);
	ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
	const int accepted = report[0];
	ASSERT_GT(accepted, 1);
	ASSERT_LT(accepted, static_cast<int>(ids.size()) - 1) << "no rewrite was refused";
	EXPECT_EQ(report[1], 1) << "a rewrite after the file takes writes again";
	EXPECT_EQ(report[2], accepted + 1) << "seen in the process";

	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	for (size_t i = 0; i < ids.size(); ++i) {
		const bool rewritten = static_cast<int>(i) < accepted || i + 1 == ids.size();
		EXPECT_EQ(TextOf(db, ids[i], "Subject"), rewritten ? "new" : "old") << "note " << i;
	}
	NSFDbClose(db);
}
