// RkRPXInit: the task-initialisation settings that the common library reads, held by the
// process-wide gRPXInit.
//
// This is the minimum the common debug log and the task-status check need: the debug level,
// the task name, the debug folder and the task's own lock-file path. Full task initialisation
// (command-line parameters, pid file, automatic debug mode, clean-up of old debug files, the
// worker-thread registry) is not part of this library.
//
// The texts are meant to be set once at start-up, before other threads log; the debug level
// may change at any time.
#ifndef RK_RPX_INIT_H
#define RK_RPX_INIT_H

#include <atomic>
#include <cstddef>

class RkRPXInit {
public:
    static constexpr size_t TASK_NAME_SIZE = 256;
    static constexpr size_t DEBUG_FOLDER_SIZE = 1024;
    static constexpr size_t LOCK_FILE_PATH_SIZE = 1024;
    static constexpr int DEBUG_OFF = -1;

    // constexpr, so that gRPXInit is ready before any other object of the program is built.
    constexpr RkRPXInit() : m_debugLevel(DEBUG_OFF), m_taskName{}, m_debugFolder{}, m_lockFilePath{} {}
    RkRPXInit(const RkRPXInit&) = delete;
    RkRPXInit& operator=(const RkRPXInit&) = delete;

    // Negative: the common debug log is off; otherwise 0 to 3, higher is more detailed.
    int GetDebugLevel() const { return m_debugLevel.load(std::memory_order_relaxed); }
    void SetDebugLevel(int level) { m_debugLevel.store(level, std::memory_order_relaxed); }

    const char* GetTaskName() const { return m_taskName; }
    const char* GetDebugFolder() const { return m_debugFolder; }
    const char* GetLockFilePath() const { return m_lockFilePath; }

    // Each returns false, keeping the old text, for a null text or one that does not fit.
    bool SetTaskName(const char* name);
    bool SetDebugFolder(const char* folder);
    bool SetLockFilePath(const char* path);

private:
    std::atomic<int> m_debugLevel;
    char m_taskName[TASK_NAME_SIZE];
    char m_debugFolder[DEBUG_FOLDER_SIZE];
    char m_lockFilePath[LOCK_FILE_PATH_SIZE];
};

extern RkRPXInit gRPXInit;

#endif
