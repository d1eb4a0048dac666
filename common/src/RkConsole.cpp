// Console commands and task services of RkCommonUtil: server console commands (with a fallback
// that starts the server program), shell commands, waits, lock files and the running instances of
// a task, databases below the data directory, the Domino build, status texts and task libraries.
#include "global.h"
#include "names.h"
#include "kfm.h"
#include "nsfdb.h"
#include "osfile.h"
#include "osmem.h"
#include "osmisc.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "RkCommonUtil.h"
#include "RkFileOpUtil.h"
#include "RkFormat.h"
#include "RkLMBCS.h"
#include "RkRPXInit.h"

const char* RK_CONFIG_DB_RPCONF = "/rpx/rpconf.nsf";
const char* STRING_SLASH = "/";

unsigned int RkCommonUtil::RunConsoleCommandRemote(char* command) {
    char serverName[MAXUSERNAME + 1] = "";
    STATUS status = SECKFMGetUserName(serverName);
    if (status != NOERROR) return status;
    DHANDLE response = NULLHANDLE;
    status = NSFRemoteConsole(serverName, command, &response);
    if (response != NULLHANDLE) OSMemFree(response);  // the reply is not read
    return status;
}

namespace {

constexpr WORD kCommandSize = 2048;
const char kNotesIniName[] = "notes.ini";
constexpr WORD kShortSize = 256;
const unsigned int kProgramStartPauseMs = 1000;

// Translates zero-ended text into out (size bytes) and zero-ends it.
void Translate(WORD mode, const char* text, char* out, WORD size) {
    out[0] = '\0';
    if (text[0] == '\0') return;
    WORD length = OSTranslate(mode, text, MAXWORD, out, size - 1);
    out[length < size ? length : size - 1] = '\0';
}

unsigned int StartServerProgram(const char* command) {
    char lmbcsIniPath[MAXPATH] = "";
    RkCommonUtil::GetNoteIniFileName(lmbcsIniPath);
    char lmbcsDirectory[MAXPATH] = "";
    OSGetExecutableDirectory(lmbcsDirectory);
    char iniPath[kShortSize];
    char directory[kShortSize];
    Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcsIniPath, iniPath, sizeof iniPath);
    Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcsDirectory, directory, sizeof directory);

    // Each text is cut to 255 bytes before it is translated.
    char program[kShortSize];
    char arguments[kShortSize];
    rk_snprintf(program, sizeof program, "%s/server", directory);
    rk_snprintf(arguments, sizeof arguments, "=%s -c \"%s\" ", iniPath, command);

    char lmbcsProgram[kCommandSize];
    char lmbcsWorkingDirectory[kShortSize];
    char lmbcsArguments[kCommandSize];
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, program, lmbcsProgram, sizeof lmbcsProgram);
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, directory, lmbcsWorkingDirectory, sizeof lmbcsWorkingDirectory);
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, arguments, lmbcsArguments, sizeof lmbcsArguments);
    STATUS status = OSLoadProgram(lmbcsProgram, lmbcsWorkingDirectory, lmbcsArguments, 0);
    RkCommonUtil::LogDebugMessage("RkCommon", 544, 3, "OSLoadProgram (%s) (%s) (%s)", program, directory,
                                  arguments);
    RkCommonUtil::RkSleep(kProgramStartPauseMs);
    return status;
}

}  // namespace

unsigned int RkCommonUtil::RunConsoleCommand(char* command) {
    if (command == nullptr) return static_cast<unsigned int>(-1);
    char lmbcsCommand[kCommandSize];
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, command, lmbcsCommand, sizeof lmbcsCommand);
    if (RunConsoleCommandRemote(lmbcsCommand) == NOERROR) return NOERROR;
    LogDebugMessage("RkCommon", 519, 0, "runconsole command failed(%s)", lmbcsCommand);
    return StartServerProgram(command);
}

bool ExecCommand(const std::string& command, std::string& output) {
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return false;
    char piece[128];
    while (fgets(piece, sizeof(piece), pipe) != nullptr) output += piece;
    pclose(pipe);  // the command's own exit status is not of interest here
    return true;
}

bool GetOSIf64Bit() {
    std::string output;
    if (!ExecCommand("file `which file`", output)) return false;
    return output.find("64-bit") != std::string::npos;
}

int RkCommonUtil::RkSleep(unsigned int milliseconds) {
    timeval wait{};
    wait.tv_sec = milliseconds / 1000;
    wait.tv_usec = (milliseconds % 1000) * 1000;
    return select(0, nullptr, nullptr, nullptr, &wait);
}

bool RkCommonUtil::isFileLocked(char* path) {
    int fd = ::open(path, O_RDONLY);
    if (fd < 0) return false;
    struct flock probe {};
    probe.l_type = F_WRLCK;
    probe.l_whence = SEEK_SET;
    probe.l_start = 0;
    probe.l_len = 0;
    int rc = fcntl(fd, F_GETLK, &probe);
    ::close(fd);
    return rc == 0 && probe.l_type != F_UNLCK && probe.l_pid != 0;
}

int RkCommonUtil::GetProcessPid(const char* /*name*/, int /*flags*/) { return -1; }

int GetAppBits() { return 65; }

namespace {
void ReportLoadFailure(const char* name) {
    const char* error = dlerror();
    // A second query after the first has no text left; print an empty line rather than fail.
    printf("%s\n%s\n", error != nullptr ? error : "", name);
}
}  // namespace

int RPXLoadLibrary(const char* name, int /*flags*/, void** handle, void** entry) {
    void* library = nullptr;
    if (name[0] != '/') {
        char prefixed[1024];
        snprintf(prefixed, sizeof(prefixed), "lib%s", name);
        library = dlopen(prefixed, RTLD_LAZY);
        if (library == nullptr) {
            ReportLoadFailure(name);
            return -1;
        }
    } else {
        library = dlopen(name, RTLD_LAZY);
        if (library == nullptr) {
            ReportLoadFailure(name);
            // Reported twice for an absolute path: callers' support notes count on the second line.
            ReportLoadFailure(name);
            return -1;
        }
    }
    *handle = library;
    *entry = dlsym(library, "MainEntryPoint");
    return *entry != nullptr ? 0 : -1;
}

void RPXFreeLibrary(void* handle) {
    if (handle != nullptr) dlclose(handle);
}

RkDirectory::RkDirectory() : m_dir(nullptr) {}

RkDirectory::~RkDirectory() { Close(); }

int RkDirectory::Open(const char* path) {
    Close();
    DIR* dir = opendir(path);
    if (dir == nullptr) return -1;
    m_dir = dir;
    m_path = path;
    return Next();
}

int RkDirectory::Next() {
    if (m_dir == nullptr) return -2;
    dirent* entry = readdir(static_cast<DIR*>(m_dir));
    if (entry == nullptr) {
        m_name.clear();
        return -1;
    }
    m_name = entry->d_name;
    return 0;
}

std::string RkDirectory::GetFileName() const { return m_name; }

int RkDirectory::IsDir() const {
    if (m_dir == nullptr || m_name.empty()) return -1;
    struct stat info {};
    if (stat((m_path + "/" + m_name).c_str(), &info) != 0) return -1;
    return S_ISDIR(info.st_mode) ? 1 : 0;
}

void RkDirectory::Close() {
    if (m_dir != nullptr) closedir(static_cast<DIR*>(m_dir));
    m_dir = nullptr;
    m_name.clear();
}

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
    *running = 0;
    *stale = 0;
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

// The toolkit declares no call that names the settings file; a Domino server on Linux keeps
// notes.ini in its data directory, so the path is built from that.
int RkCommonUtil::GetNoteIniFileName(char* out) {
    char directory[MAXPATH] = "";
    OSGetDataDirectory(directory);
    directory[MAXPATH - 1] = '\0';
    rk_snprintf(out, MAXPATH, "%s/%s", directory, kNotesIniName);  // out holds MAXPATH bytes
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
