// The obsolete-reference cleanup: after the DLP upgrade, the UNIDs it gave up are dropped from
// "ReferDocs"/"UseDocs" of the DLP documents and replaced in "matchRule" of the template
// documents; and the listings of the obsolete collections in the debug log.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmisc.h"

#include <cstring>
#include <map>
#include <set>
#include <string>

#include "ConfigMigration.h"
#include "ObsoleteReferenceCleanup.h"
#include "PatchRPX.h"
#include "RkFormat.h"

namespace {

constexpr size_t kFormulaSize = 1024;
constexpr size_t kListEntrySize = 8192;

const char kMatchRule[] = "matchRule";

// The two walks are one routine with these constants. Their search-failure messages differ by
// the blank after the first comma: log readers match each text exactly, so neither is evened out.
struct CleanupPass {
    const char* formula;
    NSFSEARCHPROC callback;
    const char* compileFailure;
    const char* searchFailure;
};

const CleanupPass kRemovePass = {
    "Form=\"dictionary\" | Form=\"entity\" | Form=\"template\" | Form=\"dictionary_type\" | "
    "Form=\"entity_type\" | Form=\"industry\" | Form=\"region\" | Form=\"validator\"",
    RemoveObsoleteUNIDCallback,
    "[%s:%d]RemoveObsoleteUNID Cannot compile the formula! error[%d]\n",
    "RemoveObsoleteUNID: NSFSearch failed,error[%d],error message[%s]\n",
};

const CleanupPass kReplacePass = {
    "Form=\"template\"",
    ReplaceObsoleteUNIDCallback,
    "[%s:%d]ReplaceObsoleteUNID Cannot compile the formula! error[%d]\n",
    "ReplaceObsoleteUNID: NSFSearch failed, error[%d],error message[%s]\n",
};

int LowWord(STATUS status) {
    return static_cast<int>(static_cast<WORD>(status));
}

WORD NameLength(const char* item) {
    return static_cast<WORD>(std::strlen(item));
}

STATUS RunCleanupPass(DBHANDLE hDb, const CleanupPass& pass, int line) {
    char lmbcs[kFormulaSize];
    FORMULAHANDLE formula = NULLHANDLE;
    STATUS status =
        CompileNativeFormula(pass.formula, static_cast<WORD>(std::strlen(pass.formula)), lmbcs, sizeof lmbcs, &formula);
    if (status != NOERROR) {
        LogDebugMessage(0, pass.compileFailure, kPatchSourceName, line, static_cast<int>(static_cast<short>(status)));
        return status;
    }
    // The compiled formula is not freed: the task ends soon after the migration.
    status = NSFSearch(hDb, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, pass.callback, &hDb, nullptr);
    if (status != NOERROR) {
        char text[kErrorTextSize];
        LoadStatusText(status, text, sizeof text);
        LogDebugMessage(3, pass.searchFailure, LowWord(status), text);
    }
    return status;
}

// Opens the matched note of a cleanup search, or logs why not (prefix names the callback).
bool OpenMatchedNoteOrLog(void* parameter, const SEARCH_MATCH* match, const char* prefix, NOTEHANDLE& note) {
    if (!IsSelectedMatch(match)) {
        LogDebugMessage(1, "ERR: %s:SearchMatch->SERetFlags & SE_FMATCH", prefix);
        return false;
    }
    if (OpenMatchedNote(parameter, match, &note) != NOERROR) {
        LogDebugMessage(1, "ERR: %s:NSFNoteOpen", prefix);
        return false;
    }
    return true;
}

bool IsObsolete(const std::string& entry) {
    return m_nsf_ObsoleteUNIDSet.count(entry) != 0;
}

bool ListsObsoleteUNID(const std::set<std::string>& entries) {
    for (const std::string& entry : entries) {
        if (IsObsolete(entry)) return true;
    }
    return false;
}

bool MentionsObsoleteUNID(const std::set<std::string>& entries) {
    for (const std::string& entry : entries) {
        for (const std::string& unid : m_nsf_ObsoleteUNIDSet) {
            if (entry.find(unid) != std::string::npos) return true;
        }
    }
    return false;
}

// Each obsolete UNID of the map replaced at its first occurrence, pair after pair.
std::string WithSuccessorUNIDs(const std::string& entry) {
    std::string text = entry;
    LogDebugMessage(3, "original oristr=%s", text.c_str());
    for (const auto& pair : m_nsf_ObsoleteUNIDMap) {
        LogDebugMessage(3, "\tgMap[\"%s\"]=\"%s\";", pair.first.c_str(), pair.second.c_str());
        size_t at = text.find(pair.first);
        if (at == std::string::npos) continue;
        text.replace(at, pair.first.size(), pair.second);
        LogDebugMessage(3, "new oristr=%s", text.c_str());
    }
    return text;
}

// Puts one entry back into the rebuilt list: creates the list for the first entry, appends
// after that. False (logged with the routine's name) when the platform refuses it.
bool PutBackEntry(NOTEHANDLE note, const char* item, const std::string& entry, const char* routine,
                  const char* unid) {
    WORD length = static_cast<WORD>(entry.size());
    bool create = !HasItem(note, item);
    STATUS status = create ? NSFItemCreateTextList(note, item, entry.c_str(), length)
                           : NSFItemAppendTextList(note, item, entry.c_str(), length, FALSE);
    const char* call = create ? "NSFItemCreateTextList" : "NSFItemAppendTextList";
    if (status != NOERROR) {
        char text[kErrorTextSize];
        LoadStatusText(status, text, sizeof text);
        LogDebugMessage(1, "%s: %s error. UNID is %s, sError is %d, czErrorMessage is %s...", routine, call, unid,
                        LowWord(status), text);
        return false;
    }
    LogDebugMessage(1, "%s: %s success.UNID is %s", routine, call, unid);
    return true;
}

// The steps both list rewrites begin with: the note's UNID into unid, the item's entries into
// entries, and the item deleted when needsRewrite(entries). False, logged under routine, when the
// item is missing, needs no rewrite or cannot be deleted.
bool TakeListForRewrite(NOTEHANDLE note, const char* item, const char* routine,
                        bool (*needsRewrite)(const std::set<std::string>&), char (&unid)[kUnidTextSize],
                        std::set<std::string>& entries) {
    FormatNoteUNID(note, unid, sizeof unid);
    if (!HasItem(note, item)) {
        LogDebugMessage(1, "%s:UNID %s field %s is null", routine, unid, item);
        return false;
    }
    GetTextListfield(note, item, entries);
    if (!needsRewrite(entries)) {
        LogDebugMessage(1, "%s: No obsolete UNID exist in this doc UNID %s field %s", routine, unid, item);
        return false;
    }
    STATUS status = NSFItemDelete(note, item, NameLength(item));
    if (status != NOERROR) {
        char text[kErrorTextSize];
        LoadStatusText(status, text, sizeof text);
        LogDebugMessage(1, "%s: NSFItemDelete error. item is %s, UNID is %s, sError is %d, czErrorMessage is %s.",
                        routine, item, unid, LowWord(status), text);
        return false;
    }
    // Both rewrites log the removal's success message, "RemoveTextListfield" included.
    LogDebugMessage(1, "RemoveTextListfield: NSFItemDelete success: item: %s", item);
    return true;
}

}  // namespace

void GetTextListfield(NOTEHANDLE note, const char* item, std::set<std::string>& entries) {
    WORD count = NSFItemGetTextListEntries(note, item);
    for (WORD i = 0; i < count; ++i) {
        char entry[kListEntrySize];
        WORD length = NSFItemGetTextListEntry(note, item, i, entry, sizeof entry - 1);
        entry[length < sizeof entry ? length : sizeof entry - 1] = '\0';
        entries.insert(entry);
    }
}

void RemoveTextListfield(NOTEHANDLE note, const char* item) {
    char unid[kUnidTextSize];
    std::set<std::string> entries;
    if (!TakeListForRewrite(note, item, "RemoveTextListfield", ListsObsoleteUNID, unid, entries)) return;
    for (const std::string& entry : entries) {
        if (IsObsolete(entry)) {
            LogDebugMessage(1, "RemoveTextListfield: Remove the Obsolete UNID %s from %s in doc: %s!", entry.c_str(),
                            item, unid);
            continue;
        }
        // The item name, not the document's UNID, in the second place: log readers match this text.
        LogDebugMessage(1, "RemoveTextListfield: buf: %s is not obsolete in doc %s.", entry.c_str(), item);
        if (!PutBackEntry(note, item, entry, "RemoveTextListfield", unid)) return;
    }
}

void ReplaceTextListfield(NOTEHANDLE note, const char* item) {
    char unid[kUnidTextSize];
    std::set<std::string> entries;
    // Whether to act is decided by the set; the rewrite below uses the map.
    if (!TakeListForRewrite(note, item, "ReplaceTextListfield", MentionsObsoleteUNID, unid, entries)) return;
    for (const std::string& entry : entries) {
        if (!PutBackEntry(note, item, WithSuccessorUNIDs(entry), "ReplaceTextListfield", unid)) return;
    }
}

STATUS LNCALLBACK RemoveObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    NOTEHANDLE note = NULLHANDLE;
    if (!OpenMatchedNoteOrLog(parameter, match, "RemoveObsoleteUNIDCallback", note)) return NOERROR;
    RemoveTextListfield(note, kReferDocsItem);
    RemoveTextListfield(note, kUseDocsItem);
    NSFNoteUpdate(note, UPDATE_FORCE);
    NSFNoteClose(note);
    return NOERROR;
}

STATUS LNCALLBACK ReplaceObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    NOTEHANDLE note = NULLHANDLE;
    if (!OpenMatchedNoteOrLog(parameter, match, "ReplaceObsoleteUNIDCallback", note)) return NOERROR;
    ReplaceTextListfield(note, kMatchRule);
    NSFNoteUpdate(note, UPDATE_FORCE);
    NSFNoteClose(note);
    return NOERROR;
}

STATUS RemoveObsoleteUNID(DBHANDLE hDb) {
    return RunCleanupPass(hDb, kRemovePass, __LINE__);
}

STATUS ReplaceObsoleteUNID(DBHANDLE hDb) {
    return RunCleanupPass(hDb, kReplacePass, __LINE__);
}

void OutputObsoleteSet(const std::set<std::string>& unids) {
    for (const std::string& unid : unids) {
        // The element is the format: it is a UNID text this program formatted, so it holds no '%'.
        LogDebugMessage(1, unid.c_str());
    }
}

void OutputSet(const std::map<std::string, std::string>& unids) {
    for (const auto& pair : unids) LogDebugMessage(3, "\tgMap[\"%s\"]=\"%s\";", pair.first.c_str(), pair.second.c_str());
}
