// Scenario JSON -> Scenario, and the notes.ini it gives.
#include <algorithm>
#include <cctype>
#include <string>

#include "NotesSession.h"
#include "Scenario.h"

#include "global.h"
#include "emu/notesemu.h"

namespace rpxserver {
namespace {

using nsfdb::ToolError;

[[noreturn]] void Fail(const std::string& place, const std::string& problem) {
    throw ToolError(place + ": " + problem);
}

bool SameName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

bool HasLineBreakOrNul(const std::string& text) {
    return text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos;
}

// notes.ini is read line by line, names up to the first '=' and trimmed.
void CheckIniName(const std::string& name, const std::string& place) {
    if (name.empty()) Fail(place, "a setting needs a name");
    if (HasLineBreakOrNul(name) || name.find('=') != std::string::npos)
        Fail(place, "a setting's name cannot hold '=', line breaks or NUL characters");
    if (std::isspace(static_cast<unsigned char>(name.front())) ||
        std::isspace(static_cast<unsigned char>(name.back())))
        Fail(place, "a setting's name cannot begin or end with a blank");
    if (name.front() == '[' || name.front() == ';')
        Fail(place, "a setting's name cannot begin with '[' or ';' (notes.ini would skip the line)");
}

std::string IniValue(const Json& value, const std::string& place) {
    std::string text;
    if (value.is_string())
        text = value.get<std::string>();
    else if (value.is_number_integer())
        text = value.dump();
    else
        Fail(place, "a string or a whole number is expected");
    if (HasLineBreakOrNul(text)) Fail(place, "a setting's value cannot hold line breaks or NUL characters");
    return text;
}

std::vector<IniLine> ReadNotesIni(const Json& object) {
    if (!object.is_object()) Fail("notesIni", "an object of settings is expected");
    std::vector<IniLine> lines;
    for (const auto& entry : object.items()) {
        std::string place = "notesIni." + entry.key();
        CheckIniName(entry.key(), place);
        for (const IniLine& earlier : lines)
            if (SameName(earlier.first, entry.key()))
                Fail(place, "the setting is already given as \"" + earlier.first + "\" (names ignore case)");
        lines.emplace_back(entry.key(), IniValue(entry.value(), place));
    }
    return lines;
}

std::vector<ScenarioFile> ReadFolder(const Json& object, const std::string& folder) {
    if (!object.is_object()) Fail(folder, "an object of paths is expected");
    std::vector<ScenarioFile> files;
    for (const auto& entry : object.items()) {
        std::string place = folder + "[\"" + entry.key() + "\"]";
        CheckRelativePath(entry.key(), place);
        ScenarioFile file;
        file.folder = folder;
        file.relativePath = entry.key();
        if (entry.value().is_object()) {
            file.isDatabase = true;
            file.database = entry.value();
        } else if (entry.value().is_string()) {
            file.content = entry.value().get<std::string>();
        } else {
            Fail(place, "an object (a database) or a string (a file's content) is expected");
        }
        files.push_back(std::move(file));
    }
    return files;
}

// Checked as the platform reads server.json, so that a typo is refused here and not found out
// by a run that silently ignores it.
void CheckServerSettings(const Json& object) {
    char problem[512] = "";
    if (EmuCheckServerSettings(object.dump().c_str(), problem, sizeof problem) != NOERROR)
        throw ToolError(std::string("server.") + problem);
}

void ReadServer(const Json& object, Scenario& scenario) {
    if (!object.is_object()) Fail("server", "an object is expected");
    CheckServerSettings(object);
    Json settings = object;
    if (settings.contains("tempFolder")) {
        if (!settings["tempFolder"].is_boolean()) Fail("server.tempFolder", "true or false is expected");
        scenario.tempFolder = settings["tempFolder"].get<bool>();
        settings.erase("tempFolder");
    }
    if (!settings.empty()) scenario.serverSettings = std::move(settings);
}

}  // namespace

void CheckRelativePath(const std::string& path, const std::string& place) {
    if (path.empty()) Fail(place, "the path is empty");
    if (path.front() == '/') Fail(place, "the path must be relative to its folder, not absolute");
    if (path.find('\0') != std::string::npos) Fail(place, "the path holds a NUL character");
    size_t begin = 0;
    while (begin <= path.size()) {
        size_t end = std::min(path.find('/', begin), path.size());
        std::string part = path.substr(begin, end - begin);
        if (part == "..") Fail(place, "the path must not hold \"..\"");
        if (part.empty() || part == ".") Fail(place, "the path has an empty or \".\" part");
        begin = end + 1;
    }
}

Scenario ScenarioFromJson(const Json& root) {
    if (!root.is_object()) Fail("the document", "an object is expected");
    for (const auto& entry : root.items())
        if (entry.key() != "notesIni" && entry.key() != "data" && entry.key() != "install" &&
            entry.key() != "server")
            Fail(entry.key(), "unknown key (known: notesIni, data, install, server)");
    Scenario scenario;
    if (root.contains("notesIni")) scenario.notesIni = ReadNotesIni(root["notesIni"]);
    for (const char* folder : {"data", "install"}) {
        if (!root.contains(folder)) continue;
        std::vector<ScenarioFile> files = ReadFolder(root[folder], folder);
        scenario.files.insert(scenario.files.end(), files.begin(), files.end());
    }
    if (root.contains("server")) ReadServer(root["server"], scenario);
    return scenario;
}

std::vector<IniLine> NotesIniLines(const Scenario& scenario, const std::string& serverDir) {
    std::vector<IniLine> lines = {{"Directory", serverDir + "/data"},
                                  {"VeltrixInstallPath", serverDir + "/install"},
                                  {"ServerName", kDefaultServerName}};
    for (const IniLine& setting : scenario.notesIni) {
        auto fixed = std::find_if(lines.begin(), lines.begin() + 3,
                                  [&](const IniLine& line) { return SameName(line.first, setting.first); });
        if (fixed != lines.begin() + 3)
            fixed->second = setting.second;
        else
            lines.push_back(setting);
    }
    return lines;
}

}  // namespace rpxserver
