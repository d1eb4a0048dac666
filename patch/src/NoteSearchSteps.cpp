// Steps every search of the patch repeats: compiling a native selection formula, finding the
// matched note of a search callback, whether a note has an item and its text, a note's UNID
// text and a status's platform text.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmisc.h"

#include <algorithm>
#include <cstring>

#include "PatchRPX.h"

STATUS CompileNativeFormula(const char* formula, WORD formulaLength, char* lmbcs, size_t size,
                            FORMULAHANDLE* compiled) {
    std::memset(lmbcs, 0, size);
    WORD limit = static_cast<WORD>(size - 1);
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, formula, formulaLength, lmbcs, limit);
    if (length > limit) length = limit;
    lmbcs[length] = '\0';
    WORD compiledLength = 0, errorLine = 0, errorColumn = 0, errorOffset = 0, errorLength = 0;
    STATUS compileError = NOERROR;
    return NSFFormulaCompile(nullptr, 0, lmbcs, length, compiled, &compiledLength, &compileError, &errorLine,
                             &errorColumn, &errorOffset, &errorLength);
}

STATUS CompileSelectionOrCloseDatabase(DBHANDLE db, const char* formula, WORD formulaLength, char* lmbcs,
                                       size_t size, FORMULAHANDLE* compiled, const char* routine, int line) {
    STATUS status = CompileNativeFormula(formula, formulaLength, lmbcs, size, compiled);
    if (status != NOERROR) {
        LogDebugMessage(0, "[%s:%d]%s Cannot compile the formula! error[%d]\n", kPatchSourceName, line,
                        routine, (int)status);
        NSFDbClose(db);
    }
    return status;
}

bool IsSelectedMatch(const SEARCH_MATCH* match) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    return (found.SERetFlags & SE_FMATCH) != 0;
}

NOTEID MatchedNoteId(const SEARCH_MATCH* match) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    return found.ID.NoteID;
}

DBHANDLE SearchedDatabase(const void* parameter) {
    DBHANDLE db;
    std::memcpy(&db, parameter, sizeof db);
    return db;
}

STATUS OpenMatchedNote(const void* parameter, const SEARCH_MATCH* match, NOTEHANDLE* note) {
    return NSFNoteOpen(SearchedDatabase(parameter), MatchedNoteId(match), 0, note);
}

bool HasItem(NOTEHANDLE note, const char* item) {
    return NSFItemInfo(note, item, static_cast<WORD>(std::strlen(item)), nullptr, nullptr, nullptr,
                       nullptr) == NOERROR;
}

bool ReadPresentItemText(NOTEHANDLE note, const char* item, char* text, size_t size, WORD limit) {
    if (!HasItem(note, item)) return false;
    std::memset(text, 0, size);
    NSFItemGetText(note, item, text, limit);
    text[size - 1] = '\0';
    return true;
}

void FormatNoteUNID(NOTEHANDLE note, char* text, size_t size) {
    ORIGINATORID oid;
    std::memset(&oid, 0, sizeof oid);
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    // What "%08X%08X%08X%08X" gives, without the format parser: this runs for every note a step touches.
    const DWORD parts[] = {oid.File.Innards[1], oid.File.Innards[0], oid.Note.Innards[1], oid.Note.Innards[0]};
    static const char kDigits[] = "0123456789ABCDEF";
    char hex[33] = {};
    for (size_t part = 0; part < 4; ++part)
        for (size_t digit = 0; digit < 8; ++digit) hex[part * 8 + digit] = kDigits[(parts[part] >> (28 - 4 * digit)) & 0xF];
    if (size == 0) return;
    size_t length = std::min(size - 1, sizeof hex - 1);
    std::memcpy(text, hex, length);
    text[length] = '\0';
}

void LoadStatusText(STATUS status, char* text, size_t size) {
    std::memset(text, 0, size);
    OSLoadString(NULLHANDLE, ERR(status), text, static_cast<WORD>(size - 1));
    text[size - 1] = '\0';
}
