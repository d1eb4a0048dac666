// PrepareDatabase: signs the design of a replaced database and hides it. Reports failures on
// the server console, so it needs the server half of the platform.
#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"

namespace {

// intended: this one signing status is reported by its number, not the platform's text
const STATUS kSignRefused = 0x9728;
const WORD kPrepareSignMask = NOTE_CLASS_ALLNONDATA;

// The console gets both texts as they are; "%s" keeps a '%' in them from being read as a format.
void ReportOpenFailure(const char* path, const char* statusText) {
    AddInLogMessageText((char*)"%s", NOERROR, path);
    AddInLogMessageText((char*)"%s", NOERROR, statusText);
}

void ReportStatus(STATUS status, char* nativeText) {
    char text[kStatusTextSize];
    LoadStatusText(status, text);
    AddInLogMessageText((char*)"%s", NOERROR, text);
    StatusTextToNative(text, nativeText);
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
        ReportStatus(status, native);
        LogDebugMessage(1, "Failed to sign %s - %s\n", name, native);
        return false;
    }
    LogDebugMessage(1, "Info: Succeeded to sign - %s\n", name);
    return true;
}

}  // namespace

int PrepareDatabase(char* name, PatchSetting& setting) {
    char path[256];
    if (name == nullptr || !BuildPreparePath(name, path, sizeof path)) {
        LogDebugMessage(1, "Error: Cannot prepare the database, its name is missing or too long.\n");
        return -1;
    }
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(path, &db);
    if (status != NOERROR) {
        char text[kStatusTextSize];
        char native[kStatusTextSize];
        LoadStatusText(status, text);
        ReportOpenFailure(path, text);
        StatusTextToNative(text, native);
        LogDebugMessage(1, "Failed to open %s - %s\n", name, native);
        return -1;
    }
    if (setting.skipDbSign == 0 && !SignDesign(db, name)) {
        return -1;  // intended: a failed signing leaves the database open
    }
    LogDebugMessage(1, "Info: Start to hide design of %s \n", name);
    HideDatabaseDesign(db);
    LogDebugMessage(1, "Info: End to hide the design.\n");
    NSFDbClose(db);
    return 0;
}
