// Task services that call the Notes platform: counting a task's running instances by their lock
// files, opening a database below the data directory, the configuration database's build, the
// notes.ini path and status texts.
#include "RkCommonUtil.h"

#include <strings.h>

#include <cstdio>
#include <cstring>

#include "nsfdb.h"
#include "osfile.h"
#include "osmisc.h"

#include "RkFileOpUtil.h"
#include "RkFormat.h"
#include "RkLMBCS.h"
#include "RkRPXInit.h"

const char* RK_CONFIG_DB_RPCONF = "/rpx/rpconf.nsf";
const char* STRING_SLASH = "/";

namespace {

constexpr size_t kBaseFolderSize = 266;
constexpr size_t kEntryNameSize = 256;
constexpr size_t kLockPathSize = 1024;
constexpr WORD kDbPathSize = 257;
const WORD kFirstDominoBuild = 161;
const WORD kPastDominoBuild = 180;

// The data directory in the native character set, or the caller's folder cut to 265 bytes.
void TaskBaseFolder(const char* dataDirectory, char* base) {
    if (dataDirectory != nullptr) {
        rk_snprintf(base, kBaseFolderSize, "%s", dataDirectory);
        return;
    }
    char lmbcs[MAXPATH] = "";
    OSGetDataDirectory(lmbcs);
    lmbcs[MAXPATH - 1] = '\0';
    WORD length = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs, MAXWORD, base, kBaseFolderSize - 1);
    base[length < kBaseFolderSize ? length : kBaseFolderSize - 1] = '\0';
}

// A lock file of the task: its name, without regard to case, then "{".
bool IsTaskLockFile(const char* entryName, const char* taskName) {
    size_t length = strlen(taskName);
    return strncasecmp(entryName, taskName, length) == 0 && entryName[length] == '{';
}

bool IsOwnLockFile(const char* path) {
    const char* own = gRPXInit.GetLockFilePath();
    return own != nullptr && own[0] != '\0' && strcmp(path, own) == 0;
}

// The data directory, separator and name (LMBCS) into path (size bytes), cut to whole
// characters when they do not fit: the open then tells what the cut path names.
void DataDirectoryPath(const char* separator, const char* name, char* path, WORD size) {
    char directory[MAXPATH] = "";
    OSGetDataDirectory(directory);
    directory[MAXPATH - 1] = '\0';
    NLS_PINFO characterSet = OSGetLMBCSCLS();
    nls_strncpy(path, size, directory, NLS_NULLTERM, size, characterSet);
    nls_strncat(path, size, separator, NLS_NULLTERM, size, characterSet);
    nls_strncat(path, size, name, NLS_NULLTERM, size, characterSet);
}

}  // namespace

int RkCommonUtil::CheckTaskStatus(const char* taskName, int* running, int* stale, bool removeStale,
                                  char* dataDirectory) {
    if (running == nullptr || stale == nullptr) return -1;
    *running = 0;
    *stale = 0;
    if (taskName == nullptr) return -1;
    char base[kBaseFolderSize];
    TaskBaseFolder(dataDirectory, base);
    char folder[kLockPathSize];
    rk_snprintf(folder, sizeof folder, "%s/rpxtemp", base);

    RkDirectory directory;
    if (directory.Open(folder) == -1) return -1;
    do {
        char name[kEntryNameSize];
        rk_snprintf(name, sizeof name, "%s", directory.GetFileName().c_str());
        if (!IsTaskLockFile(name, taskName)) continue;
        char path[kLockPathSize];
        rk_snprintf(path, sizeof path, "%s/rpxtemp/%s", base, name);
        if (IsOwnLockFile(path) || isFileLocked(path)) {
            ++*running;
            continue;
        }
        ++*stale;
        if (removeStale) RkRPXFileOpUtil::unlink(path, nullptr, nullptr);
    } while (directory.Next() == 0);
    directory.Close();
    return 0;
}

unsigned int RkCommonUtil::RkDbOpen(const char* name, unsigned int* handle) {
    char path[kDbPathSize];
    DataDirectoryPath(STRING_SLASH, name, path, sizeof path);
    return NSFDbOpen(path, handle);
}

int RkCommonUtil::RkGetDominoVer() {
    char path[MAXPATH];
    DBHANDLE db = NULLHANDLE;
    DataDirectoryPath("", RK_CONFIG_DB_RPCONF, path, sizeof path);
    if (NSFDbOpen(path, &db) != NOERROR) return 2;
    WORD version = 0;
    STATUS status = NSFDbGetBuildVersion(db, &version);
    NSFDbClose(db);
    if (status != NOERROR) return 2;
    return version >= kFirstDominoBuild && version < kPastDominoBuild ? 1 : 0;
}

int RkCommonUtil::GetNoteIniFileName(char* out) {
    if (out == nullptr) return 0;
    out[0] = '\0';
    OSGetIniFileName(out);  // out holds MAXPATH bytes
    return 0;
}

std::string RkCommonUtil::GetAPIError(unsigned short status) {
    char text[512] = "";
    OSLoadString(NULLHANDLE, ERR(status), text, sizeof text - 1);
    text[sizeof text - 1] = '\0';
    return text;
}

void RkCommonUtil::PrintAPIError(unsigned short status) {
    char text[201] = "";
    OSLoadString(NULLHANDLE, ERR(status), text, sizeof text - 1);
    text[sizeof text - 1] = '\0';
    fprintf(stderr, "\n%s\n", text);
}
