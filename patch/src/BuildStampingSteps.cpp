// The product's database table and the build-stamping walk over it. The console report of a
// failed stamp is BuildNumber's (BuildStamping.cpp).
#include <cstring>

#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"
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

void StampDatabase(const char* databaseName, NSFSEARCHPROC stampNote) {
    char path[kNameSize + 8];
    DatabasePath(databaseName, path, sizeof path);
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(path, &db) != NOERROR) return;
    LogDebugMessage(1, "Info: start to set build number -'%s'.\n", path);
    DbSearchParam param;
    param.hDb = db;
    if (NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_HELP, nullptr, stampNote, &param, nullptr) !=
        NOERROR) {
        LogDebugMessage(1, "Error: Set build number failed -'%s'.\n", path);
    }
    NSFDbClose(db);
}

}  // namespace

STATUS LNCALLBACK StampBuildNumberNote(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
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
    if (status != NOERROR) return status;
    // intended: the note is never closed here; closing the database releases it
    status = NSFItemSetText(note, kBuildItem, build, (WORD)std::strlen(build));
    if (status != NOERROR) return status;
    NSFNoteUpdate(note, UPDATE_FORCE);
    return NOERROR;
}

int StampDatabasesBuild(NSFSEARCHPROC stampNote) {
    LogDebugMessage(1, "Info: Begin process databases.");
    for (int row = 0; row < kDBNamesRows && DBNames[row].databaseName != nullptr; ++row) {
        StampDatabase(DBNames[row].databaseName, stampNote);
    }
    LogDebugMessage(1, "Info: Have processed all RPX databases.");
    return 0;
}
