// Shared helpers of the platform conformance tests. The tests use only the
// public Notes API, so they state rules of the platform that would hold
// against a real server too. Where the emulator knowingly differs, the test
// says so with EMU_KNOWN_DIFFERENCE (recorded as a test property).
#ifndef TESTS_NOTESAPI_PLATFORMTEST_H
#define TESTS_NOTESAPI_PLATFORMTEST_H

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "global.h"
#include "names.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmem.h"

#define EMU_KNOWN_DIFFERENCE(why) ::testing::Test::RecordProperty("emu_known_difference", why)

namespace platform_test {

// Folder of the temporary server (notes.ini, data/) the suite runs on.
const std::string& ServerFolder();
// "Directory" of the test server.
std::string DataFolder();
// "ServerName" of the test server.
const char* TestServerName();

// A fresh database under data/ for one test; closed (not deleted) at the end.
class TestDb {
public:
	explicit TestDb(const std::string& name);
	~TestDb();
	DBHANDLE handle() const { return handle_; }
	const std::string& path() const { return path_; }
	operator DBHANDLE() const { return handle_; }

private:
	std::string path_;
	DBHANDLE handle_ = NULLHANDLE;
};

// The UNID as the product writes it: "%08X%08X%08X%08X" of File then Note,
// each high word first.
std::string UnidText(const ORIGINATORID& oid);
ORIGINATORID OidOf(NOTEHANDLE note);
NOTEID IdOf(NOTEHANDLE note);

// Creates and saves a document with text items (name, value, ...); returns its note ID.
NOTEID AddDocument(DBHANDLE db, const std::vector<std::pair<std::string, std::string>>& texts);
std::string TextOf(DBHANDLE db, NOTEID id, const char* item);

// Compiled formula, or NULLHANDLE with a test failure.
FORMULAHANDLE Compile(const char* text);

struct Visit {
	NOTEID id;
	WORD noteClass;
	BYTE flags;
};
// Runs NSFSearch and collects every reported note.
STATUS Search(DBHANDLE db, FORMULAHANDLE formula, WORD classMask, std::vector<Visit>& visits,
              WORD searchFlags = 0);

}  // namespace platform_test

#endif
