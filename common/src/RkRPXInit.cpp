// The task-initialisation settings read by the common library.
#include "RkRPXInit.h"

#include <cstring>

namespace {

bool StoreText(char* target, size_t capacity, const char* text) {
    if (text == nullptr) return false;
    size_t length = strnlen(text, capacity);
    if (length >= capacity) return false;
    memcpy(target, text, length + 1);
    return true;
}

}  // namespace

bool RkRPXInit::SetTaskName(const char* name) { return StoreText(m_taskName, sizeof(m_taskName), name); }

bool RkRPXInit::SetDebugFolder(const char* folder) {
    return StoreText(m_debugFolder, sizeof(m_debugFolder), folder);
}

bool RkRPXInit::SetLockFilePath(const char* path) {
    return StoreText(m_lockFilePath, sizeof(m_lockFilePath), path);
}

RkRPXInit gRPXInit;  // constant-initialised: usable from any static set-up
