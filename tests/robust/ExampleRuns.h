// Runs of the example server (examples/server/scenario.json) with server.json faults, side by
// side, and what a run leaves in the data folder in a form two runs can be compared in.
#ifndef TESTS_ROBUST_EXAMPLERUNS_H
#define TESTS_ROBUST_EXAMPLERUNS_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "E2eHarness.h"

namespace robust {

using e2e::CommandResult;
using e2e::E2eServer;
using e2e::Json;
namespace fs = std::filesystem;

inline Json ExampleScenario() {
    return Json::parse(e2e::ReadWholeFile(EXAMPLE_SCENARIO_PATH));
}

// The example with the given server.json faults.
inline Json ExampleWithFaults(const Json& faults) {
    Json scenario = ExampleScenario();
    scenario["server"]["faults"] = faults;
    return scenario;
}

// Replaces the faults of a created server's server.json (an empty array: none).
inline void SetFaults(const E2eServer& server, const Json& faults) {
    fs::path file = server.Dir() / "server.json";
    Json settings = Json::parse(e2e::ReadWholeFile(file));
    settings["faults"] = faults;
    e2e::WriteWholeFile(file, settings.dump(2));
}

// Environment of the runs: the task's pauses skipped when the wait shim is built.
inline std::string PauseSkipping() {
#ifdef PAUSE_SKIP_SHIM
    return "LD_PRELOAD=" + e2e::ShellQuoted(PAUSE_SKIP_SHIM) + " RPX_SLEEP_METER_SKIP=1 ";
#else
    return "";
#endif
}

// "rpxserver run" under a time limit: a run that hangs ends with exit status 124.
inline CommandResult RunWithTimeLimit(const E2eServer& server, int seconds) {
    return e2e::RunCommand(PauseSkipping() + "timeout -s KILL " + std::to_string(seconds) + " " +
                               std::string(RPXSERVER_PATH) + " run " + e2e::ShellQuoted(server.Dir().string()) +
                               " --module " + e2e::ShellQuoted(UPDRPX_MODULE_PATH),
                           server.Dir().parent_path());
}

// The number in "rpxserver: N handles left open at task exit", 0 without that line.
inline int HandlesLeftOpen(const CommandResult& run) {
    static const std::regex line(R"(rpxserver: (\d+) handles? left open at task exit)");
    std::smatch match;
    return std::regex_search(run.err, match, line) || std::regex_search(run.out, match, line)
               ? std::stoi(match[1].str())
               : 0;
}

inline bool WasKilled(const CommandResult& run) {
    return run.err.find("libnotes: killed at ") != std::string::npos;
}

// One file of the data folder as a run left it: a database as its dump without the note IDs
// and UNIDs the platform hands out (its notes sorted), any other file as its bytes. A database
// that cannot be dumped is "unreadable: <error>".
struct DataFile {
    std::string content;
    bool readable = true;
};

inline std::string ComparableDump(const std::string& dumpText) {
    Json db = Json::parse(dumpText, nullptr, false);
    if (db.is_discarded()) return dumpText;
    std::vector<std::string> notes;
    for (Json note : db.value("notes", Json::array())) {
        note.erase("unid");
        note.erase("noteId");
        notes.push_back(note.dump());
    }
    std::sort(notes.begin(), notes.end());
    db.erase("notes");
    std::string text = db.dump(1);
    for (const std::string& note : notes) text += "\n" + note;
    return text;
}

inline bool IsDatabaseFile(const fs::path& path) {
    return path.extension() == ".nsf" || path.extension() == ".ntf";
}

// Every file under data/rpx, and the kept copies of data/rpxtemp.
inline std::map<std::string, DataFile> DataFiles(const E2eServer& server) {
    std::map<std::string, DataFile> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(server.DataPath("rpx"), error)) {
        std::string name = "rpx/" + entry.path().filename().string();
        DataFile file;
        if (IsDatabaseFile(entry.path())) {
            CommandResult dump = e2e::RunCommand(std::string(NSFDB_PATH) + " dump " +
                                                     e2e::ShellQuoted(entry.path().string()),
                                                 server.Dir().parent_path());
            file.readable = dump.exitCode == 0;
            file.content = file.readable ? ComparableDump(dump.out) : "unreadable: " + dump.err;
        } else {
            file.content = e2e::ReadWholeFile(entry.path());
        }
        files[name] = file;
    }
    for (const auto& entry : fs::directory_iterator(server.DataPath("rpxtemp"), error)) {
        if (entry.path().extension() == ".keep") files["rpxtemp/" + entry.path().filename().string()] = {"kept", true};
    }
    return files;
}

// The names whose content differs between two data folders (present in one only included).
inline std::vector<std::string> DifferentFiles(const std::map<std::string, DataFile>& a,
                                               const std::map<std::string, DataFile>& b) {
    std::vector<std::string> names;
    for (const auto& entry : a) {
        auto other = b.find(entry.first);
        if (other == b.end() || other->second.content != entry.second.content) names.push_back(entry.first);
    }
    for (const auto& entry : b) {
        if (a.find(entry.first) == a.end()) names.push_back(entry.first);
    }
    return names;
}

// Runs jobs(0) .. jobs(count - 1) on a few threads: the runs mostly wait (the task's pauses
// after each conversion command are real), so they overlap well.
inline void RunSideBySide(size_t count, const std::function<void(size_t)>& job, unsigned threads = 6) {
    std::atomic<size_t> next{0};
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < threads; ++i) {
        workers.emplace_back([&] {
            for (size_t index = next++; index < count; index = next++) job(index);
        });
    }
    for (std::thread& worker : workers) worker.join();
}

}  // namespace robust

#endif
