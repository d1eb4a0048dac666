// The patch settings file rpxpatch.ini of the newest program folder, and the start of the run
// that reads it.
#include <cstdlib>
#include <cstring>

#include "PatchRPX.h"
#include "RkFormat.h"
#include "RkIniReader.h"
#include "RkVersionPath.h"

namespace {

const int kProgramFolderIndex = 1;
constexpr size_t kInstallPathSize = 256;
constexpr int kValueSize = 4096;
const char kSettingsFileName[] = "/rpxpatch.ini";
const char kSection[] = "Config";

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

}  // namespace

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
    char installFolder[kInstallPathSize];
    if (RkGetLatestPath(kProgramFolderIndex, installFolder, sizeof installFolder) == nullptr) {
        LogDebugMessage(1, "Cannot get the latest path!");
        return 1;
    }
    char settingsPath[kInstallPathSize + sizeof kSettingsFileName];
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

bool LoadPatchSettings(PatchSetting& setting) {
    LogDebugMessage(1, "===============Begin update database========");
    if (ReadConfiguration(setting) != 0) {
        // A settings failure is reported with the running-version text: intended.
        LogDebugMessage(1, "Error, Cannot get the running RPX version");
        return false;
    }
    rk_snprintf(g_szRkRPXBuildVersion, sizeof g_szRkRPXBuildVersion, "5.6.1.%d", setting.patchBuild);
    LogDebugMessage(1, "Info: The new database build number is %s", g_szRkRPXBuildVersion);
    return true;
}
