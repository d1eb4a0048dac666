// UpdateRpency: rebuilds an old-format pattern database. Taking it offline (with the waits while
// it is in use) needs the server half of the platform.
//
// Taking the database offline deletes its file, so a copy of it is kept in the temp folder until
// the new database is complete: a failed create puts the copy back at once, and a copy left by a
// killed run is put back by the next run before anything reads the database.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "global.h"
#include "addin.h"
#include "names.h"
#include "nsfdb.h"
#include "oserr.h"
#include "osfile.h"
#include "osmisc.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"
#include "RkFileOpUtil.h"
#include "RkFormat.h"

namespace {

const int kRebuildLogLevel = 0;  // intended: the rebuild logs at level 0, unlike the other steps

const STATUS kDatabaseInUse = 0x13EA;
const int kMaxOfflineAttempts = 60;
const DWORD kOfflineWaitMs = 10000;
const DWORD kIdleDelayMs = 1000;

const char kPatternNotesPath[] = "rpx/rpency.nsf";
const char kKeptCopyName[] = "rpency.nsf.keep";
constexpr size_t kFilePathSize = MAXPATH + 32;

// The live pattern database file and the place of its kept copy, both native file-system paths.
struct PatternFiles {
    char live[kFilePathSize];
    char kept[kFilePathSize];
};

template <typename... Args>
bool FormatFits(char* out, size_t size, const char* format, Args... args) {
    int needed = rk_snprintf(out, size, format, args...);
    return needed >= 0 && static_cast<size_t>(needed) < size;
}

// False when the data directory is unknown or the paths would not fit.
bool GetPatternFiles(PatternFiles& files) {
    char lmbcsDirectory[MAXPATH] = "";
    OSGetDataDirectory(lmbcsDirectory);
    lmbcsDirectory[MAXPATH - 1] = '\0';
    char directory[MAXPATH] = "";
    WORD length = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcsDirectory, MAXWORD, directory, sizeof directory - 1);
    directory[length < sizeof directory ? length : sizeof directory - 1] = '\0';
    if (directory[0] == '\0') return false;
    char tempFolder[MAXPATH];
    GetRPXTempPath(tempFolder, sizeof tempFolder);
    return FormatFits(files.live, sizeof files.live, "%s/%s", directory, kPatternNotesPath) &&
           FormatFits(files.kept, sizeof files.kept, "%s/%s", tempFolder, kKeptCopyName);
}

bool FileExists(const char* path) {
    return access(path, F_OK) == 0;
}

bool IsPlainFile(const char* path) {
    struct stat info;
    return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

void ReportOnConsole(const char* text, STATUS status) {
    AddInLogMessageText((char*)"updrpx: %s", status, text);
}

// The copy is written next to the database's volume, in the temp folder, under a name that no
// database walk picks up.
bool KeepPatternCopy(const PatternFiles& files) {
    int result = RkRPXFileOpUtil::copy(files.live, files.kept, true, nullptr, nullptr);
    if (result != 0) {
        LogDebugMessage(kRebuildLogLevel, "Cannot keep a copy of rpency.nsf, do not recreate it. (%s):(%d)",
                        files.kept, result);
        ReportOnConsole("rpency.nsf was not recreated: no copy of it could be kept in the temp folder", NOERROR);
        return false;
    }
    LogDebugMessage(kRebuildLogLevel, "Kept a copy of rpency.nsf. (%s)", files.kept);
    return true;
}

// Copies the kept file over the live one (taken offline first when it is there) and brings the
// database online. The kept copy is removed only once it is back in place.
STATUS PutBackPatternCopy(const PatternFiles& files) {
    if (FileExists(files.live)) {
        STATUS status = NSFTakeDatabaseOffline(kPatternNotesPath, kOfflineWaitMs, OFFLINE_NODELETE);
        if (status != NOERROR) {
            LogDebugMessage(kRebuildLogLevel, "Cannot put back rpency.nsf, it stays kept. (%s):(%X)", files.kept,
                            (unsigned)status);
            ReportOnConsole("rpency.nsf could not be put back from the temp folder", status);
            return status;
        }
    }
    int result = RkRPXFileOpUtil::copy(files.kept, files.live, true, nullptr, nullptr);
    STATUS online = NSFBringDatabaseOnline(kPatternNotesPath, 0);
    if (result != 0) {
        LogDebugMessage(kRebuildLogLevel, "Cannot put back rpency.nsf, it stays kept. (%s):(%d)", files.kept,
                        result);
        ReportOnConsole("rpency.nsf could not be put back from the temp folder", NOERROR);
        return ERR_IOERROR;
    }
    unlink(files.kept);
    LogDebugMessage(kRebuildLogLevel, "Put back the original rpency.nsf. (%s):(%X)", files.live, (unsigned)online);
    ReportOnConsole("rpency.nsf was not recreated; the original database was put back", online);
    return NOERROR;
}

STATUS TakePatternDatabaseOffline() {
    int attempts = 0;
    STATUS status = NSFTakeDatabaseOffline("rpx/rpency.nsf", kOfflineWaitMs, 0);
    while (status == kDatabaseInUse) {
        LogDebugMessage(kRebuildLogLevel, "DB in use, waiting");
        AddInIdleDelay(kIdleDelayMs);
        if (++attempts >= kMaxOfflineAttempts) break;
        status = NSFTakeDatabaseOffline("rpx/rpency.nsf", kOfflineWaitMs, 0);
    }
    return status;
}

}  // namespace

void RestoreInterruptedRpencyRebuild() {
    PatternFiles files;
    if (!GetPatternFiles(files) || !IsPlainFile(files.kept)) return;
    LogDebugMessage(kRebuildLogLevel, "Found rpency.nsf kept by an interrupted rebuild. (%s)", files.kept);
    PutBackPatternCopy(files);
}

STATUS UpdateRpency() {
    int oldFormat = 0;
    DHANDLE acl = NULLHANDLE;
    STATUS status = FindOldPatternFormat(&oldFormat, &acl);
    if (status != NOERROR) return status;
    if (!oldFormat) return NOERROR;

    LogDebugMessage(kRebuildLogLevel, "rpency.nsf is old format, recreate it");
    PatternFiles files;
    if (!GetPatternFiles(files) || !KeepPatternCopy(files)) return ERR_IOERROR;
    status = TakePatternDatabaseOffline();
    if (status != NOERROR) {
        LogDebugMessage(kRebuildLogLevel, "Failed to delete original RPX V3 rpency.nsf, Error: %X",
                        (unsigned)status);
        unlink(files.kept);  // the database was never taken offline
        return status;
    }
    status = RecreatePatternDatabase(acl);
    if (status != NOERROR) {
        PutBackPatternCopy(files);
        return status;
    }
    unlink(files.kept);
    return NOERROR;
}
