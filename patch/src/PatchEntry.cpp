// MainEntryPoint, the program entry of the patch task, and the settings it reads first: rpxpatch.ini
// of the newest program folder.
#include "global.h"

#include <cstdlib>
#include <cstring>

#include "PatchRPX.h"
#include "RkFormat.h"
#include "RkIniReader.h"
#include "RkVersionPath.h"

char g_szRkRPXBuildVersion[128] = "5.6.1.3001";

namespace {

const int kProgramFolderIndex = 1;
constexpr int kValueSize = 4096;
const char kSettingsFileName[] = "/rpxpatch.ini";
const char kSection[] = "Config";
const char kNoRunningVersion[] = "Error, Cannot get the running RPX version";

// Reads Config's key into value (kValueSize bytes, zero-ended); false when the key is missing.
bool ReadValue(RkIniReader& reader, const char* key, char* value) {
    int length = kValueSize;
    value[0] = '\0';
    if (reader.getValue(kSection, key, value, &length) != 0) return false;
    if (length < 0) length = 0;
    if (length > kValueSize - 1) length = kValueSize - 1;
    value[length] = '\0';
    return true;
}

void ReportMissingKey(const char* key) {
    LogDebugMessage(1, "Cannot get the value in configuration file. (%s:%s)", kSection, key);
}

int ToInt(const char* text) {
    return static_cast<int>(strtol(text, nullptr, 10));
}

// The optional flags: a present, non-zero number sets them to 1.
void ReadFlags(RkIniReader& reader, char* value, PatchSetting& setting) {
    setting.updateExt = 0;
    if (!ReadValue(reader, "UpdateExt", value)) {
        LogDebugMessage(1, "Needn't update extesion manager.");
    } else if (ToInt(value) != 0) {
        setting.updateExt = 1;
    }
    setting.skipDbSign = 0;
    if (ReadValue(reader, "SkipDbSign", value) && ToInt(value) != 0) {
        setting.skipDbSign = 1;
        LogDebugMessage(1, "Database signing will be skiped.");
    }
}

void SetBuildVersion(int patchBuild) {
    rk_snprintf(g_szRkRPXBuildVersion, sizeof g_szRkRPXBuildVersion, "5.6.1.%d", patchBuild);
    LogDebugMessage(1, "Info: The new database build number is %s", g_szRkRPXBuildVersion);
}

}  // namespace

extern "C" STATUS LNPUBLIC MainEntryPoint(void) {
    PatchSetting setting;
    LogDebugMessage(1, "===============Begin update database========");
    if (ReadConfiguration(setting) != 0) {
        // One text for every failed start, the settings failure included: not a text of its own.
        LogDebugMessage(1, "%s", kNoRunningVersion);
        return NOERROR;
    }
    SetBuildVersion(setting.patchBuild);
    if (GetRunningRPXVer(setting) == 0) {
        UpdateDatabase(setting);  // its result changes nothing for the server
    } else {
        LogDebugMessage(1, "%s", kNoRunningVersion);
    }
    return NOERROR;
}

bool GetProgramFolder(char (&folder)[kProgramFolderSize]) {
    if (RkGetLatestPath(kProgramFolderIndex, folder, sizeof folder) != nullptr) return true;
    LogDebugMessage(1, "Cannot get the latest path!");
    return false;
}

int ParseFileList(std::list<std::string>& out, char* text) {
    if (text == nullptr) return 0;
    const char* start = text;
    while (*start != '\0') {
        const char* comma = strchr(start, ',');
        if (comma == nullptr) {
            out.emplace_back(start);
            break;
        }
        out.emplace_back(start, static_cast<size_t>(comma - start));
        start = comma + 1;  // a comma at the very end adds no empty item
    }
    return 0;
}

int ReadConfiguration(PatchSetting& setting) {
    char installFolder[kProgramFolderSize];
    if (!GetProgramFolder(installFolder)) return 1;
    char settingsPath[kProgramFolderSize + sizeof kSettingsFileName];
    rk_snprintf(settingsPath, sizeof settingsPath, "%s%s", installFolder, kSettingsFileName);
    RkIniReader reader;
    if (reader.open(settingsPath) != 0) {
        LogDebugMessage(1, "Cannot open the file. (%s)", settingsPath);
        return 1;
    }

    char value[kValueSize];
    if (!ReadValue(reader, "Files", value)) {
        ReportMissingKey("Files");
        return 1;
    }
    ParseFileList(setting.files, value);
    if (!ReadValue(reader, "BuildNumber", value)) {
        ReportMissingKey("BuildNumber");
        return 1;
    }
    setting.patchBuild = ToInt(value);  // text that is no number gives 0, unchecked
    if (ReadValue(reader, "Databases", value)) {
        ParseFileList(setting.databases, value);
    } else {
        ReportMissingKey("Databases");
    }
    ReadFlags(reader, value, setting);
    LogDebugMessage(1, "The build number in patch configuration is %d", setting.patchBuild);
    return 0;
}
