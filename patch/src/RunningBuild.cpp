// Detection of the installed builds: the product build from the newest program folder's name and
// the build stamped into the help notes of the installed message database.
#include <cstdlib>
#include <cstring>

#include "nsfdb.h"
#include "nsfnote.h"

#include "PatchRunSteps.h"
#include "RkVersionPath.h"

namespace {

const int kProgramFolderIndex = 1;
constexpr size_t kInstallPathSize = 256;
const char kMessageDatabase[] = "rpx/rpmsg.nsf";
const char kBuildItem[] = "BuildNumber";
constexpr size_t kNoteBuildLength = 16;

void CutTrailingSeparator(char* path) {
    size_t length = strlen(path);
    if (length > 0 && (path[length - 1] == '/' || path[length - 1] == '\\')) path[length - 1] = '\0';
}

// The build of the message database, 0 when it cannot be opened or searched or carries none.
int ReadDatabaseBuild(NSFSEARCHPROC readNote) {
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(kMessageDatabase, &db) != NOERROR) return 0;
    BuildSearchParam record;
    memset(record.buildText, 0, sizeof record.buildText);
    record.hDb = db;
    STATUS status =
        NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_HELP, nullptr, readNote, &record, nullptr);
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

}  // namespace

int BuildAfterLastDot(const char* text) {
    const char* dot = strrchr(text, '.');
    return dot != nullptr ? static_cast<int>(strtol(dot + 1, nullptr, 10)) : 0;
}

int DetectRunningBuilds(PatchSetting& setting, NSFSEARCHPROC readNote) {
    char installPath[kInstallPathSize];
    if (RkGetLatestPath(kProgramFolderIndex, installPath, sizeof installPath) == nullptr) {
        LogDebugMessage(1, "Cannot get the latest path!");
        return 1;
    }
    CutTrailingSeparator(installPath);
    if (strrchr(installPath, '.') == nullptr) {
        LogDebugMessage(1, "Cannot get the build number from path.");
        return 1;
    }
    setting.runningBuild = BuildAfterLastDot(installPath);  // letters after the dot give 0
    setting.runningDbBuild = ReadDatabaseBuild(readNote);
    LogDebugMessage(1, "The running RPX build is %d", setting.runningBuild);
    LogDebugMessage(1, "The running RPX database build is %d", setting.runningDbBuild);
    return 0;
}

// Every help note counts, whatever the match flags say, and the last one read wins: intended.
STATUS LNCALLBACK ReadBuildNumberNote(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    auto* record = static_cast<BuildSearchParam*>(parameter);
    SEARCH_MATCH found;
    memcpy(&found, match, sizeof found);
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(record->hDb, found.ID.NoteID, 0, &note);
    if (status != NOERROR) return status;
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
