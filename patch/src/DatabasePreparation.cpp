// PrepareDatabase: signs the design of a replaced database and hides it; with the status texts
// that the maintenance steps report, and the document collector of the preparation searches.
#include "global.h"
#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"

#include <cstring>

#include "DatabaseMaintenance.h"
#include "RkFormat.h"

namespace {

// This one signing status is reported by its number, not the platform's text: the line is part
// of the log's fixed output.
const STATUS kSignRefused = 0x9728;
const WORD kPrepareSignMask = NOTE_CLASS_ALLNONDATA;
const char kPrepareFolder[] = "rpx/";

// "rpx/" + name into path (size bytes). False, with path empty, when it would not fit.
bool BuildPreparePath(const char* name, char* path, size_t size) {
    int needed = rk_snprintf(path, size, "%s%s", kPrepareFolder, name);
    if (needed < 0 || (size_t)needed >= size) {
        if (size > 0) path[0] = '\0';
        return false;
    }
    return true;
}

// Sets the hidden-design replica flag; the platform's statuses are not looked at.
void HideDatabaseDesign(DBHANDLE db) {
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    // Writing back a record that was never read would wipe the replica ID.
    if (NSFDbReplicaInfoGet(db, &info) != NOERROR) return;
    info.Flags |= REPLFLG_HIDDEN_DESIGN;
    NSFDbReplicaInfoSet(db, &info);
}

// Returns false after logging when the signing search failed; the database stays open then.
bool SignDesign(DBHANDLE db, const char* name) {
    LogDebugMessage(1, "Info: Start to sign - %s\n", name);
    DbSearchParam param;
    param.hDb = db;
    STATUS status = NSFSearch(db, NULLHANDLE, nullptr, 0, kPrepareSignMask, nullptr, SignDatabaseCallback,
                              &param, nullptr);
    if (status == kSignRefused) {
        LogDebugMessage(1, "Error: Sign database failed - %s. The error number is %d\n", name,
                        (int)kSignRefused);
        return false;
    }
    if (status != NOERROR) {
        char native[kStatusTextSize];
        ReportStatusOnConsole(status, native);
        LogDebugMessage(1, "Failed to sign %s - %s\n", name, native);
        return false;
    }
    LogDebugMessage(1, "Info: Succeeded to sign - %s\n", name);
    return true;
}

}  // namespace

bool OpenDatabaseOrReport(const char* path, DBHANDLE* db, char* nativeText) {
    STATUS status = NSFDbOpen(path, db);
    if (status == NOERROR) return true;
    // The console gets the path as it is; "%s" keeps a '%' in it from being read as a format.
    AddInLogMessageText((char*)"%s", NOERROR, path);
    ReportStatusOnConsole(status, nativeText);
    return false;
}

void ReportStatusOnConsole(STATUS status, char* nativeText) {
    char text[kStatusTextSize];
    LoadStatusText(status, text, sizeof text);
    AddInLogMessageText((char*)"%s", NOERROR, text);
    StatusTextToNative(text, nativeText);
}

void StatusTextToNative(const char* text, char* native) {
    WORD length =
        OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, text, (WORD)std::strlen(text), native, kStatusTextSize - 1);
    native[length < kStatusTextSize ? length : kStatusTextSize - 1] = '\0';
}

int PrepareDatabase(char* name, PatchSetting& setting) {
    char path[256];
    if (!BuildPreparePath(name, path, sizeof path)) {
        LogDebugMessage(1, "Error: Cannot prepare the database, its name is missing or too long.\n");
        return -1;
    }
    DBHANDLE db = NULLHANDLE;
    char native[kStatusTextSize];
    if (!OpenDatabaseOrReport(path, &db, native)) {
        LogDebugMessage(1, "Failed to open %s - %s\n", name, native);
        return -1;
    }
    if (setting.skipDbSign == 0 && !SignDesign(db, name)) {
        return -1;  // the database stays open: the server frees the task's handles at task end
    }
    LogDebugMessage(1, "Info: Start to hide design of %s \n", name);
    HideDatabaseDesign(db);
    LogDebugMessage(1, "Info: End to hide the design.\n");
    NSFDbClose(db);
    return 0;
}

STATUS LNCALLBACK SearchDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    static_cast<DocumentSearchParam*>(parameter)->noteIds.push_back(found.ID.NoteID);
    return NOERROR;
}
