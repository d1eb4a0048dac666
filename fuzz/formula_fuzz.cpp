// The formula compiler on arbitrary text: a formula that compiles decompiles to text that
// compiles again and decompiles to the same text, and a search with it over a small database ends normally.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmem.h"

#include "FuzzPlatform.h"

namespace {

struct Compiled {
    STATUS status = NOERROR;
    std::string bytes;
};

Compiled Compile(const char* text, size_t length) {
    Compiled result;
    FORMULAHANDLE formula = NULLHANDLE;
    WORD formulaLength = 0, line = 0, column = 0, offset = 0, errorLength = 0;
    STATUS error = NOERROR;
    result.status = NSFFormulaCompile(nullptr, 0, text, static_cast<WORD>(length), &formula, &formulaLength, &error,
                                      &line, &column, &offset, &errorLength);
    if (result.status != NOERROR) return result;
    const char* bytes = static_cast<const char*>(OSLockObject(formula));
    result.bytes.assign(bytes, formulaLength);
    OSUnlockObject(formula);
    OSMemFree(formula);
    return result;
}

bool Decompile(std::string compiled, std::string& text) {
    DHANDLE textHandle = NULLHANDLE;
    WORD length = 0;
    if (NSFFormulaDecompile(&compiled[0], FALSE, &textHandle, &length) != NOERROR) return false;
    const char* chars = static_cast<const char*>(OSLockObject(textHandle));
    text.assign(chars, length);
    OSUnlockObject(textHandle);
    OSMemFree(textHandle);
    return true;
}

void AddNote(DBHANDLE db, const char* form, const char* subject, double number) {
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteCreate(db, &note) != NOERROR) std::abort();
    NSFItemSetText(note, "Form", form, MAXWORD);
    NSFItemSetText(note, "Subject", subject, MAXWORD);
    NSFItemSetNumber(note, "Count", &number);
    NSFNoteUpdate(note, 0);
    NSFNoteClose(note);
}

DBHANDLE& SearchDatabaseHandle() {
    static DBHANDLE db = NULLHANDLE;
    return db;
}

// libFuzzer leaves through exit(): the database is closed before the platform's statics go
// (registered after its first open, so this runs before they are destroyed).
void CloseSearchDatabase() {
    NSFDbClose(SearchDatabaseHandle());
}

DBHANDLE SearchDatabase() {
    static DBHANDLE db = [] {
        std::string path = fuzz::FuzzDataDirectory() + "/search.nsf";
        if (NSFDbCreate(path.c_str(), DBCLASS_NOTEFILE, FALSE) != NOERROR) std::abort();
        DBHANDLE handle = NULLHANDLE;
        if (NSFDbOpen(path.c_str(), &handle) != NOERROR) std::abort();
        AddNote(handle, "Memo", "hello world", 3);
        AddNote(handle, "Patternfile", "1.234.00", -1.5);
        AddNote(handle, "Policy", "", 0);
        SearchDatabaseHandle() = handle;
        std::atexit(CloseSearchDatabase);
        return handle;
    }();
    return db;
}

STATUS LNCALLBACK CountMatch(void* parameter, SEARCH_MATCH* /*match*/, ITEM_TABLE* /*summary*/) {
    ++*static_cast<int*>(parameter);
    return NOERROR;
}

void Search(const std::string& compiled) {
    FORMULAHANDLE formula = NULLHANDLE;
    if (OSMemAlloc(0, static_cast<DWORD>(compiled.size()), &formula) != NOERROR) return;
    std::memcpy(OSLockObject(formula), compiled.data(), compiled.size());
    OSUnlockObject(formula);
    int matches = 0;
    NSFSearch(SearchDatabase(), formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CountMatch, &matches, nullptr);
    OSMemFree(formula);
    if (matches < 0 || matches > 3) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    const char* text = reinterpret_cast<const char*>(data);
    Compiled first = Compile(text, size);
    if (first.status != NOERROR) return 0;
    std::string decompiled;
    if (!Decompile(first.bytes, decompiled)) std::abort();
    // Decompiled text compiles, and decompiles to itself: nothing is lost or changed twice.
    Compiled again = Compile(decompiled.data(), decompiled.size());
    std::string redecompiled;
    if (again.status != NOERROR || !Decompile(again.bytes, redecompiled) || redecompiled != decompiled) std::abort();
    Search(first.bytes);
    return 0;
}
