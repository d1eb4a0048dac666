#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "NotesSession.h"
#include "RkIniReader.h"
#include "RkVersionPath.h"
#include "ServerFolder.h"
#include "ServerHost.h"

namespace rpxserver {
namespace {

using nsfdb::ToolError;

std::string Lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string Trimmed(const std::string& text) {
    size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return "";
    size_t last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// The first value of name (case-insensitive) among notes.ini's "Name=Value" lines.
std::string IniValue(const std::string& text, const std::string& name) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        size_t equals = line.find('=');
        if (equals == std::string::npos || line[0] == '[') continue;
        if (Lower(Trimmed(line.substr(0, equals))) == Lower(name)) return Trimmed(line.substr(equals + 1));
    }
    return "";
}

fs::path Normal(const fs::path& path) {
    fs::path normal = fs::path(nsfdb::AbsolutePath(path.string())).lexically_normal();
    if (!normal.has_filename() && normal.has_parent_path() && normal != normal.root_path())
        normal = normal.parent_path();
    return normal;
}

std::string IniText(const fs::path& file, const char* section, const char* key) {
    RkIniReader reader;
    if (reader.open(file.c_str()) != 0) return "";
    char value[IDD_VALUE_SIZE] = {};
    int length = sizeof value;
    if (reader.getValue(section, key, value, &length) != 0) return "";
    return std::string(value, static_cast<size_t>(std::max(0, std::min(length, IDD_VALUE_SIZE - 1))));
}

bool IsSkipped(const std::string& relative, const std::vector<std::string>& skip) {
    for (const std::string& folder : skip)
        if (relative == folder || relative.rfind(folder + "/", 0) == 0) return true;
    return false;
}

std::vector<std::string> FoldersBelow(const fs::path& folder, const std::vector<std::string>& skip) {
    std::vector<std::string> folders;
    std::error_code error;
    if (!fs::is_directory(folder, error)) return folders;
    fs::recursive_directory_iterator it(folder, error), end;
    for (; !error && it != end; it.increment(error)) {
        if (!it->is_directory(error)) continue;
        std::string relative = it->path().lexically_relative(folder).generic_string();
        if (IsSkipped(relative, skip))
            it.disable_recursion_pending();
        else
            folders.push_back(relative);
    }
    if (error) throw ToolError(folder.string() + ": cannot be listed: " + error.message());
    return folders;
}

}  // namespace

ServerPaths ReadServerPaths(const std::string& serverDir) {
    ServerPaths server;
    server.dir = Normal(serverDir);
    fs::path ini = server.dir / "notes.ini";
    std::ifstream in(ini, std::ios::binary);
    if (!in)
        throw HostError(kExitServerStart,
                        ini.string() + ": cannot read notes.ini (make a server folder with \"rpxserver init\")");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string data = IniValue(text, "Directory");
    if (data.empty()) throw HostError(kExitServerStart, ini.string() + ": no \"Directory\" setting");
    server.data = Normal(data);
    std::string install = IniValue(text, "VeltrixInstallPath");
    if (!install.empty()) server.install = Normal(install);
    server.serverName = IniValue(text, "ServerName");
    return server;
}

PatchPlan ReadPatchPlan(const ServerPaths& server) {
    PatchPlan plan;
    if (server.install.empty()) return plan;
    char folder[1024] = {};
    if (!GetLatestPathN(server.install.c_str(), "program", folder, sizeof folder)) return plan;
    fs::path file = fs::path(folder) / "rpxpatch.ini";
    std::error_code error;
    if (!fs::is_regular_file(file, error)) return plan;
    plan.settingsFile = file;
    plan.build = std::strtol(IniText(file, "Config", "BuildNumber").c_str(), nullptr, 10);
    std::string list = IniText(file, "Config", "Databases");
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');)
        if (!name.empty()) plan.databases.push_back(name);
    return plan;
}

TemporaryFolder::TemporaryFolder(const std::string& prefix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + "-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!::mkdtemp(name.data())) throw ToolError("cannot create a temporary folder " + pattern);
    path_ = name.data();
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> FilesBelow(const fs::path& folder, const std::vector<std::string>& skip) {
    std::vector<std::string> files;
    std::error_code error;
    if (!fs::is_directory(folder, error)) return files;
    fs::recursive_directory_iterator it(folder, error), end;
    for (; !error && it != end; it.increment(error)) {
        std::string relative = it->path().lexically_relative(folder).generic_string();
        if (IsSkipped(relative, skip)) {
            if (it->is_directory(error)) it.disable_recursion_pending();
            continue;
        }
        if (it->is_regular_file(error)) files.push_back(relative);
    }
    if (error) throw ToolError(folder.string() + ": cannot be listed: " + error.message());
    std::sort(files.begin(), files.end());
    return files;
}

void CopyFiles(const fs::path& from, const fs::path& to, const std::vector<std::string>& skip) {
    std::error_code error;
    fs::create_directories(to, error);
    // Empty folders count too: the task writes its debug log only into an existing rpxtemp/.
    for (const std::string& relative : FoldersBelow(from, skip))
        if (!error) fs::create_directories(to / relative, error);
    if (error) throw ToolError(to.string() + ": cannot create the folder: " + error.message());
    for (const std::string& relative : FilesBelow(from, skip)) {
        fs::path target = to / relative;
        fs::copy_file(from / relative, target, fs::copy_options::overwrite_existing, error);
        if (error) throw ToolError((from / relative).string() + ": cannot copy to " + target.string() + ": " +
                                   error.message());
    }
}

void ReplaceFile(const fs::path& source, const fs::path& target) {
    fs::path partial = target;
    partial += ".rpxserver-partial";
    std::error_code error;
    fs::create_directories(target.parent_path(), error);
    if (!error) fs::copy_file(source, partial, fs::copy_options::overwrite_existing, error);
    if (!error) fs::rename(partial, target, error);
    if (error) {
        std::error_code ignored;
        fs::remove(partial, ignored);
        throw ToolError(source.string() + ": cannot copy to " + target.string() + ": " + error.message());
    }
}

bool SameBytes(const fs::path& a, const fs::path& b) {
    std::error_code error;
    if (fs::file_size(a, error) != fs::file_size(b, error) || error) return false;
    return ReadFileText(a) == ReadFileText(b);
}

bool IsDatabaseFile(const fs::path& path) {
    std::string extension = Lower(path.extension().string());
    return extension == ".nsf" || extension == ".ntf";
}

std::string ReadFileText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

fs::path PathBelow(const fs::path& path, const fs::path& base) {
    fs::path relative = path.lexically_relative(base);
    if (relative.empty() || *relative.begin() == "..") return fs::path();
    return relative;
}

std::string UtcTimeText(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

}  // namespace rpxserver
