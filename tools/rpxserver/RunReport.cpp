#include <algorithm>
#include <fstream>
#include <iostream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <system_error>
#include <vector>

#include "DbAccess.h"
#include "DbDiff.h"
#include "NotesSession.h"
#include "RunReport.h"
#include "Values.h"

namespace rpxserver {
namespace {

using nsfdb::Json;
using nsfdb::ToolError;

const char* const kTempFolder = "rpxtemp";

std::string Lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

bool Has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

std::uintmax_t SizeOf(const fs::path& file) {
    std::error_code error;
    std::uintmax_t size = fs::file_size(file, error);
    return error ? 0 : size;
}

// The text a file gained past offset (all of it when it shrank: a new file under the old name).
std::string TextAfter(const fs::path& file, std::uintmax_t offset) {
    std::string text = ReadFileText(file);
    return offset <= text.size() ? text.substr(static_cast<size_t>(offset)) : text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

bool IsDebugLogName(const std::string& name) {
    return name.rfind("updrpx_", 0) == 0 && name.size() > 4 && name.compare(name.size() - 4, 4, ".dbg") == 0;
}

std::vector<std::string> DebugLogNames(const fs::path& tempFolder) {
    std::vector<std::string> names;
    for (const std::string& name : FilesBelow(tempFolder))
        if (IsDebugLogName(name)) names.push_back(name);
    return names;
}

// ---- The debug log --------------------------------------------------------------------------

// The messages of the debug log text: a line without the "[time][pid=..][tid=..][module=..]:"
// prefix continues the message before it.
std::vector<std::string> DebugMessages(const std::string& text) {
    static const std::regex prefix(R"(^\[[^\]]*\]\[pid=-?\d+\]\[tid=-?\d+\]\[module=[0-9a-f]+\]:)");
    std::vector<std::string> messages;
    for (const std::string& line : Lines(text)) {
        std::smatch match;
        if (std::regex_search(line, match, prefix))
            messages.push_back(match.suffix().str());
        else if (!messages.empty())
            messages.back() += line.empty() ? "" : "\n" + line;
        else
            messages.push_back(line);
    }
    return messages;
}

// "...(path):(13ea)": the task's form for a failed step with its status.
bool EndsWithFailedStatus(const std::string& text) {
    static const std::regex status(R"(\):\(([0-9a-fA-F]+)\)\s*$)");
    std::smatch match;
    return std::regex_search(text, match, status) && std::stoul(match[1].str(), nullptr, 16) != 0;
}

bool IsErrorLine(const std::string& message) {
    std::string text = Lower(message);
    return Has(text, "error") || Has(text, "fail") || Has(text, "cannot") || EndsWithFailedStatus(message);
}

// Waiting for a busy database and steps skipped on purpose. The level tells nothing here: the
// task writes ordinary progress lines at level 0 too.
bool IsWarningLine(const std::string& message) {
    std::string text = Lower(message);
    return Has(text, "in use") || Has(text, "waiting") || Has(text, "skip") || Has(text, "does not exist");
}

void AddDebugLog(const RunBaseline& baseline, Json& report) {
    Json errors = Json::array(), warnings = Json::array();
    fs::path tempFolder = baseline.server.data / kTempFolder;
    for (const std::string& name : DebugLogNames(tempFolder)) {
        auto before = baseline.debugLogSizes.find(name);
        std::uintmax_t offset = before == baseline.debugLogSizes.end() ? 0 : before->second;
        for (std::string& message : DebugMessages(TextAfter(tempFolder / name, offset))) {
            while (!message.empty() && message.back() == '\n') message.pop_back();
            if (IsErrorLine(message))
                errors.push_back(message);
            else if (IsWarningLine(message))
                warnings.push_back(message);
        }
    }
    report["errors"] = errors;
    report["warnings"] = warnings;
}

// ---- The console ----------------------------------------------------------------------------

std::string WithoutConsoleStamp(const std::string& line) {
    static const std::regex stamp(R"(^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d  )");
    std::smatch match;
    return std::regex_search(line, match, stamp) ? match.suffix().str() : line;
}

Json ConsoleCommands(const RunBaseline& baseline) {
    Json commands = Json::array();
    for (const std::string& line : Lines(TextAfter(baseline.server.dir / "console.log", baseline.consoleSize))) {
        std::string text = WithoutConsoleStamp(line);
        if (text.rfind("> ", 0) == 0) commands.push_back(text.substr(2));
    }
    return commands;
}

// ---- Databases and files --------------------------------------------------------------------

bool SameNote(const nsfdb::NoteData& a, const nsfdb::NoteData& b) {
    if (a.noteClass != b.noteClass || a.items.size() != b.items.size()) return false;
    for (size_t i = 0; i < a.items.size(); ++i) {
        const nsfdb::ItemData &x = a.items[i], &y = b.items[i];
        if (x.name != y.name || x.flags != y.flags || x.type != y.type || x.value != y.value) return false;
    }
    return true;
}

std::map<std::string, const nsfdb::NoteData*> NotesByUnid(const nsfdb::DatabaseData& db) {
    std::map<std::string, const nsfdb::NoteData*> notes;
    for (const nsfdb::NoteData& note : db.notes)
        if (note.unid) notes.emplace(nsfdb::UnidText(*note.unid), &note);
    return notes;
}

bool IsNoteLine(const std::string& line) {
    return line.empty() || line[0] == ' ' || line.rfind("+ note", 0) == 0 || line.rfind("- note", 0) == 0 ||
           line.rfind("~ note", 0) == 0;
}

// Note counts and, for a database in both states, what changed besides its notes (title, ACL,
// replica information). Null when the two are equal.
Json CompareDatabases(const nsfdb::DatabaseData* before, const nsfdb::DatabaseData* after, bool details) {
    static const nsfdb::DatabaseData none;
    const nsfdb::DatabaseData& a = before ? *before : none;
    const nsfdb::DatabaseData& b = after ? *after : none;
    auto notesA = NotesByUnid(a), notesB = NotesByUnid(b);
    size_t added = 0, removed = 0, changed = 0;
    for (const auto& note : notesB)
        if (!notesA.count(note.first)) ++added;
    for (const auto& note : notesA) {
        auto now = notesB.find(note.first);
        if (now == notesB.end())
            ++removed;
        else if (!SameNote(*note.second, *now->second))
            ++changed;
    }
    Json notes{{"before", a.notes.size()}, {"after", b.notes.size()},
               {"added", added}, {"removed", removed}, {"changed", changed}};
    Json result{{"notes", notes}};
    if (!before || !after) return result;
    std::vector<std::string> diff = nsfdb::DiffDatabases(a, b);
    if (diff.empty()) return Json();
    Json settings = Json::array();
    for (const std::string& line : diff)
        if (!IsNoteLine(line)) settings.push_back(line);
    result["settings"] = settings;
    if (details) result["details"] = diff;
    return result;
}

std::optional<nsfdb::DatabaseData> ReadOrNote(const fs::path& file, Json& entry) {
    try {
        return nsfdb::ReadDatabase(file.string());
    } catch (const ToolError& error) {
        entry["problem"] = error.what();
        return std::nullopt;
    }
}

std::string ChangeKind(bool before, bool after, bool named) {
    if (!before) return "created";
    if (!after) return "deleted";
    return named ? "replaced" : "changed";
}

// One entry for a file the run created, deleted or changed; null when it stayed the same.
Json CompareFile(const std::string& relative, const fs::path& beforeRoot, const fs::path& afterRoot,
                 const std::set<std::string>& named, bool details) {
    std::error_code error;
    bool before = fs::exists(beforeRoot / relative, error), after = fs::exists(afterRoot / relative, error);
    if (before && after && SameBytes(beforeRoot / relative, afterRoot / relative)) return Json();
    Json entry{{"path", relative}, {"change", ChangeKind(before, after, named.count(relative) != 0)}};
    if (!IsDatabaseFile(relative)) return entry;
    std::optional<nsfdb::DatabaseData> a, b;
    if (before) a = ReadOrNote(beforeRoot / relative, entry);
    if (after) b = ReadOrNote(afterRoot / relative, entry);
    if (entry.contains("problem") || !(a || b)) return entry;
    Json comparison = CompareDatabases(a ? &*a : nullptr, b ? &*b : nullptr, details);
    if (comparison.is_null()) return Json();  // the file differs, the database does not
    entry.update(comparison);
    return entry;
}

void AddChanges(const RunBaseline& baseline, bool details, Json& report) {
    const fs::path& beforeRoot = baseline.copy->path();
    const fs::path& afterRoot = baseline.server.data;
    std::set<std::string> paths;
    for (const std::string& file : FilesBelow(beforeRoot)) paths.insert(file);
    for (const std::string& file : FilesBelow(afterRoot, {kTempFolder})) paths.insert(file);
    std::set<std::string> named;
    for (const std::string& name : ReadPatchPlan(baseline.server).databases) named.insert("rpx/" + name);

    Json databases = Json::array(), files = Json::array();
    // The databases are read through a platform of their own: the server's injected faults
    // must not change what the report shows.
    nsfdb::StartPlatform(afterRoot.string());
    struct StopAtExit {
        ~StopAtExit() { nsfdb::StopPlatform(); }
    } stop;
    for (const std::string& path : paths) {
        Json entry = CompareFile(path, beforeRoot, afterRoot, named, details);
        if (entry.is_null()) continue;
        (IsDatabaseFile(path) ? databases : files).push_back(entry);
    }
    report["databases"] = databases;
    report["files"] = files;
}

std::string Plural(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string NotesLine(const Json& notes) {
    return "notes " + std::to_string(notes.value("before", 0)) + " -> " + std::to_string(notes.value("after", 0)) +
           " (" + std::to_string(notes.value("added", 0)) + " added, " +
           std::to_string(notes.value("removed", 0)) + " removed, " + std::to_string(notes.value("changed", 0)) +
           " changed)";
}

void PrintList(const Json& list, const char* title, std::ostream& out) {
    if (!list.is_array() || list.empty()) return;
    out << "  " << title << ":\n";
    for (const Json& line : list) out << "    " << line.get<std::string>() << "\n";
}

}  // namespace

std::string ReportText(const Json& report) {
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

RunBaseline TakeBaseline(const ServerPaths& server) {
    RunBaseline baseline;
    baseline.server = server;
    baseline.started = std::time(nullptr);
    baseline.copy = std::make_unique<TemporaryFolder>("rpxserver-before");
    CopyFiles(server.data, baseline.copy->path(), {kTempFolder});
    baseline.consoleSize = SizeOf(server.dir / "console.log");
    fs::path tempFolder = server.data / kTempFolder;
    for (const std::string& name : DebugLogNames(tempFolder))
        baseline.debugLogSizes[name] = SizeOf(tempFolder / name);
    return baseline;
}

Json MakeRunReport(const RunBaseline& baseline, const TaskOutcome& outcome, const std::string& modulePath,
                   bool details) {
    Json report;
    report["serverFolder"] = baseline.server.dir.string();
    report["serverName"] = baseline.server.serverName;
    report["dataFolder"] = baseline.server.data.string();
    report["module"] = nsfdb::AbsolutePath(modulePath);
    report["started"] = UtcTimeText(baseline.started);
    report["ended"] = UtcTimeText(std::time(nullptr));
    PatchPlan plan = ReadPatchPlan(baseline.server);
    report["patchBuild"] = plan.settingsFile.empty() ? Json() : Json(plan.build);
    report["status"] = outcome.status;
    report["statusText"] = outcome.statusText;
    AddDebugLog(baseline, report);
    report["consoleCommands"] = ConsoleCommands(baseline);
    AddChanges(baseline, details, report);
    report["handlesLeftOpen"] = outcome.openHandles;
    return report;
}

void PrintReportSummary(const Json& report, std::ostream& out) {
    Json build = report.value("patchBuild", Json());
    out << "Patch build " << (build.is_number() ? std::to_string(build.get<long>()) : "unknown")
        << ", task status " << report.value("status", 0u);
    std::string statusText = report.value("statusText", "");
    out << (statusText.empty() ? "" : " (" + statusText + ")") << "\n";
    out << "  debug log: " << Plural(report["errors"].size(), "error", "errors") << ", "
        << Plural(report["warnings"].size(), "warning", "warnings") << "\n";
    PrintList(report["errors"], "errors", out);
    PrintList(report["warnings"], "warnings", out);
    out << "  console commands: " << report["consoleCommands"].size() << "\n";
    for (const Json& command : report["consoleCommands"]) out << "    > " << command.get<std::string>() << "\n";
    out << "  databases changed: " << report["databases"].size() << "\n";
    for (const Json& db : report["databases"]) {
        out << "    " << db["path"].get<std::string>() << ": " << db["change"].get<std::string>();
        if (db.contains("notes")) out << ", " << NotesLine(db["notes"]);
        if (db.contains("problem")) out << " (" << db["problem"].get<std::string>() << ")";
        out << "\n";
        // The details repeat the settings lines among the note lines.
        const char* lines = db.contains("details") ? "details" : "settings";
        for (const Json& line : db.value(lines, Json::array())) out << "      " << line.get<std::string>() << "\n";
    }
    out << "  other files changed: " << report["files"].size() << "\n";
    for (const Json& file : report["files"])
        out << "    " << file["path"].get<std::string>() << ": " << file["change"].get<std::string>() << "\n";
    out << "  handles left open: " << report["handlesLeftOpen"].size() << "\n";
    for (const Json& line : report["handlesLeftOpen"]) out << "    " << line.get<std::string>() << "\n";
}

int RunWithReport(const ServerPaths& server, const std::string& modulePath, const std::string& reportFile,
                  bool details) {
    std::string reportPath = nsfdb::AbsolutePath(reportFile);
    RunBaseline baseline = TakeBaseline(server);
    TaskOutcome outcome;
    int exitCode = RunTask(server.dir.string(), modulePath, &outcome);
    Json report = MakeRunReport(baseline, outcome, modulePath, details);
    WriteReportFile(report, reportPath);
    std::cout.flush();
    std::cout << "\nReport of the run (written to " << reportPath << "):\n";
    PrintReportSummary(report, std::cout);
    return exitCode;
}

void WriteReportFile(const Json& report, const std::string& file) {
    fs::path target = nsfdb::AbsolutePath(file);
    fs::path partial = target;
    partial += ".partial";
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out << ReportText(report);
        if (!out.flush()) throw ToolError(partial.string() + ": cannot write the report");
    }
    std::error_code error;
    fs::rename(partial, target, error);
    if (error) {
        fs::remove(partial, error);
        throw ToolError(target.string() + ": cannot write the report");
    }
}

}  // namespace rpxserver
