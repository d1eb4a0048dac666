// A scenario: the description of a stand-in server that "rpxserver init" makes
// (see ARCHITECTURE.md, "JSON formats"). Reading it checks everything that can be
// checked without the platform; the databases' content is checked as they are made.
#ifndef RPXSERVER_SCENARIO_H
#define RPXSERVER_SCENARIO_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "JsonFormat.h"

namespace rpxserver {

using nsfdb::Json;
using IniLine = std::pair<std::string, std::string>;

// One entry of "data" or "install": a database (nsfdb's JSON form) or a plain file.
struct ScenarioFile {
    std::string folder;        // "data" or "install"
    std::string relativePath;  // checked: relative, no "..", "." or empty parts
    bool isDatabase = false;
    Json database;             // when isDatabase
    std::string content;       // when not
};

struct Scenario {
    std::vector<IniLine> notesIni;  // as given, in order
    // "server" without "tempFolder"; unset when nothing else is there.
    std::optional<Json> serverSettings;
    bool tempFolder = true;
    std::vector<ScenarioFile> files;
};

// Throws nsfdb::ToolError naming the place of a fault, e.g. "notesIni.Directory: ...".
// A path below a folder: no way out of it and no part that names nothing.
void CheckRelativePath(const std::string& path, const std::string& place);

Scenario ScenarioFromJson(const Json& root);

// The lines of the server's notes.ini: Directory, VeltrixInstallPath and ServerName first
// (the scenario's values where it gives them, else the server's own folders and a default
// name), then the scenario's other settings in order. serverDir is absolute.
std::vector<IniLine> NotesIniLines(const Scenario& scenario, const std::string& serverDir);

constexpr const char* kDefaultServerName = "CN=Alpha/O=Acme";

}  // namespace rpxserver

#endif
