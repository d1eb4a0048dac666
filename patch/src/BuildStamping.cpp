// BuildNumber and SetAllDatabasesBuild: a note that cannot be stamped is reported on the server
// console, so these need the server half of the platform.
#include "addin.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"

STATUS LNCALLBACK BuildNumber(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary) {
    STATUS status = StampBuildNumberNote(parameter, match, summary);
    if (status != NOERROR) {
        char text[kStatusTextSize];
        LoadStatusText(status, text);
        AddInLogMessageText((char*)"%s", NOERROR, text);
    }
    return NOERROR;
}

int SetAllDatabasesBuild() {
    return StampDatabasesBuild(BuildNumber);
}
