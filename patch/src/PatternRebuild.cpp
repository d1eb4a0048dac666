// UpdateRpency: finds out whether the pattern database holds old-format pattern documents and, if
// so, takes it offline and creates it afresh from its template with the old ACL.
//
// Taking the database offline deletes its file, so a copy of it is kept in the temp folder until
// the new database is complete: a failed create puts the copy back at once, and a copy left by a
// killed run is put back by the next run before anything reads the database.
#include "global.h"
#include "names.h"
#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "oserr.h"
#include "osfile.h"
#include "osmisc.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "DatabaseMaintenance.h"
#include "PatchRPX.h"
#include "RkFileOpUtil.h"

namespace {

// The rebuild writes every line at level 0, unlike the other steps; the level is part of the
// log's fixed output.
const int kRebuildLogLevel = 0;

const char kVersionItem[] = "InternalPVer";
const size_t kVersionSize = 32;

bool HasOldVersionText(NOTEHANDLE note) {
    char version[kVersionSize];
    if (!ReadPresentItemText(note, kVersionItem, version, sizeof version, sizeof version)) return false;
    return std::strchr(version, '.') == nullptr;
}

const char kPatternFormula[] = "FORM=\"Patternfile\"";
const size_t kFormulaSize = 32;
const int kCompileErrorLine = 2071;  // log readers match this position, not the source's own line

// Sets *oldFormat when the pattern database holds an old-format pattern document, and then reads
// its ACL into *acl. Returns a formula compile error, else 0 (also without a pattern database).
STATUS FindOldPatternFormat(int* oldFormat, DHANDLE* acl) {
    PatternSearchParam param;
    if (NSFDbOpen(kPatternDatabase, &param.hDb) != NOERROR) return NOERROR;

    char lmbcs[kFormulaSize];
    FORMULAHANDLE formula = NULLHANDLE;
    STATUS status = CompileSelectionOrCloseDatabase(param.hDb, kPatternFormula, sizeof kPatternFormula - 1, lmbcs,
                                                    sizeof lmbcs, &formula, "UpdateRpency", kCompileErrorLine);
    if (status != NOERROR) return status;
    NSFSearch(param.hDb, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CheckPatternVersionFormat, &param,
              nullptr);
    if (param.oldFormat) {
        NSFDbReadACL(param.hDb, acl);
        *oldFormat = 1;
    }
    NSFDbClose(param.hDb);
    return NOERROR;  // the compiled formula stays: the server frees the task's memory at task end
}

const char kPatternTemplate[] = "rpx/rpency.ntf";
const DWORD kFixedReplicaIdLow = 0x001E96E4;
const DWORD kFixedReplicaIdHigh = 0x852552F9;

// Creates the pattern database from its template, gives it the fixed replica ID and stores acl.
// 0 or the create status.
STATUS RecreatePatternDatabase(DHANDLE acl) {
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbCreateAndCopy(kPatternTemplate, kPatternDatabase, NOTE_CLASS_ALL, 0x1000, 0, &db);
    if (status != NOERROR) {
        LogDebugMessage(kRebuildLogLevel, "Failed to recreate rpency.nsf, Error: %X", (unsigned)status);
        return status;
    }
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    NSFDbReplicaInfoGet(db, &info);
    info.ID.Innards[0] = kFixedReplicaIdLow;
    info.ID.Innards[1] = kFixedReplicaIdHigh;
    NSFDbReplicaInfoSet(db, &info);
    NSFDbStoreACL(db, acl, 0, 0);
    LogDebugMessage(kRebuildLogLevel, "Success created new rpency.nsf");
    return NOERROR;  // the new database and the ACL stay open: the server frees them at task end
}

const char kKeptCopyName[] = "rpency.nsf.keep";
constexpr size_t kFilePathSize = MAXPATH + 32;

// The live pattern database file and the place of its kept copy, both native file-system paths.
struct PatternFiles {
    char live[kFilePathSize];
    char kept[kFilePathSize];
};

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
    return FormatFits(files.live, sizeof files.live, "%s/%s", directory, kPatternDatabase) &&
           FormatFits(files.kept, sizeof files.kept, "%s/%s", tempFolder, kKeptCopyName);
}

bool IsPlainFile(const char* path) {
    struct stat info;
    return stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

void ReportOnConsole(const char* text, STATUS status) {
    AddInLogMessageText((char*)"updrpx: %s", status, text);
}

// The copy goes to the temp folder, on the database's volume, under a name no database walk
// picks up.
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
    if (access(files.live, F_OK) == 0) {
        STATUS status = TakeDatabaseOfflineWhenFree(kPatternDatabase, OFFLINE_NODELETE, false);
        if (status != NOERROR) {
            LogDebugMessage(kRebuildLogLevel, "Cannot put back rpency.nsf, it stays kept. (%s):(%X)", files.kept,
                            (unsigned)status);
            ReportOnConsole("rpency.nsf could not be put back from the temp folder", status);
            return status;
        }
    }
    int result = RkRPXFileOpUtil::copy(files.kept, files.live, true, nullptr, nullptr);
    STATUS online = NSFBringDatabaseOnline(kPatternDatabase, 0);
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

}  // namespace

STATUS LNCALLBACK CheckPatternVersionFormat(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    if (!IsSelectedMatch(match)) return NOERROR;
    PatternSearchParam* param = static_cast<PatternSearchParam*>(parameter);
    NOTEHANDLE note = NULLHANDLE;
    if (OpenMatchedNote(param, match, &note) != NOERROR) return NOERROR;
    if (HasOldVersionText(note)) param->oldFormat = 1;
    NSFNoteClose(note);
    return NOERROR;
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
    status = TakeDatabaseOfflineWhenFree(kPatternDatabase, 0, false);
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

void RestoreInterruptedRpencyRebuild() {
    PatternFiles files;
    if (!GetPatternFiles(files) || !IsPlainFile(files.kept)) return;
    LogDebugMessage(kRebuildLogLevel, "Found rpency.nsf kept by an interrupted rebuild. (%s)", files.kept);
    PutBackPatternCopy(files);
}
