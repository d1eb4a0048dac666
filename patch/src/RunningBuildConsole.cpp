// GetRunningRPXVer and its search callback: a help note that cannot be opened is reported on the
// server console, so these need the server half of the platform.
#include "addin.h"
#include "osmisc.h"

#include "PatchRunSteps.h"

STATUS LNCALLBACK GetBuildNumber(void* param, SEARCH_MATCH* match, ITEM_TABLE* summary) {
    STATUS status = ReadBuildNumberNote(param, match, summary);
    if (status != NOERROR) {
        char text[256] = "";
        OSLoadString(NULLHANDLE, ERR(status), text, sizeof text - 1);
        text[sizeof text - 1] = '\0';
        AddInLogMessageText((char*)"%s", NOERROR, text);  // "%s": the text is no format
    }
    return NOERROR;
}

int GetRunningRPXVer(PatchSetting& setting) {
    return DetectRunningBuilds(setting, GetBuildNumber);
}
