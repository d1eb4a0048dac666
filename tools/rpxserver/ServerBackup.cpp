#include <algorithm>
#include <cctype>
#include <ctime>
#include <fstream>
#include <system_error>
#include <vector>

#include "JsonFormat.h"
#include "NotesSession.h"
#include "ServerBackup.h"
#include "ServerHost.h"

#include "global.h"
#include "nsfdb.h"
#include "addin.h"

namespace rpxserver {
namespace {

using nsfdb::Json;
using nsfdb::ToolError;

const char* const kProductFolder = "rpx";
const char* const kManifest = "backup.json";
const char* const kFilesFolder = "data";

// The task's own rules for taking a database offline.
constexpr DWORD kOfflineWaitMs = 10000;
constexpr int kMaxInUseAttempts = 60;
constexpr DWORD kInUseDelayMs = 1000;
constexpr STATUS kDatabaseInUse = 5098;

fs::path BackupRoot(const ServerPaths& server) {
    return server.dir / "backup";
}

std::string TimestampNow() {
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    return text;
}

// A timestamp no other backup of the server has (a second backup in the same second gets "-2").
std::string FreeTimestamp(const ServerPaths& server) {
    std::string base = TimestampNow(), name = base;
    std::error_code error;
    for (int n = 2; fs::exists(BackupRoot(server) / name, error); ++n) name = base + "-" + std::to_string(n);
    return name;
}

Json ManifestOf(const ServerPaths& server, const std::vector<std::string>& files,
                const std::vector<std::string>& absent) {
    PatchPlan plan = ReadPatchPlan(server);
    return Json{{"serverName", server.serverName},
                {"dataFolder", server.data.string()},
                {"created", UtcTimeText(std::time(nullptr))},
                {"patchBuild", plan.settingsFile.empty() ? Json() : Json(plan.build)},
                {"files", files},
                {"absent", absent}};
}

// The patch's databases that are not there yet: a run would create them.
std::vector<std::string> NamedButAbsent(const ServerPaths& server) {
    std::vector<std::string> absent;
    std::error_code error;
    for (const std::string& name : ReadPatchPlan(server).databases) {
        std::string relative = std::string(kProductFolder) + "/" + name;
        if (name.find('/') == std::string::npos && !fs::exists(server.data / relative, error))
            absent.push_back(relative);
    }
    return absent;
}

void WriteManifest(const fs::path& file, const Json& manifest) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << manifest.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
    if (!out.flush()) throw ToolError(file.string() + ": cannot write the backup's list of files");
}

// ---- Restore ------------------------------------------------------------------------------

std::vector<std::string> BackupNames(const ServerPaths& server) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(BackupRoot(server), error))
        if (entry.is_directory(error) && fs::exists(entry.path() / kManifest, error))
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "none" : text;
}

bool IsPlainRelativePath(const std::string& path) {
    fs::path relative(path);
    if (path.empty() || relative.is_absolute()) return false;
    for (const fs::path& part : relative)
        if (part == ".." || part == ".") return false;
    return true;
}

std::vector<std::string> TextList(const Json& manifest, const char* key) {
    std::vector<std::string> list;
    const Json& value = manifest.contains(key) ? manifest[key] : Json();
    if (!value.is_array()) throw ToolError(std::string("the backup's list of files has no \"") + key + "\" list");
    for (const Json& entry : value) {
        if (!entry.is_string()) throw ToolError(std::string("the backup's \"") + key + "\" list holds a non-text");
        std::string path = entry.get<std::string>();
        if (!IsPlainRelativePath(path))
            throw ToolError("the backup names a file outside the data folder: " + path);
        list.push_back(path);
    }
    return list;
}

Json ReadManifest(const ServerPaths& server, const std::string& timestamp) {
    fs::path folder = BackupRoot(server) / timestamp;
    std::error_code error;
    if (timestamp.empty() || timestamp.find('/') != std::string::npos || timestamp == "." || timestamp == ".." ||
        !fs::exists(folder / kManifest, error))
        throw ToolError("no backup \"" + timestamp + "\" in " + BackupRoot(server).string() +
                        " (backups there: " + Joined(BackupNames(server)) + ")");
    try {
        return nsfdb::ParseJsonText(ReadFileText(folder / kManifest));
    } catch (const ToolError& problem) {
        throw ToolError((folder / kManifest).string() + ": " + problem.what());
    }
}

bool SameServerName(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

void RequireSameServer(const Json& manifest, const ServerPaths& server, const std::string& timestamp) {
    std::string name = manifest.value("serverName", ""), data = manifest.value("dataFolder", "");
    if (SameServerName(name, server.serverName) && fs::path(data) == server.data) return;
    throw ToolError("backup \"" + timestamp + "\" was made on the server \"" + name + "\" with the data folder " +
                    data + ", not on this server \"" + server.serverName + "\" with the data folder " +
                    server.data.string() + ": nothing was restored");
}

std::string NotesPath(const std::string& relative) {
    std::string lmbcs;
    if (!nsfdb::Utf8ToLmbcs(relative, lmbcs)) throw ToolError(relative + ": the name cannot be given to Notes");
    return lmbcs;
}

STATUS TakeOffline(const std::string& notesPath) {
    STATUS status = NSFTakeDatabaseOffline(notesPath.c_str(), kOfflineWaitMs, OFFLINE_NODELETE);
    for (int attempt = 1; ERR(status) == kDatabaseInUse && attempt < kMaxInUseAttempts; ++attempt) {
        AddInIdleDelay(kInUseDelayMs);
        status = NSFTakeDatabaseOffline(notesPath.c_str(), kOfflineWaitMs, OFFLINE_NODELETE);
    }
    return status;
}

// Puts one file back (or removes it when the patch created it). False with a reason on err.
bool RestoreOne(const ServerPaths& server, const fs::path& backupFiles, const std::string& relative, bool absent,
                std::ostream& out, std::ostream& err) {
    fs::path target = server.data / relative;
    std::error_code error;
    bool database = IsDatabaseFile(relative);
    bool present = fs::exists(target, error);
    if (absent && !present) return true;
    std::string notesPath = NotesPath(relative);
    if (database && present) {
        STATUS status = TakeOffline(notesPath);
        if (status != NOERROR) {
            err << "rpxserver: " << relative << ": not restored, it cannot be taken offline: "
                << nsfdb::StatusText(status) << "\n";
            return false;
        }
    }
    bool done = true;
    try {
        if (absent) {
            if (!fs::remove(target, error) || error) throw ToolError(target.string() + ": cannot remove the file");
            out << "removed  " << relative << " (the patch created it)\n";
        } else {
            ReplaceFile(backupFiles / relative, target);
            out << "restored " << relative << "\n";
        }
    } catch (const ToolError& problem) {
        err << "rpxserver: " << relative << ": not restored: " << problem.what() << "\n";
        done = false;
    }
    if (database && fs::exists(target, error)) {
        STATUS status = NSFBringDatabaseOnline(notesPath.c_str(), 0);
        if (status != NOERROR) {
            err << "rpxserver: " << relative << ": cannot be brought online: " << nsfdb::StatusText(status) << "\n";
            done = false;
        }
    }
    return done;
}

}  // namespace

std::string MakeBackup(const ServerPaths& server, std::ostream& log) {
    std::vector<std::string> files;
    for (const std::string& file : FilesBelow(server.data / kProductFolder))
        files.push_back(std::string(kProductFolder) + "/" + file);
    std::string timestamp = FreeTimestamp(server);
    fs::path folder = BackupRoot(server) / timestamp;
    fs::path partial = BackupRoot(server) / ("." + timestamp + ".partial");
    try {
        CopyFiles(server.data / kProductFolder, partial / kFilesFolder / kProductFolder);
        WriteManifest(partial / kManifest, ManifestOf(server, files, NamedButAbsent(server)));
        std::error_code error;
        fs::rename(partial, folder, error);
        if (error) throw ToolError(folder.string() + ": cannot make the backup folder: " + error.message());
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(partial, ignored);
        throw;
    }
    log << "rpxserver: backup " << timestamp << ": " << files.size() << (files.size() == 1 ? " file" : " files")
        << " of " << (server.data / kProductFolder).string() << " kept in " << folder.string() << "\n";
    return timestamp;
}

int RestoreBackup(const std::string& serverDir, const std::string& timestamp, std::ostream& out,
                  std::ostream& err) {
    ServerPaths server = ReadServerPaths(serverDir);
    Json manifest = ReadManifest(server, timestamp);
    RequireSameServer(manifest, server, timestamp);
    std::vector<std::string> files = TextList(manifest, "files"), absent = TextList(manifest, "absent");
    fs::path backupFiles = BackupRoot(server) / timestamp / kFilesFolder;
    std::error_code error;
    for (const std::string& file : files)
        if (!fs::is_regular_file(backupFiles / file, error))
            throw ToolError("backup \"" + timestamp + "\" is incomplete: " + (backupFiles / file).string() +
                            " is missing; nothing was restored");

    ServerSession session(server.dir.string());
    size_t failed = 0;
    for (const std::string& file : files)
        if (!RestoreOne(server, backupFiles, file, false, out, err)) ++failed;
    for (const std::string& file : absent)
        if (!RestoreOne(server, backupFiles, file, true, out, err)) ++failed;
    if (failed == 0) {
        out << "Backup " << timestamp << " restored on " << server.dir.string() << "\n";
        return kExitOk;
    }
    err << "rpxserver: " << failed << " of " << files.size() + absent.size()
        << " files of backup " << timestamp << " were not restored\n";
    return kExitFailed;
}

}  // namespace rpxserver
