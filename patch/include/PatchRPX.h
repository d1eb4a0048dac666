// The patch task: settings, debug log, running-build detection and the update driver.
#ifndef PATCH_RPX_H
#define PATCH_RPX_H

#include <cstddef>
#include <list>
#include <string>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

#include "RkFormat.h"

// The settings of one patch run; lives on MainEntryPoint's stack for the whole run.
struct PatchSetting {
    std::string reserved1;              // never filled, kept as part of the record
    std::list<std::string> files;       // "Files": required in the settings, read by no later step
    int patchBuild = 0;                 // "BuildNumber"
    std::list<std::string> databases;   // "Databases", in file order
    int runningBuild = 0;               // build of the installed product, from its install path
    int runningDbBuild = 0;             // build stamped in the installed message database
    int updateExt = 0;                  // "UpdateExt" non-zero; read by no later step
    int skipDbSign = 0;                 // "SkipDbSign" non-zero: do not sign replaced databases
    std::string reserved2;              // never filled, kept as part of the record
};

// "5.6.1.<patch build>" once the settings are read.
extern char g_szRkRPXBuildVersion[128];

// The source name that the compile-failure messages of the patch logic give, whichever file
// they come from.
inline constexpr char kPatchSourceName[] = "PatchRPX";

// The program entry the server's loader calls; the module's only export. Always returns 0.
extern "C" __attribute__((visibility("default"))) STATUS LNPUBLIC MainEntryPoint(void);

// Reads rpxpatch.ini of the newest program folder into setting. 0, or 1 on failure.
int ReadConfiguration(PatchSetting& setting);
// Appends the items of a comma list to out, in order, keeping empty items and blanks.
int ParseFileList(std::list<std::string>& out, char* text);

// Room for the newest program folder of the install folder.
constexpr size_t kProgramFolderSize = 256;
// The newest program folder into folder; false, after "Cannot get the latest path!", without one.
bool GetProgramFolder(char (&folder)[kProgramFolderSize]);

// The patch debug log: rpxtemp/updrpx_YYYYMMDD.dbg in the data directory, written only while
// the server setting RPX_ENABLE_RPENCY_LOG is 1.
bool IsEnabledDebugLog();
void GetRPXTempPath(char* buffer, int size);
void LogDebugMessage(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Fills runningBuild (from the install path) and runningDbBuild (from rpx/rpmsg.nsf). 0, or 1
// when the install path or its build is unknown.
int GetRunningRPXVer(PatchSetting& setting);
STATUS LNCALLBACK GetBuildNumber(void* param, SEARCH_MATCH* match, ITEM_TABLE* summary);

// Brings the installed databases to the patch's build. 0, 1 when the install folder is unknown,
// or the status of a database that could not be taken offline.
STATUS UpdateDatabase(PatchSetting& setting);

// Takes the database at notesPath offline with the given options. While the platform answers
// that it is in use, writes "DB in use, waiting" at level 0 (with ". Retry: <n>." when
// numberTheWaits), waits a second and tries again, at most 60 attempts in all. Returns the last
// status.
STATUS TakeDatabaseOfflineWhenFree(const char* notesPath, DWORD options, bool numberTheWaits);

// ---- Steps shared by the searches -----------------------------------------------------------

// Translates the native formula (formulaLength bytes) to LMBCS into lmbcs (size bytes, at most
// size - 1 of them text) and compiles it into *compiled. The status of NSFFormulaCompile.
STATUS CompileNativeFormula(const char* formula, WORD formulaLength, char* lmbcs, size_t size,
                            FORMULAHANDLE* compiled);
// CompileNativeFormula, and when the formula does not compile: logs at level 0
// "[PatchRPX:<line>]<routine> Cannot compile the formula! error[<status>]" and closes db, so that
// nothing runs on a database whose selection does not compile.
STATUS CompileSelectionOrCloseDatabase(DBHANDLE db, const char* formula, WORD formulaLength, char* lmbcs,
                                       size_t size, FORMULAHANDLE* compiled, const char* routine, int line);
// Whether the selection formula chose the matched note (a search also reports deletions).
bool IsSelectedMatch(const SEARCH_MATCH* match);
NOTEID MatchedNoteId(const SEARCH_MATCH* match);
// Every search parameter record of the patch begins with the searched database's handle.
DBHANDLE SearchedDatabase(const void* parameter);
// Opens the matched note in the searched database; the status of NSFNoteOpen.
STATUS OpenMatchedNote(const void* parameter, const SEARCH_MATCH* match, NOTEHANDLE* note);

// Whether the note has the item (NSFItemInfo answers 0).
bool HasItem(NOTEHANDLE note, const char* item);
// When the note has the item: its text into text (size bytes, zeroed first, at most limit bytes
// read, always ended) and true. Otherwise false, text untouched.
bool ReadPresentItemText(NOTEHANDLE note, const char* item, char* text, size_t size, WORD limit);
// Room for a UNID text ("%08X%08X%08X%08X") as the patch formats it.
constexpr size_t kUnidTextSize = 255;
// The note's UNID from its originator ID as 32 upper-case hexadecimal digits into text (size bytes).
void FormatNoteUNID(NOTEHANDLE note, char* text, size_t size);
// The platform's text of the status's error code (ERR(status)) into text, read with capacity
// size - 1 and always ended.
void LoadStatusText(STATUS status, char* text, size_t size);
// Room for a status text loaded with capacity 255.
constexpr size_t kErrorTextSize = 256;

// rk_snprintf that tells whether the whole text fitted.
template <typename... Args>
bool FormatFits(char* out, size_t size, const char* format, Args... args) {
    int needed = rk_snprintf(out, size, format, args...);
    return needed >= 0 && static_cast<size_t>(needed) < size;
}

#endif
