// The steps of the update driver that link without the server: applicability, the folders and
// paths of the walk (a missing data directory is also reported on the console), the DLP file, the pattern database's ACL, the copy, the template's build
// stamp and the conversion command.
#include <sys/stat.h>

#include <cstring>

#include "global.h"
#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"
#include "osmisc.h"

#include "DatabaseMaintenance.h"
#include "PatchRunSteps.h"
#include "RkFileOpUtil.h"
#include "RkFormat.h"
#include "RkVersionPath.h"

namespace {

const int kProgramFolderIndex = 1;
const char kPatternDatabase[] = "rpx/rpency.nsf";
const char kDlpPolicyFile[] = "PredefinedDLPPolicy.dat";
const char kTemplateSuffix[] = ".ntf";

// rk_snprintf that tells whether the whole text fitted.
template <typename... Args>
bool FormatFits(char* out, size_t size, const char* format, Args... args) {
    int needed = rk_snprintf(out, size, format, args...);
    return needed >= 0 && static_cast<size_t>(needed) < size;
}

int CopyInstalledFile(const ItemPaths& paths) {
    return RkRPXFileOpUtil::copy(paths.source, paths.target, true, nullptr, nullptr);
}

}  // namespace

bool PatchApplies(const PatchSetting& setting) {
    if (setting.runningDbBuild < setting.patchBuild) return true;
    // Prints the product build, not the database build that was compared: intended.
    LogDebugMessage(1, "The database build is large than build number of the patch, so return. %d",
                    setting.runningBuild);
    return false;
}

bool GetDriverFolders(DriverFolders& folders) {
    if (RkGetLatestPath(kProgramFolderIndex, folders.installFolder, sizeof folders.installFolder) ==
        nullptr) {
        LogDebugMessage(1, "Cannot get the latest path!");
        return false;
    }
    char directory[MAXPATH] = "";
    if (!ReadDataDirectory(directory, sizeof directory)) return false;
    rk_snprintf(folders.productFolder, sizeof folders.productFolder, "%s/rpx", directory);
    return true;
}

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
    // Without it every copy would be aimed at a path built from an empty or wrong folder.
    LogDebugMessage(1, "Cannot get the data directory, the notes.ini setting Directory is missing or no folder. (%s)",
                    directory);
    AddInLogMessageText((char*)"updrpx: %s", NOERROR,
                        "The patch stops: the notes.ini setting Directory is missing or names no folder");
    return false;
}

bool IsBareFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find_first_of("/\\*?") == std::string::npos;
}

bool BuildItemPaths(const DriverFolders& folders, const std::string& name, ItemPaths& paths) {
    if (!IsBareFileName(name)) {
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

bool IsDlpPolicyFile(const std::string& name) {
    return name.find(kDlpPolicyFile) != std::string::npos;
}

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

// Every replaced database receives the pattern database's ACL, not its own former one: intended.
void ReadPatternAcl(DHANDLE* acl) {
    LogDebugMessage(1, "Enter nsfStr switch.");
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(kPatternDatabase, &db);
    if (status != NOERROR) {
        LogDebugMessage(1, "Read ACL error. (%s):(%x)", kPatternDatabase, static_cast<unsigned>(status));
        return;
    }
    DHANDLE fresh = NULLHANDLE;
    if (NSFDbReadACL(db, &fresh) == NOERROR) {
        ReleaseAcl(acl);
        *acl = fresh;
    }
    NSFDbClose(db);
}

void StoreAclInto(const ItemPaths& paths, DHANDLE acl) {
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(paths.notesPath, &db);
    if (status != NOERROR) {
        // Names the install-folder file, not the database that failed to open: intended.
        LogDebugMessage(1, "Write ACL error. (%s):(%x)", paths.source, static_cast<unsigned>(status));
        return;
    }
    if (acl != NULLHANDLE) NSFDbStoreACL(db, acl, 0, 0);
    NSFDbClose(db);
}

void ReleaseAcl(DHANDLE* acl) {
    if (*acl != NULLHANDLE) OSMemFree(*acl);
    *acl = NULLHANDLE;
}

void CopyDatabaseFile(const ItemPaths& paths) {
    int status = CopyInstalledFile(paths);
    if (status == 0) {
        LogDebugMessage(1, "Copy the database to RPX database folder! (%s):(%s)", paths.source,
                        paths.target);
    }
}

void StampTemplateBuild(const char* notesPath, NSFSEARCHPROC stampNote) {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(notesPath, &db) != NOERROR) return;
    LogDebugMessage(1, "Info: start to set build number -'%s'.\n", notesPath);
    DbSearchParam param;
    param.hDb = db;
    if (NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_HELP, nullptr, stampNote, &param, nullptr) !=
        NOERROR) {
        LogDebugMessage(1, "Error: Set build number failed -'%s'.\n", notesPath);
    }
    NSFDbClose(db);
}

bool BuildConvertCommand(const char* templateName, char* command, size_t size) {
    const char* suffix = strstr(templateName, kTemplateSuffix);
    size_t stemLength = suffix != nullptr ? static_cast<size_t>(suffix - templateName) : strlen(templateName);
    std::string databaseName = std::string(templateName, stemLength) + ".nsf";
    return FormatFits(command, size, "load convert rpx/%s * rpx/%s", databaseName.c_str(), templateName);
}
