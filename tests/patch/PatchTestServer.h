// The test server of the patch suite: a temporary folder with notes.ini, data/ (with rpx/ and
// rpxtemp/) and install/, on which the platform is initialised once per process. Tests that
// derive from PatchPlatformTest start with the platform restarted from that notes.ini: no
// handle left open by an earlier test and no setting changed by one ("MailServer" is not set).
#ifndef TESTS_PATCH_PATCHTESTSERVER_H
#define TESTS_PATCH_PATCHTESTSERVER_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmem.h"

namespace patch_test {

inline std::string& ServerFolderStorage() {
    static std::string folder;
    return folder;
}

inline const std::string& ServerFolder() {
    return ServerFolderStorage();
}
inline std::string DataFolder() {
    return ServerFolder() + "/data";
}
inline std::string IniPath() {
    return ServerFolder() + "/notes.ini";
}

// Everything the server console has shown so far (each line time-stamped by the platform).
inline std::string ConsoleText() {
    std::ifstream in(ServerFolder() + "/console.log", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline STATUS InitPlatform() {
    std::string arg = "=" + IniPath();
    char* argv[] = {const_cast<char*>("patch_tests"), &arg[0], nullptr};
    return NotesInitExtended(2, argv);
}

class PatchServerEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        char pattern[] = "/tmp/patch_tests_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        ServerFolderStorage() = pattern;
        for (const char* sub : {"/data", "/data/rpx", "/data/rpxtemp", "/install"}) {
            ASSERT_EQ(mkdir((ServerFolder() + sub).c_str(), 0755), 0);
        }
        std::ofstream ini(IniPath());
        ini << "[Notes]\n"
            << "Directory=" << DataFolder() << "\n"
            << "ServerName=CN=Alpha/O=Acme\n"
            << "VeltrixInstallPath=" << ServerFolder() << "/install\n"
            << "RPX_ENABLE_RPENCY_LOG=1\n";
        ini.close();
        ASSERT_EQ(InitPlatform(), NOERROR);
    }
    void TearDown() override {
        NotesTerm();
        std::string command = "rm -rf '" + ServerFolder() + "'";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "could not remove %s\n", ServerFolder().c_str());
        }
    }
};

inline ::testing::Environment* const gPatchServerEnvironment =
    ::testing::AddGlobalTestEnvironment(new PatchServerEnvironment);

class PatchPlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        NotesTerm();
        ASSERT_EQ(InitPlatform(), NOERROR);
    }
};

// A new, empty database at notesPath (an older one is deleted first), opened.
inline DBHANDLE FreshDatabase(const std::string& notesPath) {
    NSFDbDelete(notesPath.c_str());
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbCreate(notesPath.c_str(), DBCLASS_BY_EXTENSION, FALSE), NOERROR) << notesPath;
    EXPECT_EQ(NSFDbOpen(notesPath.c_str(), &db), NOERROR) << notesPath;
    return db;
}

using TextItems = std::vector<std::pair<std::string, std::string>>;

// Saves a note of noteClass with the given text items; returns its note ID.
inline NOTEID AddNote(DBHANDLE db, WORD noteClass, const TextItems& items = {}) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
    NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);
    for (const auto& item : items) {
        EXPECT_EQ(NSFItemSetText(note, item.first.c_str(), item.second.c_str(), MAXWORD), NOERROR);
    }
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    return id;
}

// Text of an item of a saved note ("" when absent).
inline std::string ItemText(DBHANDLE db, NOTEID id, const char* item) {
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpen(db, id, 0, &note) != NOERROR) return "<note not found>";
    char text[512] = {0};
    NSFItemGetText(note, item, text, sizeof text);
    NSFNoteClose(note);
    return text;
}

inline bool HasItem(DBHANDLE db, NOTEID id, const char* item) {
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpen(db, id, 0, &note) != NOERROR) return false;
    bool present =
        NSFItemInfo(note, item, (WORD)std::strlen(item), nullptr, nullptr, nullptr, nullptr) == NOERROR;
    NSFNoteClose(note);
    return present;
}

// A SEARCH_MATCH for note id, as a search hands it to a callback.
inline SEARCH_MATCH MatchFor(NOTEID id, BYTE flags = SE_FMATCH) {
    SEARCH_MATCH match;
    std::memset(&match, 0, sizeof match);
    match.ID.NoteID = id;
    match.SERetFlags = flags;
    return match;
}

}  // namespace patch_test

#endif
