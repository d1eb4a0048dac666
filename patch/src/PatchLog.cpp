// The patch debug log: one line per call appended to <data>/rpxtemp/updrpx_<YYYYMMDD>.dbg, the
// file opened and closed each time, written only while RPX_ENABLE_RPENCY_LOG is 1.
#include "global.h"
#include "names.h"
#include "osenv.h"
#include "osfile.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "PatchRPX.h"
#include "RkFormat.h"

namespace {

const char kLogSwitch[] = "RPX_ENABLE_RPENCY_LOG";
const char kTempFolderName[] = "rpxtemp";
const char kTaskName[] = "updrpx";

constexpr size_t kPathSize = 256;

int CallingThreadId() {
    return static_cast<int>(static_cast<uint32_t>(pthread_self()));
}

constexpr size_t kTimeTextSize = 20;

struct LogTimes {
    char stamp[kTimeTextSize];  // "%Y/%m/%d %H:%M:%S"
    char day[kTimeTextSize];    // "%Y%m%d"
};

LogTimes CurrentLogTimes() {
    LogTimes times{};
    time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    strftime(times.stamp, sizeof times.stamp, "%Y/%m/%d %H:%M:%S", &local);
    strftime(times.day, sizeof times.day, "%Y%m%d", &local);
    return times;
}

// The day's file name, cut to the size of path when the folder is long: the name is opened as
// it is then, so a cut name is a file of its own rather than no log at all.
void BuildLogFilePath(const char* day, char* path, size_t size) {
    char tempPath[kPathSize];
    GetRPXTempPath(tempPath, sizeof tempPath);
    rk_snprintf(path, size, "%s%s%s_%s.dbg", tempPath, "/", kTaskName, day);
}

// Room for a line's prefix and for its formatted message.
constexpr size_t kPrefixSize = 100;
constexpr size_t kMessageSize = 2048;

}  // namespace

bool IsEnabledDebugLog() {
    return OSGetEnvironmentLong(kLogSwitch) == 1;
}

void GetRPXTempPath(char* buffer, int size) {
    if (buffer == nullptr || size <= 0) return;
    char dataDirectory[MAXPATH] = "";
    OSGetDataDirectory(dataDirectory);
    dataDirectory[MAXPATH - 1] = '\0';
    rk_snprintf(buffer, static_cast<size_t>(size), "%s/%s", dataDirectory, kTempFolderName);
}

void LogDebugMessage(int level, const char* format, ...) {
    if (!IsEnabledDebugLog()) return;
    LogTimes times = CurrentLogTimes();
    char filePath[kPathSize];
    BuildLogFilePath(times.day, filePath, sizeof filePath);
    // Every level is written; the level only shows in the line.
    FILE* file = fopen(filePath, "a+");
    if (file == nullptr) return;  // e.g. no rpxtemp folder: it is never created here

    char prefix[kPrefixSize];
    // The level fills the field named module: log readers parse the line by that field name.
    rk_snprintf(prefix, sizeof prefix, "[%s][pid=%d][tid=%d][module=%x]:", times.stamp,
                static_cast<int>(getpid()), CallingThreadId(), static_cast<unsigned>(level));
    char message[kMessageSize] = "";
    if (format != nullptr) {
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(message, sizeof message, format, arguments);
        va_end(arguments);
    }
    fprintf(file, "%s%s\n", prefix, message);
    fclose(file);
}
