// The parts of the database preparation that link without the server: the path, the hidden
// design flag, the document collector and the status texts shared with the signing walk.
#include <cstring>

#include "nsfdb.h"
#include "osmisc.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"
#include "RkFormat.h"

namespace {
const char kPrepareFolder[] = "rpx/";
}

void LoadStatusText(STATUS status, char* text) {
    text[0] = '\0';
    OSLoadString(NULLHANDLE, ERR(status), text, kStatusTextSize - 1);
    text[kStatusTextSize - 1] = '\0';
}

void StatusTextToNative(const char* text, char* native) {
    WORD length =
        OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, text, (WORD)std::strlen(text), native, kStatusTextSize - 1);
    native[length < kStatusTextSize ? length : kStatusTextSize - 1] = '\0';
}

bool BuildPreparePath(const char* name, char* path, size_t size) {
    int needed = rk_snprintf(path, size, "%s%s", kPrepareFolder, name);
    if (needed < 0 || (size_t)needed >= size) {
        if (size > 0) path[0] = '\0';
        return false;
    }
    return true;
}

void HideDatabaseDesign(DBHANDLE db) {
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    // Writing back a record that was never read would wipe the replica ID.
    if (NSFDbReplicaInfoGet(db, &info) != NOERROR) return;
    info.Flags |= REPLFLG_HIDDEN_DESIGN;
    NSFDbReplicaInfoSet(db, &info);
}

STATUS LNCALLBACK SearchDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    static_cast<DocumentSearchParam*>(parameter)->noteIds.push_back(found.ID.NoteID);
    return NOERROR;
}
