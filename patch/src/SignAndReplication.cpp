// SignAndChangeReplicaDatabase: signs every product database, replaces its replication note
// and reports failures on the server console, so it needs the server half of the platform.
#include <cstring>

#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"

namespace {

const size_t kPathSize = 256;
const size_t kNameSize = 256;
const size_t kSeparatorSize = 3;

void ConsoleLine(const char* text) {
    AddInLogMessageText((char*)"%s", NOERROR, text);  // "%s": the text is shown, never parsed
}

void LmbcsSeparator(char* separator) {
    char translated[16];
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, "\\", 1, translated, sizeof translated - 1);
    if (length > kSeparatorSize) length = kSeparatorSize;
    std::memcpy(separator, translated, length);
    separator[length] = '\0';
}

void LmbcsName(const char* name, char* out) {
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, name, MAXWORD, out, kNameSize);
    out[length <= kNameSize ? length : kNameSize] = '\0';
}

void SignOneDatabase(DBHANDLE db, const char* path) {
    LogDebugMessage(1, "Start to sign - %s", path);
    DbSearchParam param;
    param.hDb = db;
    STATUS status = NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALLNONDATA, nullptr,
                              SignDatabaseCallback, &param, nullptr);
    if (status != NOERROR) {
        char text[kStatusTextSize];
        char native[kStatusTextSize];
        LoadStatusText(status, text);
        ConsoleLine(text);
        StatusTextToNative(text, native);
        LogDebugMessage(1, "Failed to sign %s - %s", path, native);
    } else {
        LogDebugMessage(1, "Succeeded to sign - %s", path);
    }
    NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALLNONDATA, nullptr, DelReplicaDocCallback, &param,
              nullptr);
    AddReplicationDoc(db);
}

void MaintainDatabase(const char* folder, const char* separator, const char* databaseName) {
    char name[kNameSize + 1];
    char path[kPathSize];
    LmbcsName(databaseName, name);
    BuildReplicaDbPath(folder, separator, name, path, sizeof path);
    LogDebugMessage(1, "%s", path);

    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbOpen(path, &db);
    if (status != NOERROR) {
        char text[kStatusTextSize];
        char native[kStatusTextSize];
        LoadStatusText(status, text);
        ConsoleLine(path);
        ConsoleLine(text);
        StatusTextToNative(text, native);
        LogDebugMessage(1, "Failed to open %s - %s", path, native);
        return;
    }
    SignOneDatabase(db, path);
    NSFDbClose(db);
}

}  // namespace

// Signs whatever skipDbSign says: only PrepareDatabase honours that setting, by intent.
void SignAndChangeReplicaDatabase(void* folder) {
    if (folder == nullptr) {
        LogDebugMessage(1, "Error: SignDatabase needs the database folder.");
        return;
    }
    char separator[kSeparatorSize + 1];
    LmbcsSeparator(separator);
    LogDebugMessage(1, "SignDatabase Enter");
    for (int row = 0; row < kDBNamesRows && DBNames[row].databaseName != nullptr; ++row) {
        MaintainDatabase(static_cast<const char*>(folder), separator, DBNames[row].databaseName);
    }
    LogDebugMessage(1, "SignDatabase Leave");
}
