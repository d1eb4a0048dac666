// RkCommonUtil: services shared by the product's server tasks: server console commands,
// waiting, lock-file checks, database opening, status texts, and the common debug log.
#ifndef RK_COMMON_UTIL_H
#define RK_COMMON_UTIL_H

#include <string>

#if defined(__GNUC__)
#define RK_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define RK_PRINTF_LIKE(fmt, args)
#endif

// The configuration database below the data directory, with its leading "/".
extern const char* RK_CONFIG_DB_RPCONF;
extern const char* STRING_SLASH;

class RkCommonUtil {
public:
    // Console commands and tasks. Console commands and Notes paths are LMBCS unless noted.
    static unsigned int RunConsoleCommandRemote(char* command);
    static unsigned int RunConsoleCommand(char* command);  // command in the native character set
    static int RkSleep(unsigned int milliseconds);
    static bool isFileLocked(char* path);
    static int CheckTaskStatus(const char* taskName, int* running, int* stale, bool removeStale,
                               char* dataDirectory);
    static unsigned int RkDbOpen(const char* name, unsigned int* handle);
    static int RkGetDominoVer();
    static int GetNoteIniFileName(char* out);
    static std::string GetAPIError(unsigned short status);
    static void PrintAPIError(unsigned short status);
    static int GetProcessPid(const char* name, int flags);

    // The common debug log: one line per call in <debug folder>/<task>_<YYYYMMDD>.dbg.
    static void LogDebugMessage(const char* sourceFile, int line, int level, const char* format, ...)
        RK_PRINTF_LIKE(4, 5);
    static void LogDebugMessage(int level, const char* format, ...) RK_PRINTF_LIKE(2, 3);
};

bool ExecCommand(const std::string& command, std::string& output);
bool GetOSIf64Bit();
int RPXLoadLibrary(const char* name, int flags, void** handle, void** entry);
void RPXFreeLibrary(void* handle);
int GetAppBits();

// A folder reader used by the task-status check.
class RkDirectory {
public:
    RkDirectory();
    ~RkDirectory();
    int Open(const char* path);
    int Next();
    std::string GetFileName() const;
    int IsDir() const;
    void Close();

private:
    void* m_dir;  // DIR*
    std::string m_path;
    std::string m_name;
};

#endif
