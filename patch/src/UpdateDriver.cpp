// UpdateDatabase: walks the shipped files of the settings, replacing each live database while it
// is offline, then rebuilds, stamps, signs and restarts.
#include "global.h"
#include "names.h"
#include "addin.h"
#include "nsfdb.h"
#include "nsferr.h"
#include "osenv.h"
#include "osmem.h"
#include "osmisc.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "ConfigMigration.h"
#include "DatabaseMaintenance.h"
#include "PatchRPX.h"
#include "RkCommonUtil.h"
#include "RkFileOpUtil.h"
#include "RkFormat.h"

namespace {

const int kMaxOfflineAttempts = 60;
const DWORD kOfflineWaitMs = 10000;
const DWORD kInUseDelayMs = 1000;
const unsigned int kConvertSettleMs = 3000;
const int kOldPatternBuild = 3050;
const char kConfigTemplate[] = "rpconf.ntf";
const char kDlpPolicyFile[] = "PredefinedDLPPolicy.dat";
const char kTemplateSuffix[] = ".ntf";
const char kDatabaseSuffix[] = ".nsf";
constexpr size_t kCommandSize = 1024;
constexpr size_t kProductFolderSize = MAXPATH + sizeof "/rpx";
constexpr size_t kFilePathSize = 1024;

// The two folders of the walk: the newest program folder and <data directory>/rpx.
struct DriverFolders {
    char installFolder[kProgramFolderSize];
    char productFolder[kProductFolderSize];
};

// The three texts of one "Databases" entry.
struct ItemPaths {
    char notesPath[MAXPATH];      // "rpx/" + name, for the Notes calls
    char target[kFilePathSize];   // productFolder + "/" + name, the live file
    char source[kFilePathSize];   // installFolder + "/" + name, the new file
};

bool PatchApplies(const PatchSetting& setting) {
    if (setting.runningDbBuild < setting.patchBuild) return true;
    // Prints the product build, not the database build that was compared: the line is part of the
    // log's fixed output, so do not swap in runningDbBuild.
    LogDebugMessage(1, "The database build is large than build number of the patch, so return. %d",
                    setting.runningBuild);
    return false;
}

// The notes.ini setting "Directory" as native text. False, after a debug line and a console line,
// when it is missing, empty or names no folder: every copy would then be aimed at a path built
// from an empty or wrong folder.
bool ReadDataDirectory(char* directory, size_t size) {
    char lmbcsDirectory[MAXPATH] = "";
    bool found = OSGetEnvironmentString("Directory", lmbcsDirectory, sizeof lmbcsDirectory - 1);
    lmbcsDirectory[sizeof lmbcsDirectory - 1] = '\0';
    directory[0] = '\0';
    if (found && lmbcsDirectory[0] != '\0') {
        WORD length = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcsDirectory, MAXWORD, directory,
                                  static_cast<WORD>(size - 1));
        directory[length < size ? length : size - 1] = '\0';
    }
    struct stat info;
    if (directory[0] != '\0' && stat(directory, &info) == 0 && S_ISDIR(info.st_mode)) return true;
    LogDebugMessage(1, "Cannot get the data directory, the notes.ini setting Directory is missing or no folder. (%s)",
                    directory);
    AddInLogMessageText((char*)"updrpx: %s", NOERROR,
                        "The patch stops: the notes.ini setting Directory is missing or names no folder");
    return false;
}

bool GetDriverFolders(DriverFolders& folders) {
    if (!GetProgramFolder(folders.installFolder)) return false;
    char directory[MAXPATH] = "";
    if (!ReadDataDirectory(directory, sizeof directory)) return false;
    rk_snprintf(folders.productFolder, sizeof folders.productFolder, "%s/rpx", directory);
    return true;
}

// A name that would lead out of the product folder ("..", or one holding "/" or "\"), or that
// the server's convert task would expand into other databases (a wildcard "*" or "?"). An empty
// name is no such name: its paths end in the folders themselves and the walk's steps fail on it.
bool IsUnsafeName(const std::string& name) {
    return name == ".." || name.find_first_of("/\\*?") != std::string::npos;
}

// Builds the three texts of name. False, after a debug line, for a name that leaves the product
// folder or does not fit its buffers; the entry is then skipped, so that no copy can write outside
// the product folder and no cut path names another file.
bool BuildItemPaths(const DriverFolders& folders, const std::string& name, ItemPaths& paths) {
    if (IsUnsafeName(name)) {
        LogDebugMessage(1, "Skip the database entry, it is not a plain file name. (%s)", name.c_str());
        return false;
    }
    if (!FormatFits(paths.notesPath, sizeof paths.notesPath, "rpx/%s", name.c_str()) ||
        !FormatFits(paths.target, sizeof paths.target, "%s/%s", folders.productFolder, name.c_str()) ||
        !FormatFits(paths.source, sizeof paths.source, "%s/%s", folders.installFolder, name.c_str())) {
        LogDebugMessage(1, "Skip the database entry, its name is too long. (%s)", name.c_str());
        return false;
    }
    return true;
}

int CopyInstalledFile(const ItemPaths& paths) {
    return RkRPXFileOpUtil::copy(paths.source, paths.target, true, nullptr, nullptr);
}

bool IsDlpPolicyFile(const std::string& name) {
    return name.find(kDlpPolicyFile) != std::string::npos;
}

// The DLP policy file is copied over the live one, nothing else.
void CopyDlpPolicyFile(const ItemPaths& paths) {
    LogDebugMessage(1, "Enter dlpStr switch.");
    int status = CopyInstalledFile(paths);
    if (status != 0) {
        LogDebugMessage(1, "Copy the dlp template error.(%x)", static_cast<unsigned>(status) & 0xFFFF);
    } else {
        LogDebugMessage(1, "Copy the dlp template to RPX database folder! (%s):(%s)", paths.source,
                        paths.target);
    }
}

void ReleaseAcl(DHANDLE* acl) {
    if (*acl != NULLHANDLE) OSMemFree(*acl);
    *acl = NULLHANDLE;
}

// Every replaced database receives the pattern database's ACL, not its own former one (do not
// read the item's own). When the database cannot be opened, *acl stays as it was; a failed read
// leaves what the platform gives back (no ACL), not the one read before.
void ReadPatternAcl(DHANDLE* acl) {
    LogDebugMessage(1, "Enter nsfStr switch.");
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(kPatternDatabase, &db);
    if (status != NOERROR) {
        LogDebugMessage(1, "Read ACL error. (%s):(%x)", kPatternDatabase, static_cast<unsigned>(status));
        return;
    }
    ReleaseAcl(acl);
    NSFDbReadACL(db, acl);
    NSFDbClose(db);
}

// Stores acl into the item's database; without an ACL read so far the store is skipped.
void StoreAclInto(const ItemPaths& paths, DHANDLE acl) {
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(paths.notesPath, &db);
    if (status != NOERROR) {
        // Names the install-folder file, not the database that failed to open: the line is part
        // of the log's fixed output, so do not swap in the Notes path.
        LogDebugMessage(1, "Write ACL error. (%s):(%x)", paths.source, static_cast<unsigned>(status));
        return;
    }
    if (acl != NULLHANDLE) NSFDbStoreACL(db, acl, 0, 0);
    NSFDbClose(db);
}

// Copies the new file over the live one; logs only a success.
void CopyDatabaseFile(const ItemPaths& paths) {
    if (CopyInstalledFile(paths) == 0) {
        LogDebugMessage(1, "Copy the database to RPX database folder! (%s):(%s)", paths.source,
                        paths.target);
    }
}

// Takes the live database offline, waiting while it is in use. NOERROR also when there is no
// live file (a new database is being installed).
STATUS TakeOffline(const ItemPaths& paths) {
    if (access(paths.target, F_OK) != 0) {
        LogDebugMessage(1, "Database does not exist, do not bring it offline. (%s)", paths.target);
        return NOERROR;
    }
    STATUS status = TakeDatabaseOfflineWhenFree(paths.notesPath, OFFLINE_NODELETE, true);
    if (status != NOERROR) {
        LogDebugMessage(1, "Bring database offline. (%s):(%x)", paths.target, static_cast<unsigned>(status));
        return status;
    }
    LogDebugMessage(1, "Bring database offline successfully. (%s)", paths.target);
    return NOERROR;
}

void BringOnline(const ItemPaths& paths) {
    STATUS status = NSFBringDatabaseOnline(paths.notesPath, 0);
    LogDebugMessage(1, "Bring database online. (%s):(%x)", paths.target, static_cast<unsigned>(status));
}

// "load convert rpx/<name up to its first .ntf>.nsf * rpx/<name>" into command (size bytes). Item
// names fit a Notes path, so the command always fits its 1024 bytes.
void BuildConvertCommand(const char* templateName, char* command, size_t size) {
    const char* suffix = strstr(templateName, kTemplateSuffix);
    size_t stemLength = suffix != nullptr ? static_cast<size_t>(suffix - templateName) : strlen(templateName);
    std::string databaseName = std::string(templateName, stemLength) + kDatabaseSuffix;
    rk_snprintf(command, size, "load convert rpx/%s * rpx/%s", databaseName.c_str(), templateName);
}

// Stamps the template and has the server's convert task apply it to its database. The driver
// does not wait for the conversion beyond a fixed pause.
void ConvertTemplate(const ItemPaths& paths, const char* templateName) {
    LogDebugMessage(1, "Enter ntfStr switch.");
    StampHelpNotes(paths.notesPath);
    char command[kCommandSize];
    BuildConvertCommand(templateName, command, sizeof command);
    RkCommonUtil::RunConsoleCommandRemote(command);
    LogDebugMessage(1, "Run command %s", command);
    RkCommonUtil::RkSleep(kConvertSettleMs);
}

// Returns the status of a take-offline that failed; the walk then ends.
STATUS ReplaceDatabase(const std::string& name, const ItemPaths& paths, PatchSetting& setting,
                       DHANDLE* acl) {
    if (name.find(kDatabaseSuffix) != std::string::npos) ReadPatternAcl(acl);
    STATUS status = TakeOffline(paths);
    if (status != NOERROR) return status;
    CopyDatabaseFile(paths);
    BringOnline(paths);
    std::string preparedName = name;
    PrepareDatabase(&preparedName[0], setting);
    if (name.find(kTemplateSuffix) != std::string::npos) {
        ConvertTemplate(paths, name.c_str());
    } else {
        StoreAclInto(paths, *acl);
    }
    if (name == kConfigTemplate) UpdateRPXConfigue();
    return NOERROR;
}

STATUS WalkDatabases(const DriverFolders& folders, PatchSetting& setting) {
    DHANDLE acl = NULLHANDLE;
    for (const std::string& name : setting.databases) {
        ItemPaths paths;
        if (!BuildItemPaths(folders, name, paths)) continue;
        if (IsDlpPolicyFile(name)) {
            CopyDlpPolicyFile(paths);
            continue;
        }
        STATUS status = ReplaceDatabase(name, paths, setting, &acl);
        if (status != NOERROR) {
            ReleaseAcl(&acl);
            return status;
        }
    }
    ReleaseAcl(&acl);
    return NOERROR;
}

void FinishPatch(const PatchSetting& setting) {
    if (setting.runningDbBuild < kOldPatternBuild) UpdateRpency();
    SetAllDatabasesBuild();
    char folder[256];
    memset(folder, 0, sizeof folder);
    OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, "rpx", 3, folder, sizeof folder - 1);
    SignAndChangeReplicaDatabase(folder);
    char restart[] = "tell rpxreal restart";
    RkCommonUtil::RunConsoleCommandRemote(restart);
}

}  // namespace

STATUS TakeDatabaseOfflineWhenFree(const char* notesPath, DWORD options, bool numberTheWaits) {
    STATUS status = NSFTakeDatabaseOffline(notesPath, kOfflineWaitMs, options);
    for (int waits = 0; status == ERR_DBINUSE;) {
        if (numberTheWaits) {
            LogDebugMessage(0, "DB in use, waiting. Retry: %d.", waits);
        } else {
            LogDebugMessage(0, "DB in use, waiting");
        }
        AddInIdleDelay(kInUseDelayMs);
        if (++waits >= kMaxOfflineAttempts) break;
        status = NSFTakeDatabaseOffline(notesPath, kOfflineWaitMs, options);
    }
    return status;
}

STATUS UpdateDatabase(PatchSetting& setting) {
    if (!PatchApplies(setting)) return NOERROR;
    // These two run before any file is touched, whatever they return.
    UpdateExpresionDocID();
    RemoveDuplicatedUserDefinedDigitalAssert();
    if (setting.databases.empty()) return NOERROR;

    DriverFolders folders;
    if (!GetDriverFolders(folders)) return 1;
    // Before the walk: every replaced database receives the pattern database's ACL.
    RestoreInterruptedRpencyRebuild();
    STATUS status = WalkDatabases(folders, setting);
    if (status != NOERROR) return status;
    FinishPatch(setting);
    return NOERROR;
}
