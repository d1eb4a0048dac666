// What a change that NSFNoteUpdate has accepted can rely on: it outlives the process that made
// it, and a database file copied once its last handle is closed holds every change.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "PlatformTest.h"

using namespace platform_test;

namespace {

std::string MakeDatabaseWithOneDocument(const std::string& name, NOTEID& id) {
	TestDb db(name);
	id = AddDocument(db, {{"Form", "Memo"}, {"Subject", "before"}});
	return db.path();
}

// In a child process: adds a document and rewrites another, then dies without closing anything.
// The exit code tells which step failed (0: both changes were accepted).
int ChangeAndDie(const std::string& path, NOTEID existing) {
	pid_t child = fork();
	if (child == 0) {
		DBHANDLE db;
		if (NSFDbOpen(path.c_str(), &db) != NOERROR) _exit(1);
		NOTEHANDLE note;
		if (NSFNoteCreate(db, &note) != NOERROR) _exit(2);
		NSFItemSetText(note, "Form", "Added", MAXWORD);
		if (NSFNoteUpdate(note, 0) != NOERROR) _exit(3);
		if (NSFNoteOpen(db, existing, 0, &note) != NOERROR) _exit(4);
		NSFItemSetText(note, "Subject", "after", MAXWORD);
		if (NSFNoteUpdate(note, 0) != NOERROR) _exit(5);
		_exit(0);
	}
	int status = -1;
	if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
	return WEXITSTATUS(status);
}

// In a child process: rewrites one note `times` times (Subject "1", "2", ...) and adds a
// document after every hundredth rewrite, then dies without closing anything.
int RewriteManyTimesAndDie(const std::string& path, NOTEID existing, int times) {
	pid_t child = fork();
	if (child == 0) {
		DBHANDLE db;
		if (NSFDbOpen(path.c_str(), &db) != NOERROR) _exit(1);
		NOTEHANDLE note;
		if (NSFNoteOpen(db, existing, 0, &note) != NOERROR) _exit(2);
		for (int i = 1; i <= times; ++i) {
			NSFItemSetText(note, "Subject", std::to_string(i).c_str(), MAXWORD);
			if (NSFNoteUpdate(note, UPDATE_FORCE) != NOERROR) _exit(3);
			if (i % 100 != 0) continue;
			NOTEHANDLE added;
			if (NSFNoteCreate(db, &added) != NOERROR) _exit(4);
			NSFItemSetText(added, "Form", "Added", MAXWORD);
			if (NSFNoteUpdate(added, 0) != NOERROR) _exit(5);
			NSFNoteClose(added);
		}
		_exit(0);
	}
	int status = -1;
	if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
	return WEXITSTATUS(status);
}

std::vector<std::string> FormsOf(const std::string& path) {
	DBHANDLE db;
	EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	std::vector<Visit> visits;
	EXPECT_EQ(Search(db, NULLHANDLE, NOTE_CLASS_DOCUMENT, visits), NOERROR);
	std::vector<std::string> forms;
	for (const Visit& visit : visits) forms.push_back(TextOf(db, visit.id, "Form"));
	NSFDbClose(db);
	return forms;
}

}  // namespace

TEST(PlatformDurability, AcceptedChangesOutliveAProcessThatDiesWithTheDatabaseOpen) {
	NOTEID existing;
	std::string path = MakeDatabaseWithOneDocument("durable_after_death.nsf", existing);
	ASSERT_EQ(ChangeAndDie(path, existing), 0);

	EXPECT_EQ(FormsOf(path), (std::vector<std::string>{"Memo", "Added"}));
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	EXPECT_EQ(TextOf(db, existing, "Subject"), "after");
	NSFDbClose(db);
}

TEST(PlatformDurability, AFileCopiedAfterTheLastCloseHoldsEveryChange) {
	NOTEID existing;
	std::string path = MakeDatabaseWithOneDocument("durable_copy_source.nsf", existing);
	{
		DBHANDLE db;
		ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
		AddDocument(db, {{"Form", "Added"}});
		NOTEHANDLE note;
		ASSERT_EQ(NSFNoteOpen(db, existing, 0, &note), NOERROR);
		NSFItemSetText(note, "Subject", "after", MAXWORD);
		ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
		NSFNoteClose(note);
		NSFDbClose(db);
	}
	std::string copy = "tests/durable_copy.nsf";
	std::filesystem::copy_file(DataFolder() + "/" + path, DataFolder() + "/" + copy,
	                           std::filesystem::copy_options::overwrite_existing);

	EXPECT_EQ(FormsOf(copy), (std::vector<std::string>{"Memo", "Added"}));
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(copy.c_str(), &db), NOERROR);
	EXPECT_EQ(TextOf(db, existing, "Subject"), "after");
	NSFDbClose(db);
}

TEST(PlatformDurability, ALongRunOfChangesOutlivesTheProcessInFullAndInOrder) {
	NOTEID existing;
	std::string path = MakeDatabaseWithOneDocument("durable_long_run.nsf", existing);
	ASSERT_EQ(RewriteManyTimesAndDie(path, existing, 10000), 0);

	std::vector<std::string> forms = FormsOf(path);
	ASSERT_EQ(forms.size(), 101u);
	EXPECT_EQ(std::count(forms.begin(), forms.end(), "Added"), 100);
	DBHANDLE db;
	ASSERT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR);
	EXPECT_EQ(TextOf(db, existing, "Subject"), "10000");
	NSFDbClose(db);
}
