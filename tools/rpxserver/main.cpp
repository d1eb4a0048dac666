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
#include "ServerHost.h"
#include "ServerInit.h"

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
    "  run DIR [--module PATH]      run a task module's MainEntryPoint on the server DIR\n"
    "  console DIR \"COMMAND\"        run one console command on the server DIR\n"
    "  dump DIR                     show the server DIR: settings, files and databases\n"
    "\n"
    "Run \"rpxserver COMMAND --help\" for the details of a command.\n"
    "Exit status:\n"
    "  0    done (run: the task returned 0)\n"
    "  1    init: the scenario was refused; console: the server did not take the command;\n"
    "       dump: DIR is not a server folder\n"
    "  1-99 run: the task's status; 100: a status of 100 or more (printed on standard error)\n"
    "  120  wrong arguments\n"
    "  121  the server did not start (notes.ini missing or unreadable, bad server.json)\n"
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
    "On any error nothing is left behind (exit 1).\n";

const char* const kRunHelp =
    "Usage: rpxserver run DIR [--module PATH]\n"
    "\n"
    "Starts the emulated server from DIR/notes.ini (and DIR/server.json), loads the task module\n"
    "PATH with the product's library loader and calls its MainEntryPoint. Console lines are\n"
    "shown on standard output as they come (and kept in DIR/console.log). When the task returns,\n"
    "the handles it left open and its status are reported on standard error, and rpxserver exits\n"
    "with the task's status (see \"rpxserver --help\").\n"
    "The default module is the built libupdrpx.so";

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
    std::string help = kRunHelp;
    help += kDefaultModule ? std::string(": ") + kDefaultModule + "\n" : " (not part of this build: give --module)\n";
    return help;
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

int Run(const std::vector<std::string>& args) {
    std::vector<std::string> positional;
    std::string module = kDefaultModule ? kDefaultModule : "";
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--module") {
            if (i + 1 == args.size()) return Usage("--module needs a PATH", RunHelp());
            module = args[++i];
        } else {
            positional.push_back(args[i]);
        }
    }
    if (positional.size() != 1) return Usage("run takes one server folder DIR", RunHelp());
    if (module.empty()) return Usage("this build has no default task module: give --module PATH", RunHelp());
    return RunTask(positional[0], module);
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
