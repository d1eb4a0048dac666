// The common debug log: one line per call appended to <debug folder>/<task>_<YYYYMMDD>.dbg,
// written under the process-wide lock so that the lines of different threads never mix.
#include <pthread.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "RkCommonUtil.h"
#include "RkRPXInit.h"
#include "rk_LOG_CRWLock.h"

namespace {

constexpr size_t kTimeTextSize = 20;
constexpr size_t kFileNameSize = 256;
constexpr size_t kPrefixSize = 100;
constexpr size_t kMessageSize = 2048;

struct LogLineStart {
    char stamp[kTimeTextSize];  // "%Y/%m/%d %H:%M:%S"
    char fileName[kFileNameSize];
};

// Levels above 0 are filtered by (level mod 4) against the debug level; 0 passes whenever the
// log is on.
bool LevelIsLogged(int level, int debugLevel) { return !(level > 0 && level % 4 > debugLevel); }

// Opens today's file for appending when the line is to be written; null otherwise.
std::FILE* OpenLogFile(int level, LogLineStart& start) {
    std::time_t now = std::time(nullptr);
    int debugLevel = gRPXInit.GetDebugLevel();
    if (debugLevel < 0) return nullptr;
    std::tm local {};
    if (localtime_r(&now, &local) == nullptr) return nullptr;
    char day[kTimeTextSize];
    std::strftime(start.stamp, sizeof(start.stamp), "%Y/%m/%d %H:%M:%S", &local);
    std::strftime(day, sizeof(day), "%Y%m%d", &local);
    int needed = std::snprintf(start.fileName, sizeof(start.fileName), "%s/%s_%s.dbg",
                               gRPXInit.GetDebugFolder(), gRPXInit.GetTaskName(), day);
    // A cut name would point at some other file: better not to write at all.
    if (needed < 0 || static_cast<size_t>(needed) >= sizeof(start.fileName)) return nullptr;
    if (!LevelIsLogged(level, debugLevel)) return nullptr;
    return std::fopen(start.fileName, "a+");
}

unsigned long ThreadId() { return static_cast<unsigned long>(pthread_self()); }

// Opens the file of a line that is to be written and fills its prefix from prefixFormat (time,
// pid, thread, level); null when nothing is to be written. The level fills the field named module:
// readers of the log parse the line by that field name, so it keeps the name.
std::FILE* StartLine(int level, const char* format, const char* prefixFormat, char* prefix) {
    if (format == nullptr) return nullptr;
    LogLineStart start;
    std::FILE* file = OpenLogFile(level, start);
    if (file == nullptr) return nullptr;
    std::snprintf(prefix, kPrefixSize, prefixFormat, start.stamp, static_cast<int>(getpid()), ThreadId(),
                  static_cast<unsigned>(level));
    return file;
}

}  // namespace

void RkCommonUtil::LogDebugMessage(const char* sourceFile, int line, int level, const char* format, ...) {
    char prefix[kPrefixSize];
    std::FILE* file = StartLine(level, format, "[%s][pid=%d][tid=%lu][module=%08x]", prefix);
    if (file == nullptr) return;
    char message[kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    message[sizeof(message) - 1] = '\0';

    rk_LOG_CWriterSentry sentry(gLogLock);
    std::fprintf(file, "%s [%35s(%4d)]:%s\n", prefix, sourceFile != nullptr ? sourceFile : "", line,
                 message);
    std::fclose(file);
}

void RkCommonUtil::LogDebugMessage(int level, const char* format, ...) {
    char prefix[kPrefixSize];
    std::FILE* file = StartLine(level, format, "[%s][pid=%d][tid=%lu][module=%x]", prefix);
    if (file == nullptr) return;

    rk_LOG_CWriterSentry sentry(gLogLock);
    std::fprintf(file, "%s:", prefix);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(file, format, arguments);  // the short form has no length limit
    va_end(arguments);
    std::fputc('\n', file);
    std::fclose(file);
}
