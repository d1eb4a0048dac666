// nsfdb: makes emulated Notes databases from JSON, writes them as JSON and
// shows the differences between two of them.
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "DbAccess.h"
#include "DbDiff.h"
#include "JsonFormat.h"
#include "JsonStream.h"
#include "NotesSession.h"

namespace nsfdb {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitDifferent = 1;
constexpr int kExitError = 2;

const char* const kToolHelp =
    "Usage: nsfdb COMMAND ARGUMENTS\n"
    "\n"
    "Makes emulated Notes databases from JSON, writes them as JSON and compares them.\n"
    "\n"
    "Commands:\n"
    "  create FILE DB.json   make the database FILE from the JSON description DB.json\n"
    "  dump FILE             write the database FILE as JSON on standard output\n"
    "  diff A B              show how database B differs from database A\n"
    "\n"
    "Run \"nsfdb COMMAND --help\" for the details of a command.\n"
    "Exit status: 0 done (diff: equal), 1 diff found differences, 2 error.\n";

const char* const kCreateHelp =
    "Usage: nsfdb create FILE DB.json\n"
    "\n"
    "Makes the database FILE (absolute, or relative to the current folder) from DB.json:\n"
    "  {\"title\", \"categories\", \"templateName\", \"inheritFrom\": texts,\n"
    "   \"replicaId\": \"HHHHHHHH:LLLLLLLL\", \"replicaFlags\": number, \"buildVersion\": number,\n"
    "   \"acl\": [{\"name\", \"level\", \"flags\": [...], \"privileges\": [...]}],\n"
    "   \"notes\": [{\"class\", \"unid\", \"noteId\", \"items\": {NAME: VALUE}}]}\n"
    "A VALUE is a string (text), a number, a list of strings or of numbers, or an object\n"
    "{\"type\", \"value\" | \"text\" (formula source) | \"hex\" (raw bytes), \"flags\": [...]}.\n"
    "Items without \"flags\" get the summary flag. \"items\" may also be a list of\n"
    "[NAME, VALUE] pairs, to give one name several items.\n"
    "\n"
    "An existing FILE is never replaced. On any error nothing is left behind (exit 2).\n";

const char* const kDumpHelp =
    "Usage: nsfdb dump FILE\n"
    "\n"
    "Writes the database FILE as JSON on standard output: database and replica\n"
    "information, the ACL, and every note in note-ID order with its UNID, note ID and\n"
    "items in stored order, each in the shortest form that \"nsfdb create\" reads back\n"
    "to the same database. The output is the same for the same database.\n";

const char* const kDiffHelp =
    "Usage: nsfdb diff A B\n"
    "\n"
    "Shows how database B differs from database A: database and replica information,\n"
    "ACL entries, notes added (+) and removed (-), matched by UNID, and for the notes in\n"
    "both (~) their items added, removed and changed (old -> new).\n"
    "Exit status: 0 equal, 1 different, 2 error.\n";

bool IsHelp(const std::string& arg) {
    return arg == "--help" || arg == "-h" || arg == "help";
}

// After the command only the options ask for help: "help" may name a file.
bool WantsHelp(const std::vector<std::string>& args) {
    for (const std::string& arg : args)
        if (arg == "--help" || arg == "-h") return true;
    return false;
}

int Usage(const std::string& problem, const char* help) {
    std::cerr << "nsfdb: " << problem << "\n\n" << help;
    return kExitError;
}

// Starts the platform for the databases of one command and stops it again.
class PlatformSession {
public:
    explicit PlatformSession(const std::string& databasePath) { StartPlatform(FolderOf(databasePath)); }
    ~PlatformSession() { StopPlatform(); }
    PlatformSession(const PlatformSession&) = delete;
    PlatformSession& operator=(const PlatformSession&) = delete;
};

int Create(const std::vector<std::string>& args) {
    if (args.size() != 2) return Usage("create takes FILE and DB.json", kCreateHelp);
    const std::string& jsonPath = args[1];
    std::string path = AbsolutePath(args[0]);
    PlatformSession platform(path);
    CreateDatabaseFromJsonFile(path, jsonPath);
    return kExitOk;
}

int Dump(const std::vector<std::string>& args) {
    if (args.size() != 1) return Usage("dump takes one FILE", kDumpHelp);
    std::string path = AbsolutePath(args[0]);
    PlatformSession platform(path);
    Json json = DatabaseToJson(ReadDatabase(path));
    std::cout << DumpText(json);
    std::cout.flush();
    if (!std::cout) throw ToolError("cannot write to standard output");
    return kExitOk;
}

int Diff(const std::vector<std::string>& args) {
    if (args.size() != 2) return Usage("diff takes two databases A and B", kDiffHelp);
    std::string pathA = AbsolutePath(args[0]), pathB = AbsolutePath(args[1]);
    PlatformSession platform(pathA);
    DatabaseData a = ReadDatabase(pathA);
    DatabaseData b = ReadDatabase(pathB);
    std::vector<std::string> lines = DiffDatabases(a, b);
    for (const std::string& line : lines) std::cout << line << '\n';
    std::cout.flush();
    if (!std::cout) throw ToolError("cannot write to standard output");
    return lines.empty() ? kExitOk : kExitDifferent;
}

struct Command {
    const char* name;
    int (*run)(const std::vector<std::string>&);
    const char* help;
};

const Command kCommands[] = {
    {"create", Create, kCreateHelp}, {"dump", Dump, kDumpHelp}, {"diff", Diff, kDiffHelp}};

int Run(const std::vector<std::string>& args) {
    if (args.empty()) return Usage("a command is missing", kToolHelp);
    if (IsHelp(args[0]) && args.size() == 1) {
        std::cout << kToolHelp;
        return kExitOk;
    }
    // "nsfdb help COMMAND" is "nsfdb COMMAND --help".
    bool helpFirst = IsHelp(args[0]);
    const std::string& name = helpFirst ? args[1] : args[0];
    std::vector<std::string> rest(args.begin() + 1 + helpFirst, args.end());
    for (const Command& command : kCommands) {
        if (name != command.name) continue;
        if (helpFirst || WantsHelp(rest)) {
            std::cout << command.help;
            return kExitOk;
        }
        return command.run(rest);
    }
    return Usage("unknown command \"" + name + "\"", kToolHelp);
}

}  // namespace
}  // namespace nsfdb

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    try {
        return nsfdb::Run(args);
    } catch (const nsfdb::ToolError& error) {
        std::cerr << "nsfdb: " << error.what() << '\n';
    } catch (const std::exception& error) {
        std::cerr << "nsfdb: unexpected failure: " << error.what() << '\n';
    }
    return nsfdb::kExitError;
}
