// Task services that need no Notes call: shell commands, waits, lock-file tests, folder reading
// and loading other tasks' libraries.
#include "RkCommonUtil.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

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
    if (path == nullptr) return false;
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
    if (name == nullptr || handle == nullptr || entry == nullptr) return -1;
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
            ReportLoadFailure(name);  // reported twice for an absolute path, as it always was
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
    if (path == nullptr) return -1;
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
