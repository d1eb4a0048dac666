#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "JsonFormat.h"
#include "NotesSession.h"
#include "RunReport.h"
#include "ServerFolder.h"
#include "ServerHost.h"
#include "ServerPreview.h"

extern char** environ;

namespace rpxserver {
namespace {

using nsfdb::Json;
using nsfdb::ToolError;

const char* const kBackupFolder = "backup";

void RequireBelow(const fs::path& path, const ServerPaths& server, const char* setting) {
    if (PathBelow(path, server.dir).empty())
        throw ToolError(std::string("cannot preview: \"") + setting + "\" (" + path.string() +
                        ") lies outside the server folder " + server.dir.string() + ", so it cannot be copied");
}

std::string ReplacedAll(std::string text, const std::string& from, const std::string& to) {
    if (from.empty()) return text;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

// notes.ini of the copy: every setting that named a place in the server folder names the same
// place in the copy.
void PointSettingsAtCopy(const fs::path& copy, const fs::path& original) {
    fs::path ini = copy / "notes.ini";
    std::istringstream lines(ReadFileText(ini));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        size_t equals = line.find('=');
        if (equals != std::string::npos && line[0] != '[') {
            std::string value = line.substr(equals + 1);
            std::string root = original.string();
            if (value == root || value.rfind(root + "/", 0) == 0) value = copy.string() + value.substr(root.size());
            line = line.substr(0, equals + 1) + value;
        }
        text += line + "\n";
    }
    std::ofstream out(ini, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) throw ToolError(ini.string() + ": cannot write the copy's notes.ini");
}

std::string ThisProgram() {
    std::vector<char> path(4096);
    ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (length <= 0) throw ToolError("cannot find the rpxserver program to run the preview");
    return std::string(path.data(), static_cast<size_t>(length));
}

// Runs "rpxserver run" on the copy in a process of its own, so that the task module is loaded
// afresh and its output stays out of the preview's. Returns the exit status.
int RunOnCopy(const std::vector<std::string>& args, const fs::path& output) {
    std::vector<char*> argv;
    std::vector<std::string> storage = args;
    for (std::string& arg : storage) argv.push_back(&arg[0]);
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t child = 0;
    int spawned = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) throw ToolError("cannot start " + args[0] + " for the preview");
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) throw ToolError("lost the preview's run");
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ShowPathsAsOriginal(Json& value, const std::string& copy, const std::string& original) {
    if (value.is_string()) {
        value = ReplacedAll(value.get<std::string>(), copy, original);
    } else if (value.is_structured()) {
        for (Json& element : value) ShowPathsAsOriginal(element, copy, original);
    }
}

}  // namespace

int PreviewRun(const std::string& serverDir, const PreviewOptions& options, std::ostream& out) {
    ServerPaths server = ReadServerPaths(serverDir);
    RequireBelow(server.data, server, "Directory");
    if (!server.install.empty()) RequireBelow(server.install, server, "VeltrixInstallPath");

    TemporaryFolder work("rpxserver-preview");
    // The copy keeps the folder's own name: a task that stumbles over a name must do so here too.
    fs::path copy = work.path() / server.dir.filename();
    CopyFiles(server.dir, copy, {kBackupFolder});
    PointSettingsAtCopy(copy, server.dir);

    fs::path reportFile = work.path() / "report.json";
    std::vector<std::string> args = {ThisProgram(), "run", copy.string(), "--module",
                                     nsfdb::AbsolutePath(options.modulePath), "--report", reportFile.string()};
    if (options.details) args.push_back("--details");
    int exitCode = RunOnCopy(args, work.path() / "run.out");
    std::error_code error;
    if (exitCode < 0 || exitCode >= kExitUsage || !fs::exists(reportFile, error)) {
        std::string output = ReplacedAll(ReadFileText(work.path() / "run.out"), copy.string(), server.dir.string());
        throw HostError(exitCode >= kExitUsage ? exitCode : kExitFailed,
                        "the preview's run on a copy of " + server.dir.string() + " failed:\n" + output);
    }
    Json report = nsfdb::ParseJsonText(ReadFileText(reportFile));
    ShowPathsAsOriginal(report, copy.string(), server.dir.string());
    Json preview{{"preview", true}};
    preview.update(report);
    if (options.json) {
        out << ReportText(preview);
    } else {
        out << "Preview of the patch on " << server.dir.string() << " (run on a copy: nothing here was changed)\n";
        PrintReportSummary(preview, out);
    }
    return kExitOk;
}

}  // namespace rpxserver
