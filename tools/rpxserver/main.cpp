// rpxserver: the stand-in Domino server. Makes a server folder from a scenario, runs a
// task module on it as the server's program loader does, and runs console commands.
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "JsonFormat.h"
#include "NotesSession.h"
#include "Scenario.h"
#include "ServerDump.h"
#include "RunReport.h"
#include "ServerBackup.h"
#include "ServerHost.h"
#include "ServerInit.h"
#include "ServerPreview.h"

namespace rpxserver {
namespace {

#ifdef RPXSERVER_DEFAULT_MODULE
const char* const kDefaultModule = RPXSERVER_DEFAULT_MODULE;
#else
const char* const kDefaultModule = nullptr;
#endif

const char* const kToolHelp =
    "Usage: rpxserver COMMAND ARGUMENTS\n"
    "\n"
    "The stand-in Domino server on the emulated Notes platform.\n"
    "\n"
    "Commands:\n"
    "  init SCENARIO.json DIR       make the server folder DIR from a scenario\n"
    "  run DIR [--module PATH] [--report FILE] [--backup] [--details]\n"
    "                               run a task module's MainEntryPoint on the server DIR; keep the\n"
    "                               product's files first (--backup), report what changed (--report)\n"
    "  preview DIR [--module PATH] [--details] [--json]\n"
    "                               show what a run would change, from a run on a copy of DIR\n"
    "  restore DIR TIMESTAMP        put back the files a \"run --backup\" kept in DIR/backup/TIMESTAMP\n"
    "  console DIR \"COMMAND\"        run one console command on the server DIR\n"
    "  dump DIR                     show the server DIR: settings, files and databases\n"
    "\n"
    "Run \"rpxserver COMMAND --help\" for the details of a command.\n"
    "Exit status:\n"
    "  0    done (run: the task returned 0)\n"
    "  1    init: the scenario was refused; console: the server did not take the command;\n"
    "       dump: DIR is not a server folder; preview: the copy could not be made or run;\n"
    "       restore: the backup was refused or not everything was restored;\n"
    "       run: the backup or the report could not be made (the task does not run without\n"
    "       its backup)\n"
    "  1-99 run: the task's status; 100: a status of 100 or more (printed on standard error)\n"
    "  120  wrong arguments\n"
    "  121  the server did not start (notes.ini missing, empty, not native text or without\n"
    "       Directory; a bad server.json)\n"
    "  122  run: the task module is missing or cannot be loaded\n"
    "  123  run: the task module has no MainEntryPoint\n";

const char* const kInitHelp =
    "Usage: rpxserver init SCENARIO.json DIR\n"
    "\n"
    "Makes the server folder DIR (it must not exist, or be empty; its parent must exist):\n"
    "  DIR/notes.ini    [Notes], then Directory=DIR/data, VeltrixInstallPath=DIR/install,\n"
    "                   ServerName (default CN=Alpha/O=Acme) and the scenario's other settings;\n"
    "                   the scenario may give the first three itself\n"
    "  DIR/server.json  the scenario's \"server\" object without \"tempFolder\" (left out when empty)\n"
    "  DIR/data/        the data directory, with rpxtemp/ unless \"server\": {\"tempFolder\": false}\n"
    "  DIR/install/     the product's install folder\n"
    "The scenario: {\"notesIni\": {NAME: text or whole number},\n"
    "               \"data\": {PATH: ENTRY}, \"install\": {PATH: ENTRY}, \"server\": {...}}\n"
    "A PATH is relative to its folder; an ENTRY that is an object is a database in the form\n"
    "\"nsfdb create\" reads, a string is a plain file's content. Paths written are absolute.\n"
    "\n"
    "The \"server\" object (every key optional; any other key is refused):\n"
    "  \"clock\": \"real\" | \"virtual\"    real (default): platform waits really wait; virtual: they\n"
    "                                 return at once and advance the platform clock\n"
    "  \"busy\": {DB: N | \"always\"}     NSFTakeDatabaseOffline answers \"in use\" for DB's first N\n"
    "                                 attempts (N >= 1), or for every attempt\n"
    "  \"faults\": [{\"call\": NAME, \"status\": S, \"path\": DB, \"unid\": UNID, \"count\": N | \"always\"}]\n"
    "                                 the platform API function NAME returns status S (1..65535);\n"
    "                                 path limits it to one database, unid (32 hexadecimal digits) to\n"
    "                                 one note, count to the first N matching calls (default: all);\n"
    "                                 \"after\": N lets the first N matching calls through first;\n"
    "                                 NAME \"*\" matches every call; \"action\": \"kill\" (no status\n"
    "                                 needed) ends the process at the call, as kill -9 would\n"
    "  \"tasks\": {\"rpxreal\": {\"running\": true | false, \"holds\": [DB, ...]}}\n"
    "                                 the simulated real-time task (running by default) and the\n"
    "                                 databases it keeps in use while it runs\n"
    "  \"tempFolder\": true | false     false: no data/rpxtemp/ is made (not written to server.json)\n"
    "DB is a Notes path relative to the data directory (\"rpx/rpmsg.nsf\"; \".nsf\" may be left out).\n"
    "The object is checked as \"rpxserver run\" reads it; a problem is named by its key path.\n"
    "On any error nothing is left behind (exit 1).\n";

const char* const kRunHelp =
    "Usage: rpxserver run DIR [--module PATH] [--report FILE] [--backup] [--details]\n"
    "\n"
    "Starts the emulated server from DIR/notes.ini (and DIR/server.json), loads the task module\n"
    "PATH with the product's library loader and calls its MainEntryPoint. Console lines are\n"
    "shown on standard output as they come (and kept in DIR/console.log). When the task returns,\n"
    "the handles it left open and its status are reported on standard error, and rpxserver exits\n"
    "with the task's status (see \"rpxserver --help\").\n"
    "The default module is the built libupdrpx.so";

std::string ModuleHelp() {
    return kDefaultModule ? std::string(": ") + kDefaultModule + "\n" : " (not part of this build: give --module)\n";
}

const char* const kRunAdminHelp =
    "\n"
    "  --backup         before the task, keep every file of the product's folder DIR/data/rpx\n"
    "                   (what the patch replaces, converts, stamps and signs) and the list of the\n"
    "                   databases the patch's settings name that do not exist yet, in\n"
    "                   DIR/backup/TIMESTAMP/ (TIMESTAMP: YYYYMMDD-HHMMSS, UTC). Put it back with\n"
    "                   \"rpxserver restore\". The task does not run when the backup fails.\n"
    "  --report FILE    after the task, write FILE, a JSON document: serverFolder, serverName,\n"
    "                   dataFolder, module, started, ended (UTC), patchBuild, status, statusText,\n"
    "                   errors and warnings (the debug log's lines of this run), consoleCommands,\n"
    "                   databases and files of the data folder created, deleted, replaced (named\n"
    "                   in the patch's settings) or changed, each database with its note counts\n"
    "                   (before, after, added, removed, changed) and its other changes, and\n"
    "                   handlesLeftOpen. The same is printed as a summary at the end.\n"
    "  --details        with --report: each changed database's item-level differences too.\n";

const char* const kPreviewHelp =
    "Usage: rpxserver preview DIR [--module PATH] [--details] [--json]\n"
    "\n"
    "Shows what \"rpxserver run DIR\" would do, without changing anything in DIR: DIR (all but\n"
    "DIR/backup) is copied to a temporary folder, its notes.ini pointed at the copy, the task run\n"
    "there with a report (see \"rpxserver run --help\"), and the report shown with the copy's paths\n"
    "written as DIR's: databases replaced, created, deleted or changed with their note counts,\n"
    "console commands sent, the debug log's errors and warnings, the task's status.\n"
    "The data folder and the install folder must lie in DIR. The copy is removed afterwards.\n"
    "  --module PATH    the task module (default: as for run)\n"
    "  --details        the item-level differences of each changed database (as \"nsfdb diff\")\n"
    "  --json           one JSON document, the form of \"run --report\" with \"preview\": true\n";

const char* const kRestoreHelp =
    "Usage: rpxserver restore DIR TIMESTAMP\n"
    "\n"
    "Puts back the files that \"rpxserver run DIR --backup\" kept in DIR/backup/TIMESTAMP/: each\n"
    "database is taken offline (retried while in use, as the patch task does), replaced and\n"
    "brought online again; plain files are replaced; databases the patch created are removed.\n"
    "A backup made on another server (another ServerName or data folder) or an incomplete one is\n"
    "refused with nothing changed. Exit status 0 when everything was restored, else 1.\n";

const char* const kConsoleHelp =
    "Usage: rpxserver console DIR \"COMMAND\"\n"
    "\n"
    "Starts the emulated server from DIR/notes.ini and runs one console command, as a command\n"
    "sent to the server's console. The console lines are shown on standard output and kept in\n"
    "DIR/console.log. Exit status 0 when the server took the command.\n";

const char* const kDumpHelp =
    "Usage: rpxserver dump DIR\n"
    "\n"
    "Shows the server folder DIR: its notes.ini, server.json, every file of data/ and install/\n"
    "(a database with its title and number of notes) and the length of console.log.\n"
    "Use \"nsfdb dump\" for a database's content.\n";

bool IsHelp(const std::string& arg) {
    return arg == "--help" || arg == "-h" || arg == "help";
}

bool WantsHelp(const std::vector<std::string>& args) {
    for (const std::string& arg : args)
        if (arg == "--help" || arg == "-h") return true;
    return false;
}

std::string RunHelp() {
    return std::string(kRunHelp) + ModuleHelp() + kRunAdminHelp;
}

int Usage(const std::string& problem, const std::string& help) {
    std::cerr << "rpxserver: " << problem << "\n\n" << help;
    return kExitUsage;
}

int Init(const std::vector<std::string>& args) {
    if (args.size() != 2) return Usage("init takes SCENARIO.json and DIR", kInitHelp);
    InitServer(args[0], args[1]);
    return kExitOk;
}

// The options of run and preview; the one positional argument, DIR, in dir.
struct RunArguments {
    std::string dir, module = kDefaultModule ? kDefaultModule : "", report;
    bool backup = false, details = false, json = false;
};

// "" when the arguments are good, else the problem.
std::string ParseRunArguments(const std::vector<std::string>& args, bool preview, RunArguments& parsed) {
    std::vector<std::string> positional;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        bool hasValue = i + 1 < args.size();
        if (arg == "--module" || (arg == "--report" && !preview)) {
            if (!hasValue) return arg + " needs a " + (arg == "--module" ? "PATH" : "FILE");
            (arg == "--module" ? parsed.module : parsed.report) = args[++i];
        } else if (arg == "--backup" && !preview) {
            parsed.backup = true;
        } else if (arg == "--details") {
            parsed.details = true;
        } else if (arg == "--json" && preview) {
            parsed.json = true;
        } else if (arg.rfind("--", 0) == 0) {
            return "unknown option " + arg;
        } else {
            positional.push_back(arg);
        }
    }
    if (positional.size() != 1) return std::string(preview ? "preview" : "run") + " takes one server folder DIR";
    if (parsed.module.empty()) return "this build has no default task module: give --module PATH";
    if (parsed.details && parsed.report.empty() && !preview) return "--details goes with --report";
    parsed.dir = positional[0];
    return "";
}

int Run(const std::vector<std::string>& args) {
    RunArguments run;
    std::string problem = ParseRunArguments(args, false, run);
    if (!problem.empty()) return Usage(problem, RunHelp());
    if (!run.backup && run.report.empty()) return RunTask(run.dir, run.module);
    ServerPaths server = ReadServerPaths(run.dir);
    if (run.backup) MakeBackup(server, std::cerr);
    if (run.report.empty()) return RunTask(run.dir, run.module);
    return RunWithReport(server, run.module, run.report, run.details);
}

int Preview(const std::vector<std::string>& args) {
    RunArguments preview;
    std::string problem = ParseRunArguments(args, true, preview);
    if (!problem.empty()) return Usage(problem, kPreviewHelp);
    return PreviewRun(preview.dir, {preview.module, preview.details, preview.json}, std::cout);
}

int Restore(const std::vector<std::string>& args) {
    if (args.size() != 2) return Usage("restore takes DIR and the TIMESTAMP of a backup", kRestoreHelp);
    return RestoreBackup(args[0], args[1], std::cout, std::cerr);
}

int Console(const std::vector<std::string>& args) {
    if (args.size() != 2) return Usage("console takes DIR and one COMMAND (quote it)", kConsoleHelp);
    return RunConsoleCommand(args[0], args[1]);
}

int Dump(const std::vector<std::string>& args) {
    if (args.size() != 1) return Usage("dump takes one server folder DIR", kDumpHelp);
    DumpServer(args[0], std::cout);
    std::cout.flush();
    if (!std::cout) throw nsfdb::ToolError("cannot write to standard output");
    return kExitOk;
}

struct Command {
    const char* name;
    int (*run)(const std::vector<std::string>&);
    std::string (*help)();
};

const Command kCommands[] = {{"init", Init, [] { return std::string(kInitHelp); }},
                             {"run", Run, RunHelp},
                             {"preview", Preview, [] { return std::string(kPreviewHelp) + "The default module" + ModuleHelp(); }},
                             {"restore", Restore, [] { return std::string(kRestoreHelp); }},
                             {"console", Console, [] { return std::string(kConsoleHelp); }},
                             {"dump", Dump, [] { return std::string(kDumpHelp); }}};

int Dispatch(const std::vector<std::string>& args) {
    if (args.empty()) return Usage("a command is missing", kToolHelp);
    if (IsHelp(args[0]) && args.size() == 1) {
        std::cout << kToolHelp;
        return kExitOk;
    }
    // "rpxserver help COMMAND" is "rpxserver COMMAND --help".
    bool helpFirst = IsHelp(args[0]);
    const std::string& name = helpFirst ? args[1] : args[0];
    std::vector<std::string> rest(args.begin() + 1 + helpFirst, args.end());
    for (const Command& command : kCommands) {
        if (name != command.name) continue;
        if (helpFirst || WantsHelp(rest)) {
            std::cout << command.help();
            return kExitOk;
        }
        return command.run(rest);
    }
    return Usage("unknown command \"" + name + "\"", kToolHelp);
}

}  // namespace
}  // namespace rpxserver

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    try {
        return rpxserver::Dispatch(args);
    } catch (const rpxserver::HostError& error) {
        std::cerr << "rpxserver: " << error.what() << '\n';
        return error.exitCode();
    } catch (const nsfdb::ToolError& error) {
        std::cerr << "rpxserver: " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << "rpxserver: unexpected failure: " << error.what() << '\n';
    }
    return rpxserver::kExitFailed;
}
