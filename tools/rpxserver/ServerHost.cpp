#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "NotesSession.h"
#include "RkCommonUtil.h"
#include "ServerHost.h"

#include "emu/notesemu.h"
#include "global.h"

namespace rpxserver {
namespace {

using TaskEntry = STATUS(LNPUBLIC*)(void);

bool IsRegularFile(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// Strings a module handed to putenv are part of the environment until replaced; once the
// module is unloaded they would dangle and the next getenv would read freed memory. setenv
// puts copies of its own in their place.
void CopyEnvironmentOutOfModule() {
    std::vector<std::string> entries;
    for (char** entry = environ; entry && *entry; ++entry) entries.emplace_back(*entry);
    for (const std::string& entry : entries) {
        size_t equals = entry.find('=');
        if (equals != std::string::npos && equals > 0)
            ::setenv(entry.substr(0, equals).c_str(), entry.c_str() + equals + 1, 1);
    }
}

// A loaded task module, freed at scope exit.
class TaskModule {
public:
    explicit TaskModule(const std::string& path) {
        if (!IsRegularFile(path)) throw HostError(kExitNoModule, path + ": no such task module");
        void* entry = nullptr;
        int loaded = RPXLoadLibrary(path.c_str(), 0, &handle_, &entry);
        std::fflush(stdout);  // the loader reports its failures there
        if (loaded == 0 && entry) {
            entry_ = reinterpret_cast<TaskEntry>(entry);
            return;
        }
        if (handle_) {
            RPXFreeLibrary(handle_);
            throw HostError(kExitNoEntry, path + ": the module has no MainEntryPoint");
        }
        throw HostError(kExitNoModule, path + ": cannot load the task module (the loader's message is above)");
    }
    ~TaskModule() {
        CopyEnvironmentOutOfModule();
        RPXFreeLibrary(handle_);
    }
    TaskModule(const TaskModule&) = delete;
    TaskModule& operator=(const TaskModule&) = delete;

    STATUS Run() const { return entry_(); }

private:
    void* handle_ = nullptr;
    TaskEntry entry_ = nullptr;
};

void LNCALLBACK KeepHandleLine(const char* line, void* ctx) {
    static_cast<std::vector<std::string>*>(ctx)->push_back(line ? line : "");
}

std::vector<std::string> ReportOpenHandles() {
    std::vector<std::string> lines;
    DWORD count = EmuOpenHandleCount();
    if (count == 0) {
        std::cerr << "rpxserver: no handles left open at task exit\n";
        return lines;
    }
    std::cerr << "rpxserver: " << count << (count == 1 ? " handle" : " handles") << " left open at task exit:\n";
    EmuOpenHandleReport(KeepHandleLine, &lines);
    for (const std::string& line : lines) std::cerr << "rpxserver:   " << line << '\n';
    return lines;
}

int ExitStatusOf(STATUS status) {
    if (status == NOERROR) {
        std::cerr << "rpxserver: the task returned status 0\n";
        return kExitOk;
    }
    std::cerr << "rpxserver: the task returned status " << status << ": " << nsfdb::StatusText(status) << '\n';
    return status < kExitLargeStatus ? static_cast<int>(status) : kExitLargeStatus;
}

}  // namespace

ServerSession::ServerSession(const std::string& serverDir) {
    std::string ini = nsfdb::AbsolutePath(serverDir) + "/notes.ini";
    if (!std::ifstream(ini))
        throw HostError(kExitServerStart,
                        ini + ": cannot read notes.ini (make a server folder with \"rpxserver init\")");
    std::string argument = "=" + ini;
    std::vector<char> program{'r', 'p', 'x', 's', 'e', 'r', 'v', 'e', 'r', '\0'};
    std::vector<char> iniArgument(argument.begin(), argument.end());
    iniArgument.push_back('\0');
    char* argv[] = {program.data(), iniArgument.data(), nullptr};
    STATUS status = NotesInitExtended(2, argv);
    if (status != NOERROR)
        throw HostError(kExitServerStart,
                        "cannot start the server from " + ini + ": " + nsfdb::StatusText(status));
    EmuConsoleEcho(TRUE);
}

ServerSession::~ServerSession() {
    std::fflush(stdout);
    NotesTerm();
}

int RunTask(const std::string& serverDir, const std::string& modulePath, TaskOutcome* outcome) {
    ServerSession server(serverDir);
    std::string path = nsfdb::AbsolutePath(modulePath);
    TaskModule module(path);
    std::cerr << "rpxserver: running MainEntryPoint of " << path << '\n';
    STATUS status = module.Run();
    std::fflush(stdout);
    std::vector<std::string> openHandles = ReportOpenHandles();
    if (outcome) {
        outcome->status = status;
        outcome->statusText = status == NOERROR ? "" : nsfdb::StatusText(status);
        outcome->openHandles = openHandles;
    }
    return ExitStatusOf(status);
}

int RunConsoleCommand(const std::string& serverDir, const std::string& command) {
    ServerSession server(serverDir);
    std::string lmbcs;
    if (!command.empty() && !nsfdb::Utf8ToLmbcs(command, lmbcs))
        throw HostError(kExitUsage, "the command cannot be given to the server as LMBCS text");
    STATUS status = EmuConsoleCommand(lmbcs.c_str());
    std::fflush(stdout);
    if (status == NOERROR) return kExitOk;
    std::cerr << "rpxserver: the server did not take the command: " << nsfdb::StatusText(status) << '\n';
    return kExitFailed;
}

}  // namespace rpxserver
