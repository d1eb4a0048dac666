#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "DbAccess.h"
#include "JsonStream.h"
#include "NotesSession.h"
#include "ServerInit.h"

namespace rpxserver {
namespace {

namespace fs = std::filesystem;
using nsfdb::ToolError;

void WriteFile(const fs::path& path, const std::string& content) {
    std::error_code error;
    if (fs::exists(fs::symlink_status(path, error)))
        throw ToolError(path.string() + ": the path is taken already (by another entry or a folder of the server)");
    std::ofstream out(path, std::ios::binary);
    out << content;
    out.close();
    if (!out) throw ToolError(path.string() + ": cannot write the file");
}

void MakeFolder(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) throw ToolError(path.string() + ": cannot create the folder: " + error.message());
}

void CheckTarget(const fs::path& dir) {
    if (dir.string().find_first_of("\r\n") != std::string::npos)
        throw ToolError(dir.string() + ": a server folder's path cannot hold line breaks (notes.ini names it)");
    std::error_code error;
    fs::file_status status = fs::symlink_status(dir, error);
    if (fs::exists(status)) {
        if (!fs::is_directory(status)) throw ToolError(dir.string() + ": exists and is not a folder");
        if (!fs::is_empty(dir, error) || error)
            throw ToolError(dir.string() + ": the folder exists and is not empty");
    }
    if (!fs::is_directory(dir.parent_path(), error))
        throw ToolError(dir.parent_path().string() + ": the folder does not exist");
}

// ".<name>.init-XXXXXX" beside dir: on the same file system, so that it can be renamed.
fs::path MakeStagingFolder(const fs::path& dir) {
    std::string pattern = (dir.parent_path() / ("." + dir.filename().string() + ".init-XXXXXX")).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!::mkdtemp(name.data()))
        throw ToolError(dir.parent_path().string() + ": cannot create a folder: " + std::strerror(errno));
    // mkdtemp makes it private; the server folder gets the usual permissions.
    mode_t mask = ::umask(0);
    ::umask(mask);
    ::chmod(name.data(), 0777 & ~mask);
    return fs::path(name.data());
}

// The platform is needed only to make databases; it starts with the first one.
class PlatformForDatabases {
public:
    explicit PlatformForDatabases(fs::path dataFolder) : dataFolder_(std::move(dataFolder)) {}
    ~PlatformForDatabases() { Stop(); }
    PlatformForDatabases(const PlatformForDatabases&) = delete;
    PlatformForDatabases& operator=(const PlatformForDatabases&) = delete;

    void Start() {
        if (started_) return;
        nsfdb::StartPlatform(dataFolder_.string());
        started_ = true;
    }
    void Stop() {
        if (started_) nsfdb::StopPlatform();
        started_ = false;
    }

private:
    fs::path dataFolder_;
    bool started_ = false;
};

void MakeDatabase(const ScenarioFile& file, const fs::path& path, const std::string& place,
                  PlatformForDatabases& platform) {
    platform.Start();
    nsfdb::DatabaseData data;
    try {
        data = nsfdb::DatabaseFromJson(file.database);
    } catch (const ToolError& error) {
        throw ToolError(place + ": " + error.what());
    }
    nsfdb::CreateDatabase(path.string(), data, place);
}

using FileKey = std::pair<std::string, std::string>;  // folder, relative path

std::string PlaceOf(const std::string& source, const std::string& folder, const std::string& relativePath) {
    return source + ": " + folder + "[\"" + relativePath + "\"]";
}

void MakeFiles(const Scenario& scenario, const fs::path& staging, const std::string& source,
               PlatformForDatabases& platform, const std::set<FileKey>& made) {
    for (const ScenarioFile& file : scenario.files) {
        if (made.count({file.folder, file.relativePath})) continue;
        fs::path path = staging / file.folder / file.relativePath;
        MakeFolder(path.parent_path());
        std::string place = PlaceOf(source, file.folder, file.relativePath);
        if (file.isDatabase)
            MakeDatabase(file, path, place, platform);
        else
            WriteFile(path, file.content);
    }
}

// Databases with notes are made while the scenario is read, each note written as soon as it is
// read, so that a scenario with large databases is never held whole in memory.
class StreamedDatabases : public nsfdb::JsonSink {
public:
    StreamedDatabases(const fs::path& staging, const std::string& source, PlatformForDatabases& platform,
                      const Json& root)
        : staging_(staging), source_(source), platform_(platform), root_(root) {}

    // data|install.<path>.notes[i].
    bool Records(const nsfdb::JsonPath& where) override {
        return where.size() == 4 && IsFolderEntry(where) && where[2].isKey && where[2].key == "notes" &&
               !where[3].isKey;
    }

    void Take(const nsfdb::JsonPath& where, const nsfdb::JsonRecord& note) override {
        Building& building = Open(where[0].key, where[1].key);
        building.stream.Note(where[3].index, note, building.SoFar(root_));
    }

    // The whole entry has been read.
    void Built(const nsfdb::JsonPath& where, const Json& value) override {
        if (where.size() != 2 || !IsFolderEntry(where)) return;
        auto open = open_.find(FileKey{where[0].key, where[1].key});
        if (open == open_.end()) return;
        open->second.stream.Finish(value);
        made_.insert(open->first);
        if (last_ == &open->second) last_ = nullptr;
        open_.erase(open);
    }

    const std::set<FileKey>& made() const { return made_; }

private:
    static bool IsFolderEntry(const nsfdb::JsonPath& where) {
        return where[0].isKey && where[1].isKey && (where[0].key == "data" || where[0].key == "install");
    }

    struct Building {
        Building(const std::string& path, const std::string& place, const FileKey& key)
            : builder(path, place), stream(builder, place), key(key) {}
        // The entry as read so far (its notes left out).
        const Json& SoFar(const Json& root) {
            if (!entry) entry = &root.at(key.first).at(key.second);
            return *entry;
        }
        nsfdb::DatabaseBuilder builder;
        nsfdb::DatabaseStream stream;
        FileKey key;
        const Json* entry = nullptr;
    };

    // The last entry a note went to is the next note's too, nearly always.
    Building& Open(const std::string& folder, const std::string& relativePath) {
        if (last_ && last_->key.first == folder && last_->key.second == relativePath) return *last_;
        FileKey key{folder, relativePath};
        auto found = open_.find(key);
        if (found == open_.end()) found = Start(key);
        last_ = &found->second;
        return *last_;
    }

    std::map<FileKey, Building>::iterator Start(const FileKey& key) {
        std::string place = PlaceOf(source_, key.first, key.second);
        try {
            CheckRelativePath(key.second, key.first + "[\"" + key.second + "\"]");
        } catch (const ToolError& error) {
            throw nsfdb::PlacedError(source_ + ": " + error.what());
        }
        fs::path path = staging_ / key.first / key.second;
        MakeFolder(path.parent_path());
        platform_.Start();
        return open_
            .emplace(std::piecewise_construct, std::forward_as_tuple(key),
                     std::forward_as_tuple(path.string(), place, key))
            .first;
    }

    fs::path staging_;
    std::string source_;
    PlatformForDatabases& platform_;
    const Json& root_;
    std::map<FileKey, Building> open_;
    Building* last_ = nullptr;
    std::set<FileKey> made_;
};

std::string NotesIniText(const Scenario& scenario, const fs::path& dir) {
    std::string text = "[Notes]\n";
    for (const IniLine& line : NotesIniLines(scenario, dir.string())) text += line.first + "=" + line.second + "\n";
    return text;
}

void Populate(const Scenario& scenario, const fs::path& staging, const fs::path& dir, const std::string& source,
              PlatformForDatabases& platform, const std::set<FileKey>& made) {
    if (scenario.tempFolder) MakeFolder(staging / "data" / "rpxtemp");
    MakeFiles(scenario, staging, source, platform, made);
    WriteFile(staging / "notes.ini", NotesIniText(scenario, dir));
    if (scenario.serverSettings) WriteFile(staging / "server.json", scenario.serverSettings->dump(2) + "\n");
}

// Reads the scenario and makes the server in the staging folder.
void Build(const std::string& scenarioPath, const fs::path& staging, const fs::path& dir) {
    MakeFolder(staging / "data");
    MakeFolder(staging / "install");
    PlatformForDatabases platform(staging / "data");
    Json root;
    StreamedDatabases streamed(staging, scenarioPath, platform, root);
    Scenario scenario;
    try {
        nsfdb::ParseJsonFile(scenarioPath, streamed, root);
        scenario = ScenarioFromJson(root);
    } catch (const nsfdb::PlacedError&) {
        throw;
    } catch (const ToolError& error) {
        throw ToolError(scenarioPath + ": " + error.what());
    }
    root = Json();
    Populate(scenario, staging, dir, scenarioPath, platform, streamed.made());
}

// rename() replaces an empty folder but never a folder with something in it.
void Publish(const fs::path& staging, const fs::path& dir) {
    if (std::rename(staging.c_str(), dir.c_str()) != 0)
        throw ToolError(dir.string() + ": cannot create the server folder: " + std::strerror(errno));
}

void Discard(const fs::path& staging) {
    std::error_code ignored;
    fs::remove_all(staging, ignored);
}

// Messages name the paths the user asked for, not the temporary folder's.
std::string AsFinalPaths(std::string message, const fs::path& staging, const fs::path& dir) {
    const std::string from = staging.string(), to = dir.string();
    for (size_t at = message.find(from); at != std::string::npos; at = message.find(from, at + to.size()))
        message.replace(at, from.size(), to);
    return message;
}

}  // namespace

void InitServer(const std::string& scenarioPath, const std::string& dirText) {
    fs::path dir = fs::path(nsfdb::AbsolutePath(dirText)).lexically_normal();
    if (!dir.has_filename()) dir = dir.parent_path();  // "x/" -> "x"
    CheckTarget(dir);
    fs::path staging = MakeStagingFolder(dir);
    try {
        Build(scenarioPath, staging, dir);
        Publish(staging, dir);
    } catch (const ToolError& error) {
        Discard(staging);
        throw ToolError(AsFinalPaths(error.what(), staging, dir));
    } catch (...) {
        Discard(staging);
        throw;
    }
}

}  // namespace rpxserver
