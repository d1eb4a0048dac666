// SetAllDatabasesBuild and BuildNumber: the product's database table and the build stamp in the
// help notes of its databases; a note that cannot be stamped is reported on the server console.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"

#include <cstring>

#include "DatabaseMaintenance.h"
#include "RkFormat.h"

DBNameEntry DBNames[kDBNamesRows] = {
    {"rpconf.ntf", "rpconf.nsf", {0}, 1},
    {"rpxdtas.ntf", "rpxdtas.nsf", {0}, 1},
    {"rpency.ntf", "rpency.nsf", {0}, 1},
    {"rpvlog.ntf", "rpvlog.nsf", {0}, 1},
    {"rpquar.ntf", "rpquar.nsf", {0}, 1},
    {nullptr, "rpftypes.nsf", {0}, 1},
    {nullptr, "rphelp.nsf", {0}, 1},
    {"rptime.ntf", "rptime.nsf", {0}, 1},
    {"rpxapproved.ntf", "rpxapproved.nsf", {0}, 1},
    {nullptr, "rpmsg.nsf", {0}, 0},
    {nullptr, "rplists.nsf", {0}, 0},
    {nullptr, nullptr, {0}, 0},
};

namespace {

const size_t kNameSize = 256;
const char kBuildItem[] = "BuildNumber";

void DatabasePath(const char* databaseName, char* path, size_t size) {
    char name[kNameSize + 1];
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, databaseName, MAXWORD, name, kNameSize);
    name[length <= kNameSize ? length : kNameSize] = '\0';
    rk_snprintf(path, size, "%s/%s", "rpx", name);
}

void ReportOnConsole(STATUS status) {
    char native[kStatusTextSize];
    ReportStatusOnConsole(status, native);
}

}  // namespace

void StampHelpNotes(const char* notesPath) {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(notesPath, &db) != NOERROR) return;
    LogDebugMessage(1, "Info: start to set build number -'%s'.\n", notesPath);
    DbSearchParam param;
    param.hDb = db;
    if (NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_HELP, nullptr, BuildNumber, &param, nullptr) !=
        NOERROR) {
        LogDebugMessage(1, "Error: Set build number failed -'%s'.\n", notesPath);
    }
    NSFDbClose(db);
}

STATUS LNCALLBACK BuildNumber(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    LogDebugMessage(1, "Set the build number to '%s'", g_szRkRPXBuildVersion);
    char build[sizeof g_szRkRPXBuildVersion];
    std::memcpy(build, g_szRkRPXBuildVersion, sizeof build);
    build[sizeof build - 1] = '\0';

    DBHANDLE db;
    std::memcpy(&db, parameter, sizeof db);
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(db, found.ID.NoteID, 0, &note);
    if (status != NOERROR) {
        ReportOnConsole(status);
        return NOERROR;
    }
    // The note stays open on every path: closing the database releases it.
    status = NSFItemSetText(note, kBuildItem, build, (WORD)std::strlen(build));
    if (status != NOERROR) {
        ReportOnConsole(status);
        return NOERROR;
    }
    NSFNoteUpdate(note, UPDATE_FORCE);
    return NOERROR;
}

int SetAllDatabasesBuild() {
    LogDebugMessage(1, "Info: Begin process databases.");
    for (int row = 0; row < kDBNamesRows && DBNames[row].databaseName != nullptr; ++row) {
        char path[kNameSize + 8];
        DatabasePath(DBNames[row].databaseName, path, sizeof path);
        StampHelpNotes(path);
    }
    LogDebugMessage(1, "Info: Have processed all RPX databases.");
    return 0;
}
