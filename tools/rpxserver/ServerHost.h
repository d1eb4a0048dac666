// The stand-in server at work: the emulated platform started from a server folder's
// notes.ini, a task module run as the server's program loader runs it, console commands.
#ifndef RPXSERVER_SERVERHOST_H
#define RPXSERVER_SERVERHOST_H

#include <stdexcept>
#include <string>
#include <vector>

namespace rpxserver {

// Exit statuses of the tool. "run" exits with the task's status when it is below
// kExitLargeStatus; a larger status gives kExitLargeStatus (the status is printed).
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // init: the scenario was refused; console: the command was not taken
constexpr int kExitLargeStatus = 100;
constexpr int kExitUsage = 120;
constexpr int kExitServerStart = 121;  // notes.ini missing or unreadable, the platform did not start
constexpr int kExitNoModule = 122;     // the module is missing or cannot be loaded
constexpr int kExitNoEntry = 123;      // the module has no MainEntryPoint

// A failure of the host itself, with the exit status that tells it apart.
class HostError : public std::runtime_error {
public:
    HostError(int exitCode, const std::string& message) : std::runtime_error(message), exitCode_(exitCode) {}
    int exitCode() const { return exitCode_; }

private:
    int exitCode_;
};

// The emulated platform started as the server of a server folder (its notes.ini and
// server.json), with the console shown on standard output; stopped at scope exit.
// Throws HostError(kExitServerStart).
class ServerSession {
public:
    explicit ServerSession(const std::string& serverDir);
    ~ServerSession();
    ServerSession(const ServerSession&) = delete;
    ServerSession& operator=(const ServerSession&) = delete;
};

// What the task left when it returned: its status and the handles it left open.
struct TaskOutcome {
    unsigned status = 0;
    std::string statusText;
    std::vector<std::string> openHandles;  // one line per handle, as the platform reports it
};

// Loads modulePath with the product's library loader, calls its MainEntryPoint on the
// server of serverDir with the console shown on standard output, reports the handles left
// open, and returns the exit status for the task's status. Fills outcome when given.
// Throws HostError.
int RunTask(const std::string& serverDir, const std::string& modulePath, TaskOutcome* outcome = nullptr);

// Runs one console command (native text) on the server of serverDir, the console shown on
// standard output. kExitOk when the server took it, else kExitFailed. Throws HostError.
int RunConsoleCommand(const std::string& serverDir, const std::string& command);

}  // namespace rpxserver

#endif
