// SignAndChangeReplicaDatabase: signs every product database and replaces its replication note,
// reporting failures on the server console; with the two search callbacks of that walk and
// AddReplicationDoc.
#include "global.h"
#include "names.h"
#include "addin.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"
#include "osmisc.h"

#include <cstring>

#include "DatabaseMaintenance.h"
#include "RkFormat.h"

namespace {

// Form, info, help and field notes are signed through an expanded open.
const WORD kExpandBeforeSigning = NOTE_CLASS_FORM | NOTE_CLASS_INFO | NOTE_CLASS_HELP | NOTE_CLASS_FIELD;

WORD NoteClassOf(NOTEHANDLE note) {
    WORD noteClass = 0;
    NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
    return noteClass;
}

// The items of the replication note.
const char kReplSrcServers[] = "$ReplSrcServers";
const char kReplClassMasks[] = "$ReplClassMasks";
const char kReplFormula[] = "$ReplFormula";
const char kSelectAll[] = "SELECT @All";
const int kReplClassMaskValue = 2047;

// A one-entry text list as item value bytes: entry count, entry length, the text. Returns the
// value length, or 0 when it does not fit in size bytes.
DWORD FillOneEntryList(void* block, DWORD size, const char* text) {
    WORD count = 1;
    WORD length = (WORD)std::strlen(text);
    DWORD total = sizeof count + sizeof length + length;
    if (total > size) return 0;
    char* out = static_cast<char*>(block);
    std::memcpy(out, &count, sizeof count);
    std::memcpy(out + sizeof count, &length, sizeof length);
    std::memcpy(out + sizeof count + sizeof length, text, length);
    return total;
}

const DWORD kListBlockSize = 1024;

void ReleaseBlock(DHANDLE block) {
    OSUnlockObject(block);
    OSMemFree(block);
}

// Steps after the two text items: the list items and the formula. Returns 0, or the failure
// status with the list block already released.
STATUS AppendReplicationItems(NOTEHANDLE note) {
    DHANDLE listBlock = NULLHANDLE;
    STATUS status = OSMemAlloc(0, kListBlockSize, &listBlock);
    if (status != NOERROR) return status;
    void* list = OSLockObject(listBlock);
    if (list == nullptr) {
        OSMemFree(listBlock);
        return 1;
    }

    DWORD length = FillOneEntryList(list, kListBlockSize, "-");
    status = NSFItemAppend(note, ITEM_SUMMARY, kReplSrcServers, sizeof kReplSrcServers - 1, TYPE_TEXT_LIST,
                           list, length);
    if (status != NOERROR) {
        ReleaseBlock(listBlock);
        return status;
    }

    char classMasks[16];
    rk_snprintf(classMasks, sizeof classMasks, "%i", kReplClassMaskValue);
    length = FillOneEntryList(list, kListBlockSize, classMasks);
    if (NSFItemAppend(note, ITEM_SUMMARY, kReplClassMasks, sizeof kReplClassMasks - 1, TYPE_TEXT_LIST, list,
                      length) != NOERROR) {
        ReleaseBlock(listBlock);
        return 1;
    }

    FORMULAHANDLE formula = NULLHANDLE;
    WORD formulaLength = 0, compileError = 0, errorLine = 0, errorColumn = 0, errorOffset = 0,
         errorLength = 0;
    if (NSFFormulaCompile(nullptr, 0, kSelectAll, sizeof kSelectAll - 1, &formula, &formulaLength,
                          &compileError, &errorLine, &errorColumn, &errorOffset, &errorLength) != NOERROR) {
        ReleaseBlock(listBlock);
        return 1;
    }
    void* compiled = OSLockObject(formula);
    if (compiled == nullptr || NSFItemAppend(note, ITEM_SUMMARY, kReplFormula, sizeof kReplFormula - 1,
                                             TYPE_FORMULA, compiled, formulaLength) != NOERROR) {
        ReleaseBlock(listBlock);
        return 1;  // the compiled formula stays: the server frees the task's memory at task end
    }
    ReleaseBlock(formula);

    status = NSFNoteUpdate(note, 0);
    if (status == NOERROR) status = NSFNoteClose(note);
    ReleaseBlock(listBlock);
    return status;
}

const size_t kPathSize = 256;
const size_t kNameSize = 256;
const size_t kSeparatorSize = 3;

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

// folder + separator + name into path (size bytes): the folder cut to size - 1 bytes, the other
// two pieces appended as far as they fit.
void BuildReplicaDbPath(const char* folder, const char* separator, const char* name, char* path,
                        size_t size) {
    if (size == 0) return;
    std::strncpy(path, folder, size - 1);
    path[size - 1] = '\0';
    std::strncat(path, separator, size - 1 - std::strlen(path));
    std::strncat(path, name, size - 1 - std::strlen(path));
}

void SignOneDatabase(DBHANDLE db, const char* path) {
    LogDebugMessage(1, "Start to sign - %s", path);
    DbSearchParam param;
    param.hDb = db;
    STATUS status = NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALLNONDATA, nullptr,
                              SignDatabaseCallback, &param, nullptr);
    if (status != NOERROR) {
        char native[kStatusTextSize];
        ReportStatusOnConsole(status, native);
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
    char native[kStatusTextSize];
    if (!OpenDatabaseOrReport(path, &db, native)) {
        LogDebugMessage(1, "Failed to open %s - %s", path, native);
        return;
    }
    SignOneDatabase(db, path);
    NSFDbClose(db);
}

}  // namespace

STATUS LNCALLBACK SignDatabaseCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    DBHANDLE db = SearchedDatabase(parameter);
    NOTEID noteId = MatchedNoteId(match);
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(db, noteId, 0, &note);
    if (status != NOERROR) {
        LogDebugMessage(1, "Signning failed!!!");
        return status;
    }
    if (NoteClassOf(note) & kExpandBeforeSigning) {
        NSFNoteClose(note);
        if (NSFNoteOpen(db, noteId, OPEN_EXPAND, &note) == NOERROR) {
            STATUS signStatus = NSFNoteSign(note);
            if (signStatus != NOERROR) LogDebugMessage(1, "NSFNotesSign error: %d", (int)signStatus);
        }
        // After a failed reopen, contract, update and close act on the closed handle; the platform
        // answers them with a handle error and the walk goes on, so no early return here.
        NSFNoteContract(note);
    } else {
        STATUS signStatus = NSFNoteSign(note);
        if (signStatus != NOERROR) {
            // The "22222" prefix tells this path from the expanded one in the log; keep it.
            LogDebugMessage(1, "22222 NSFNotesSign error: %d", (int)signStatus);
        }
    }
    NSFNoteUpdate(note, UPDATE_FORCE);
    return NSFNoteClose(note);
}

STATUS LNCALLBACK DelReplicaDocCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    DBHANDLE db = SearchedDatabase(parameter);
    NOTEID noteId = MatchedNoteId(match);
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteOpen(db, noteId, 0, &note);
    if (status != NOERROR) return status;
    if (!(NoteClassOf(note) & NOTE_CLASS_REPLFORMULA)) {
        return NOERROR;  // other notes stay open: closing the database releases them
    }
    status = NSFNoteClose(note);
    NSFNoteDelete(db, noteId, UPDATE_FORCE);
    return status;
}

STATUS AddReplicationDoc(DBHANDLE db) {
    const WORD kMailServerSize = 256;
    char mailServer[kMailServerSize];
    std::memset(mailServer, 0, sizeof mailServer);
    if (!OSGetEnvironmentString("MailServer", mailServer, kMailServerSize - 1)) return 1;

    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteCreate(db, &note);
    if (status != NOERROR) return status;
    // From here on a failure leaves the note open; the caller closes the database next.
    WORD noteClass = NOTE_CLASS_REPLFORMULA;
    NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);

    // The title keeps the NUL bytes that pad the server name to 256 bytes: the note's bytes are
    // fixed, so do not trim it to the name.
    status = NSFItemSetText(note, "$TITLE", mailServer, kMailServerSize);
    if (status != NOERROR) return status;
    status = NSFItemSetText(note, "$ReplVersion", "2", MAXWORD);
    if (status != NOERROR) return status;
    return AppendReplicationItems(note);
}

void GetAPIError(unsigned short status, char* text) {
    OSLoadString(NULLHANDLE, ERR(status), text, 8);
}


// Signs whatever skipDbSign says: the setting covers only the replaced databases (PrepareDatabase).
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
