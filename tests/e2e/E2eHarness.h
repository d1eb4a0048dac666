// End-to-end harness: a stand-in server created by "rpxserver init" from a scenario in a fresh
// temporary folder, the patch task run on it by "rpxserver run", and what the run left behind:
// the console, the patch debug log and the databases (through "nsfdb dump").
//
// Paths of the tools come from the build: RPXSERVER_PATH, NSFDB_PATH and UPDRPX_MODULE_PATH.
#ifndef TESTS_E2E_E2EHARNESS_H
#define TESTS_E2E_E2EHARNESS_H

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace e2e {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

// What a command left: its exit status (-1 when it did not exit normally) and its output.
struct CommandResult {
    int exitCode = -1;
    std::string out;
    std::string err;
    double seconds = 0;
};

// One line of the patch debug log: the level (the "module" field of the prefix) and the message.
// A message that ended in its own newline(s) keeps them in text.
struct LogLine {
    int level = -1;
    std::string text;
};

inline std::string ReadWholeFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void WriteWholeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << text;
}

inline std::string ShellQuoted(const std::string& arg) {
    std::string quoted = "'";
    for (char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

inline std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Runs a shell command line with its output captured in files of folder.
inline CommandResult RunCommand(const std::string& commandLine, const fs::path& folder) {
    fs::path out = folder / "command.out";
    fs::path err = folder / "command.err";
    auto start = std::chrono::steady_clock::now();
    int status = std::system((commandLine + " >" + ShellQuoted(out.string()) + " 2>" +
                              ShellQuoted(err.string()) + " </dev/null")
                                 .c_str());
    CommandResult result;
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.exitCode = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = ReadWholeFile(out);
    result.err = ReadWholeFile(err);
    fs::remove(out);
    fs::remove(err);
    return result;
}

// "MM/DD/YYYY HH:MM:SS" and two blanks, the stamp of every console line.
inline std::string WithoutConsoleStamp(const std::string& line) {
    static const std::regex stamp(R"(^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d  )");
    std::smatch match;
    if (std::regex_search(line, match, stamp)) return match.suffix().str();
    return line;
}

// Splits a debug log into its lines. A line without the "[time][pid=..][tid=..][module=..]:"
// prefix continues the message before it (the message held a newline).
inline std::vector<LogLine> ParseDebugLog(const std::string& text) {
    static const std::regex prefix(R"(^\[[^\]]*\]\[pid=-?\d+\]\[tid=-?\d+\]\[module=([0-9a-f]+)\]:)");
    std::vector<LogLine> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_search(line, match, prefix)) {
            lines.push_back({static_cast<int>(std::stol(match[1].str(), nullptr, 16)), match.suffix().str()});
        } else if (!lines.empty()) {
            lines.back().text += "\n" + line;
        } else {
            lines.push_back({-1, line});  // no prefix at all: kept visible, never dropped
        }
    }
    return lines;
}

// ---- Databases as JSON (the nsfdb format) ---------------------------------------------------

inline bool SameItemName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

// The value of a note's item (null when absent): a plain JSON value, or the "value" of an
// explicitly typed item. Items are an object or, when names repeat, a list of [name, value].
inline Json ItemValue(const Json& note, const std::string& name) {
    const Json& items = note.contains("items") ? note["items"] : Json();
    auto unwrap = [](const Json& value) {
        return value.is_object() && value.contains("value") ? value["value"] : value;
    };
    if (items.is_object()) {
        for (auto it = items.begin(); it != items.end(); ++it) {
            if (SameItemName(it.key(), name)) return unwrap(it.value());
        }
    } else if (items.is_array()) {
        for (const Json& pair : items) {
            if (pair.is_array() && pair.size() == 2 && SameItemName(pair[0].get<std::string>(), name)) {
                return unwrap(pair[1]);
            }
        }
    }
    return Json();
}

inline std::string ItemText(const Json& note, const std::string& name) {
    Json value = ItemValue(note, name);
    return value.is_string() ? value.get<std::string>() : std::string();
}

// The notes of a class, by its name in the JSON format ("help", "document", "replformula", ...).
inline std::vector<Json> NotesOfClass(const Json& db, const std::string& className) {
    std::vector<Json> notes;
    if (!db.contains("notes")) return notes;
    for (const Json& note : db["notes"]) {
        if (note.value("class", Json()) == Json(className)) notes.push_back(note);
    }
    return notes;
}

// "BuildNumber" of the database's first help note; "" when it has none.
inline std::string HelpBuildNumber(const Json& db) {
    for (const Json& note : NotesOfClass(db, "help")) {
        Json value = ItemValue(note, "BuildNumber");
        if (!value.is_null()) return value.is_string() ? value.get<std::string>() : value.dump();
    }
    return "";
}

// The ACL as name → level.
inline std::vector<std::pair<std::string, std::string>> AclLevels(const Json& db) {
    std::vector<std::pair<std::string, std::string>> entries;
    if (!db.contains("acl")) return entries;
    for (const Json& entry : db["acl"]) {
        entries.emplace_back(entry.value("name", ""), entry.value("level", ""));
    }
    return entries;
}

// ---- The server -----------------------------------------------------------------------------

// A stand-in server in its own temporary folder, removed with the object.
class E2eServer {
public:
    // folderName: the server folder's name inside the temporary folder.
    explicit E2eServer(std::string folderName = "server") : folderName_(std::move(folderName)) {}
    E2eServer(const E2eServer&) = delete;
    E2eServer& operator=(const E2eServer&) = delete;
    ~E2eServer() {
        std::error_code ignored;
        if (!root_.empty()) fs::remove_all(root_, ignored);
    }

    // Creates the server from scenario with "rpxserver init". False (with a test failure that
    // shows the tool's output) when that fails.
    bool Create(const Json& scenario) {
        char pattern[] = "/tmp/rpx_e2e_XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            ADD_FAILURE() << "cannot create a temporary folder";
            return false;
        }
        root_ = pattern;
        WriteWholeFile(root_ / "scenario.json", scenario.dump(2));
        CommandResult init = RunCommand(std::string(RPXSERVER_PATH) + " init " +
                                            ShellQuoted((root_ / "scenario.json").string()) + " " +
                                            ShellQuoted(Dir().string()),
                                        root_);
        if (init.exitCode != 0) {
            ADD_FAILURE() << "rpxserver init failed (" << init.exitCode << "):\n" << init.out << init.err;
            return false;
        }
        return true;
    }

    // Runs the patch task on the server; also kept as LastRun().
    const CommandResult& Run() {
        last_ = RunCommand(std::string(RPXSERVER_PATH) + " run " + ShellQuoted(Dir().string()) +
                               " --module " + ShellQuoted(UPDRPX_MODULE_PATH),
                           root_);
        return last_;
    }
    const CommandResult& LastRun() const { return last_; }

    // One console command against the server.
    CommandResult Console(const std::string& command) const {
        return RunCommand(std::string(RPXSERVER_PATH) + " console " + ShellQuoted(Dir().string()) + " " +
                              ShellQuoted(command),
                          root_);
    }

    fs::path Dir() const { return root_ / folderName_; }
    fs::path DataPath(const std::string& relative) const { return Dir() / "data" / relative; }
    fs::path InstallPath(const std::string& relative) const { return Dir() / "install" / relative; }

    // console.log, one entry a line, without the time stamps.
    std::vector<std::string> ConsoleLines() const {
        std::vector<std::string> lines;
        for (const std::string& line : SplitLines(ReadWholeFile(Dir() / "console.log"))) {
            lines.push_back(WithoutConsoleStamp(line));
        }
        return lines;
    }

    // The console commands received, without their "> ".
    std::vector<std::string> ConsoleCommands() const {
        std::vector<std::string> commands;
        for (const std::string& line : ConsoleLines()) {
            if (line.rfind("> ", 0) == 0) commands.push_back(line.substr(2));
        }
        return commands;
    }

    // The paths of the patch debug log files (updrpx_YYYYMMDD.dbg), oldest day first.
    std::vector<fs::path> DebugLogFiles() const {
        std::vector<fs::path> files;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(Dir() / "data" / "rpxtemp", error)) {
            std::string name = entry.path().filename().string();
            if (name.rfind("updrpx_", 0) == 0 && entry.path().extension() == ".dbg") files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    std::vector<LogLine> DebugLog() const {
        std::string text;
        for (const fs::path& file : DebugLogFiles()) text += ReadWholeFile(file);
        return ParseDebugLog(text);
    }

    // The debug log's messages only, whatever their level.
    std::vector<std::string> DebugMessages() const {
        std::vector<std::string> messages;
        for (const LogLine& line : DebugLog()) messages.push_back(line.text);
        return messages;
    }

    bool Logged(const std::string& message) const {
        auto messages = DebugMessages();
        return std::find(messages.begin(), messages.end(), message) != messages.end();
    }

    // "nsfdb dump" of a database given relative to the data folder; null (and a test failure)
    // when the dump fails.
    Json Dump(const std::string& dataRelative) const { return DumpFile(DataPath(dataRelative)); }

    Json DumpFile(const fs::path& file) const {
        CommandResult dump = RunCommand(std::string(NSFDB_PATH) + " dump " + ShellQuoted(file.string()), root_);
        if (dump.exitCode != 0) {
            ADD_FAILURE() << "nsfdb dump " << file << " failed:\n" << dump.err;
            return Json();
        }
        return Json::parse(dump.out, nullptr, false);
    }

private:
    std::string folderName_;
    fs::path root_;
    CommandResult last_;
};

}  // namespace e2e

#endif
