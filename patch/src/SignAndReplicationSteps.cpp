// The note-level work of the signing walk and the replication note: the two search callbacks,
// AddReplicationDoc and the path of one database. None of it reports on the console.
#include <cstring>

#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"
#include "osmisc.h"

#include "DatabaseMaintenance.h"
#include "MaintenanceSteps.h"
#include "RkFormat.h"

namespace {

// Form, info, help and field notes are signed through an expanded open.
const WORD kExpandBeforeSigning = NOTE_CLASS_FORM | NOTE_CLASS_INFO | NOTE_CLASS_HELP | NOTE_CLASS_FIELD;

const char kReplSrcServers[] = "$ReplSrcServers";
const char kReplClassMasks[] = "$ReplClassMasks";
const char kReplFormula[] = "$ReplFormula";
const char kSelectAll[] = "SELECT @All";
const DWORD kListBlockSize = 1024;
const int kReplClassMaskValue = 2047;
const WORD kMailServerSize = 256;

DBHANDLE SearchedDatabase(void* parameter) {
    DBHANDLE db;
    std::memcpy(&db, parameter, sizeof db);  // every search record begins with the handle
    return db;
}

NOTEID MatchedNoteId(const SEARCH_MATCH* match) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    return found.ID.NoteID;
}

WORD NoteClassOf(NOTEHANDLE note) {
    WORD noteClass = 0;
    NSFNoteGetInfo(note, _NOTE_CLASS, &noteClass);
    return noteClass;
}

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
        return 1;  // intended: the compiled formula is not released on this path
    }
    ReleaseBlock(formula);

    status = NSFNoteUpdate(note, 0);
    if (status == NOERROR) status = NSFNoteClose(note);
    ReleaseBlock(listBlock);
    return status;
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
        // intended: after a failed reopen, contract, update and close act on the closed handle
        NSFNoteContract(note);
    } else {
        STATUS signStatus = NSFNoteSign(note);
        if (signStatus != NOERROR) {
            // intended: the "22222" prefix tells this path from the expanded one
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
        return NOERROR;  // intended: other notes stay open until the database is closed
    }
    status = NSFNoteClose(note);
    NSFNoteDelete(db, noteId, UPDATE_FORCE);
    return status;
}

STATUS AddReplicationDoc(DBHANDLE db) {
    char mailServer[kMailServerSize];
    std::memset(mailServer, 0, sizeof mailServer);
    if (!OSGetEnvironmentString("MailServer", mailServer, kMailServerSize - 1)) return 1;

    NOTEHANDLE note = NULLHANDLE;
    STATUS status = NSFNoteCreate(db, &note);
    if (status != NOERROR) return status;
    // From here on a failure leaves the note open; the caller closes the database next.
    WORD noteClass = NOTE_CLASS_REPLFORMULA;
    NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);

    // intended: the title keeps the NUL bytes that pad the server name to 256 bytes
    status = NSFItemSetText(note, "$TITLE", mailServer, kMailServerSize);
    if (status != NOERROR) return status;
    status = NSFItemSetText(note, "$ReplVersion", "2", MAXWORD);
    if (status != NOERROR) return status;
    return AppendReplicationItems(note);
}

void GetAPIError(unsigned short status, char* text) {
    OSLoadString(NULLHANDLE, ERR(status), text, 8);
}

void BuildReplicaDbPath(const char* folder, const char* separator, const char* name, char* path,
                        size_t size) {
    if (size == 0) return;
    std::strncpy(path, folder, size - 1);
    path[size - 1] = '\0';
    std::strncat(path, separator, size - 1 - std::strlen(path));
    std::strncat(path, name, size - 1 - std::strlen(path));
}
