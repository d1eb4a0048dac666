#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "DbAccess.h"
#include "JsonFormat.h"
#include "NotesSession.h"
#include "ServerDump.h"

namespace rpxserver {
namespace {

namespace fs = std::filesystem;
using nsfdb::ToolError;

std::string ReadText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

size_t LineCount(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

bool IsDatabaseName(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(), ::tolower);
    return extension == ".nsf" || extension == ".ntf";
}

std::string Plural(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string DatabaseSummary(const fs::path& path) {
    try {
        nsfdb::DatabaseData db = nsfdb::ReadDatabase(path.string());
        return "database \"" + nsfdb::LmbcsToUtf8Lossy(db.title) + "\", " + Plural(db.notes.size(), "note", "notes");
    } catch (const ToolError& error) {
        return std::string("database that cannot be read: ") + error.what();
    }
}

void DumpFolder(const fs::path& folder, const std::string& name, std::ostream& out) {
    out << name << "/:\n";
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        entries.push_back(it->path());
    if (error) out << "  (cannot be listed: " << error.message() << ")\n";
    std::sort(entries.begin(), entries.end());
    for (const fs::path& entry : entries) {
        std::string relative = entry.lexically_relative(folder).string();
        if (fs::is_directory(entry, error))
            out << "  " << relative << "/\n";
        else if (IsDatabaseName(entry))
            out << "  " << relative << "  " << DatabaseSummary(entry) << "\n";
        else
            out << "  " << relative << "  file, " << Plural(fs::file_size(entry, error), "byte", "bytes") << "\n";
    }
}

std::string ServerSettingsText(const fs::path& path) {
    std::error_code error;
    if (!fs::exists(path, error)) return "none";
    try {
        return nsfdb::OneLine(nsfdb::ParseJsonText(ReadText(path)));
    } catch (const ToolError& problem) {
        return std::string("not valid JSON: ") + problem.what();
    }
}

}  // namespace

void DumpServer(const std::string& serverDir, std::ostream& out) {
    fs::path dir = fs::path(nsfdb::AbsolutePath(serverDir)).lexically_normal();
    if (!dir.has_filename()) dir = dir.parent_path();
    std::ifstream ini(dir / "notes.ini");
    if (!ini) throw ToolError((dir / "notes.ini").string() + ": cannot read notes.ini");
    out << "server: " << dir.string() << "\nnotes.ini:\n";
    for (std::string line; std::getline(ini, line);) out << "  " << line << "\n";
    std::error_code error;
    out << "server.json: " << ServerSettingsText(dir / "server.json") << "\n";
    // The databases are read through a platform of their own: the server's settings (its
    // injected faults, its busy databases) must not change what the dump shows.
    nsfdb::StartPlatform((dir / "data").string());
    struct StopAtExit {
        ~StopAtExit() { nsfdb::StopPlatform(); }
    } stop;
    DumpFolder(dir / "data", "data", out);
    DumpFolder(dir / "install", "install", out);
    if (fs::exists(dir / "console.log", error))
        out << "console.log: " << Plural(LineCount(ReadText(dir / "console.log")), "line", "lines") << "\n";
    else
        out << "console.log: none\n";
}

}  // namespace rpxserver
