// The steps of the patch run that need no server-only platform call (console, taking databases
// offline and online, idle waits). GetRunningRPXVer and UpdateDatabase are built from them; they
// live in their own sources so that they link without the server.
#ifndef PATCH_RUN_STEPS_H
#define PATCH_RUN_STEPS_H

#include <cstddef>
#include <string>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

#include "PatchRPX.h"

// ---- Running build detection ----------------------------------------------------------------

// The record of the build search: the searched database first, then the build text found.
struct BuildSearchParam {
    DBHANDLE hDb;
    char buildText[64];
};

// GetRunningRPXVer with the per-note step given: readNote receives a BuildSearchParam.
int DetectRunningBuilds(PatchSetting& setting, NSFSEARCHPROC readNote);

// The note-level work of GetBuildNumber: copies the note's "BuildNumber" (at most 16
// characters) into the record. Returns the status of a failed note open, else NOERROR.
STATUS LNCALLBACK ReadBuildNumberNote(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

// The number after the last "." of text; 0 when there is none.
int BuildAfterLastDot(const char* text);

// ---- Update driver --------------------------------------------------------------------------

constexpr size_t kInstallFolderSize = 256;
constexpr size_t kProductFolderSize = MAXPATH + sizeof "/rpx";
constexpr size_t kFilePathSize = 1024;

// The two folders of the walk: the newest program folder and <data directory>/rpx.
struct DriverFolders {
    char installFolder[kInstallFolderSize];
    char productFolder[kProductFolderSize];
};

// The three texts of one "Databases" entry.
struct ItemPaths {
    char notesPath[MAXPATH];      // "rpx/" + name, for the Notes calls
    char target[kFilePathSize];   // productFolder + "/" + name, the live file
    char source[kFilePathSize];   // installFolder + "/" + name, the new file
};

// True when the database build is below the patch's; otherwise logs why nothing is done.
bool PatchApplies(const PatchSetting& setting);

// Fills both folders. False, after "Cannot get the latest path!", without an install folder, and
// false when ReadDataDirectory fails.
bool GetDriverFolders(DriverFolders& folders);

// The notes.ini setting "Directory" as native text into directory (size bytes). False, after a
// debug line and a console line, when it is missing, empty or names no existing folder.
bool ReadDataDirectory(char* directory, size_t size);

// A plain file name: not empty, not "." or "..", no "/" or "\", no wildcard "*" or "?".
bool IsBareFileName(const std::string& name);

// Builds the three texts of name. False, after a debug line, for a name that is not a bare file
// name or does not fit its buffers; the entry is then skipped.
bool BuildItemPaths(const DriverFolders& folders, const std::string& name, ItemPaths& paths);

// The DLP policy file: copied over the live one, nothing else.
bool IsDlpPolicyFile(const std::string& name);
void CopyDlpPolicyFile(const ItemPaths& paths);

// Replaces *acl with the ACL of rpx/rpency.nsf (the previous one is freed); on failure *acl stays.
void ReadPatternAcl(DHANDLE* acl);
// Stores acl into the item's database; without an ACL read so far the store is skipped.
void StoreAclInto(const ItemPaths& paths, DHANDLE acl);

// Copies the new file over the live one; logs only a success.
void CopyDatabaseFile(const ItemPaths& paths);

// Stamps the template's help notes with stampNote (a DbSearchParam search); silent when the
// template cannot be opened.
void StampTemplateBuild(const char* notesPath, NSFSEARCHPROC stampNote);

// "load convert rpx/<name up to its first .ntf>.nsf * rpx/<name>" into command. False when it
// would not fit.
bool BuildConvertCommand(const char* templateName, char* command, size_t size);

// Frees the ACL read for the walk, if any.
void ReleaseAcl(DHANDLE* acl);

#endif
