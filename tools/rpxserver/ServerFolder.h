// What the administration commands (preview, report, backup, restore) read of a server folder:
// its notes.ini settings, the patch settings the task will read, and whole-folder copies.
#ifndef RPXSERVER_SERVERFOLDER_H
#define RPXSERVER_SERVERFOLDER_H

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace rpxserver {

namespace fs = std::filesystem;

// The places a server folder's notes.ini names, as absolute, normal paths.
struct ServerPaths {
    fs::path dir;      // the server folder (notes.ini, server.json, console.log)
    fs::path data;     // "Directory"
    fs::path install;  // "VeltrixInstallPath" (empty when unset)
    std::string serverName;  // "ServerName" as written
};

// Reads DIR/notes.ini. Throws HostError(kExitServerStart) when it is missing or names no
// data directory.
ServerPaths ReadServerPaths(const std::string& serverDir);

// The patch settings file of the newest program folder, as far as the host needs it.
struct PatchPlan {
    fs::path settingsFile;               // empty when no program folder or no rpxpatch.ini
    long build = 0;                      // "BuildNumber"; 0 when missing
    std::vector<std::string> databases;  // "Databases", in file order
};

PatchPlan ReadPatchPlan(const ServerPaths& server);

// A folder made under the temporary folder and removed, with its content, at scope exit.
class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::string& prefix);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// The regular files below folder, as sorted paths relative to it; sub-folders named in skip
// (relative to folder) are left out.
std::vector<std::string> FilesBelow(const fs::path& folder, const std::vector<std::string>& skip = {});

// Copies the files and folders below from into to (made as needed), keeping relative paths, leaving out
// the sub-folders named in skip. Throws nsfdb::ToolError naming the file that failed.
void CopyFiles(const fs::path& from, const fs::path& to, const std::vector<std::string>& skip = {});

// Copies one file, through a temporary name beside target, so that target is either the old
// file or the whole new one. Throws nsfdb::ToolError.
void ReplaceFile(const fs::path& source, const fs::path& target);

bool SameBytes(const fs::path& a, const fs::path& b);
bool IsDatabaseFile(const fs::path& path);
std::string ReadFileText(const fs::path& path);

// path relative to base when it lies below base (or is base); nullopt-like empty path otherwise.
fs::path PathBelow(const fs::path& path, const fs::path& base);

// The time as ISO 8601 UTC ("2026-11-24T02:30:00Z").
std::string UtcTimeText(std::time_t time);

}  // namespace rpxserver

#endif
