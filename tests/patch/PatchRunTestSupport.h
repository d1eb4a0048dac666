// Helpers of the patch-run tests: the install tree, notes.ini variants and the day's debug log.
#ifndef TESTS_PATCH_PATCHRUNTESTSUPPORT_H
#define TESTS_PATCH_PATCHRUNTESTSUPPORT_H

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "PatchTestServer.h"

namespace patch_test {

inline std::string InstallFolder() { return ServerFolder() + "/install"; }
inline std::string TempFolder() { return DataFolder() + "/rpxtemp"; }

inline void Shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline bool FileExists(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

// Restarts the platform from a copy of notes.ini without the named setting.
inline void RestartWithoutSetting(const std::string& name) {
    std::ifstream in(IniPath());
    std::string line, kept;
    while (std::getline(in, line)) {
        if (line.compare(0, name.size() + 1, name + "=") != 0) kept += line + "\n";
    }
    std::string altered = ServerFolder() + "/notes-altered.ini";
    WriteFile(altered, kept);
    NotesTerm();
    std::string arg = "=" + altered;
    char* argv[] = {const_cast<char*>("patch_tests"), &arg[0], nullptr};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
}

// Restarts the platform from a copy of notes.ini with the named setting changed.
inline void RestartWithSetting(const std::string& name, const std::string& value) {
    std::ifstream in(IniPath());
    std::string line, kept;
    while (std::getline(in, line)) {
        if (line.compare(0, name.size() + 1, name + "=") != 0) kept += line + "\n";
    }
    std::string altered = ServerFolder() + "/notes-altered.ini";
    WriteFile(altered, kept + name + "=" + value + "\n");
    NotesTerm();
    std::string arg = "=" + altered;
    char* argv[] = {const_cast<char*>("patch_tests"), &arg[0], nullptr};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
}

inline std::string ServerSettingsPath() { return ServerFolder() + "/server.json"; }

// Restarts the platform with this server.json (faults, busy databases, clock); PatchRunTest
// removes it again.
inline void RestartWithServerSettings(const std::string& json) {
    WriteFile(ServerSettingsPath(), json);
    NotesTerm();
    ASSERT_EQ(InitPlatform(), NOERROR);
}

// Everything the patch debug log holds (all updrpx_*.dbg files: a run may cross midnight).
inline std::string DebugLogText() {
    std::string command = "cat '" + TempFolder() + "'/updrpx_*.dbg 2>/dev/null";
    std::string text;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char piece[256];
        while (size_t n = fread(piece, 1, sizeof piece, pipe)) text.append(piece, n);
        pclose(pipe);
    }
    return text;
}

// The log's lines with their "[time][pid=..][tid=..][module=..]:" prefix cut off.
inline std::vector<std::string> DebugLogMessages() {
    std::vector<std::string> messages;
    std::istringstream lines(DebugLogText());
    for (std::string line; std::getline(lines, line);) {
        size_t end = line.find("]:", std::min(line.size(), line.find("[module=")));
        messages.push_back(end == std::string::npos ? line : line.substr(end + 2));
    }
    return messages;
}

inline bool Logged(const std::string& message) {
    std::vector<std::string> messages = DebugLogMessages();
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

// A test with an empty install folder and an empty debug log.
class PatchRunTest : public PatchPlatformTest {
protected:
    void SetUp() override {
        PatchPlatformTest::SetUp();
        ResetInstallFolder();
        ClearDebugLog();
    }
    void TearDown() override {
        ResetInstallFolder();
        std::remove(ServerSettingsPath().c_str());
    }

    static void ResetInstallFolder() { Shell("rm -rf '" + InstallFolder() + "' && mkdir '" + InstallFolder() + "'"); }
    static void ClearDebugLog() { Shell("rm -f '" + TempFolder() + "'/updrpx_*.dbg"); }

    // install/program/<version>/, created; returns its path.
    static std::string MakeProgramFolder(const std::string& version) {
        std::string folder = InstallFolder() + "/program/" + version;
        Shell("mkdir -p '" + folder + "'");
        return folder;
    }
};

}  // namespace patch_test

#endif
