// GetRunningRPXVer: the installed builds, the product build from the newest program folder's name
// and the build stamped into the help notes of the installed message database.
#include "global.h"
#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"

#include <cstdlib>
#include <cstring>

#include "PatchRPX.h"

namespace {

const char kMessageDatabase[] = "rpx/rpmsg.nsf";
const char kBuildItem[] = "BuildNumber";
constexpr size_t kNoteBuildLength = 16;

// The record of the build search: the searched database first, then the build text found.
struct BuildSearchParam {
    DBHANDLE hDb;
    char buildText[64];
};

void CutTrailingSeparator(char* path) {
    size_t length = strlen(path);
    if (length > 0 && (path[length - 1] == '/' || path[length - 1] == '\\')) path[length - 1] = '\0';
}

// The number after the last "." of text; 0 when there is none.
int BuildAfterLastDot(const char* text) {
    const char* dot = strrchr(text, '.');
    return dot != nullptr ? static_cast<int>(strtol(dot + 1, nullptr, 10)) : 0;
}

// The build of the message database, 0 when it cannot be opened or searched or carries none.
int ReadDatabaseBuild() {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(kMessageDatabase, &db) != NOERROR) return 0;
    BuildSearchParam record;
    memset(record.buildText, 0, sizeof record.buildText);
    record.hDb = db;
    STATUS status =
        NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_HELP, nullptr, GetBuildNumber, &record, nullptr);
    int build = 0;
    if (status != NOERROR) {
        LogDebugMessage(1, "Error: Get build number failed");
    } else {
        record.buildText[sizeof record.buildText - 1] = '\0';
        build = BuildAfterLastDot(record.buildText);
    }
    NSFDbClose(db);
    return build;
}

void ReportOnConsole(STATUS status) {
    char text[kErrorTextSize];
    LoadStatusText(status, text, sizeof text);
    AddInLogMessageText((char*)"%s", NOERROR, text);  // "%s": the text is no format
}

}  // namespace

int GetRunningRPXVer(PatchSetting& setting) {
    char installPath[kProgramFolderSize];
    if (!GetProgramFolder(installPath)) return 1;
    CutTrailingSeparator(installPath);
    if (strrchr(installPath, '.') == nullptr) {
        LogDebugMessage(1, "Cannot get the build number from path.");
        return 1;
    }
    setting.runningBuild = BuildAfterLastDot(installPath);  // letters after the dot give 0
    setting.runningDbBuild = ReadDatabaseBuild();
    LogDebugMessage(1, "The running RPX build is %d", setting.runningBuild);
    LogDebugMessage(1, "The running RPX database build is %d", setting.runningDbBuild);
    return 0;
}

// Every help note counts, whatever the match flags say, and the last one read wins: a match test
// or an early stop would change which stamp the run compares.
STATUS LNCALLBACK GetBuildNumber(void* param, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    auto* record = static_cast<BuildSearchParam*>(param);
    SEARCH_MATCH found;
    memcpy(&found, match, sizeof found);
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(record->hDb, found.ID.NoteID, 0, &note);
    if (status != NOERROR) {
        ReportOnConsole(status);
        return NOERROR;
    }
    char build[kNoteBuildLength + 1] = "";
    WORD length = NSFItemGetText(note, kBuildItem, build, sizeof build);
    if (length != 0) {
        build[length < kNoteBuildLength ? length : kNoteBuildLength] = '\0';
        strncpy(record->buildText, build, sizeof record->buildText - 1);
        record->buildText[sizeof record->buildText - 1] = '\0';
    }
    NSFNoteClose(note);
    return NOERROR;
}
