// UpdateRpency: finds out whether the pattern database holds old-format pattern documents and, if
// so, takes it offline and creates it afresh from its template with the old ACL.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"

#include <cstring>

#include "DatabaseMaintenance.h"

namespace {

// The rebuild writes every line at level 0, unlike the other steps; the level is part of the
// log's fixed output.
const int kRebuildLogLevel = 0;

const char kPatternTemplate[] = "rpx/rpency.ntf";
const char kPatternFormula[] = "FORM=\"Patternfile\"";
const char kVersionItem[] = "InternalPVer";
const size_t kFormulaSize = 32;
const size_t kVersionSize = 32;
const int kCompileErrorLine = 2071;  // log readers match this position, not the source's own line
const DWORD kFixedReplicaIdLow = 0x001E96E4;
const DWORD kFixedReplicaIdHigh = 0x852552F9;

bool HasOldVersionText(NOTEHANDLE note) {
    if (NSFItemInfo(note, kVersionItem, sizeof kVersionItem - 1, nullptr, nullptr, nullptr, nullptr) !=
        NOERROR) {
        return false;
    }
    char version[kVersionSize];
    std::memset(version, 0, sizeof version);
    NSFItemGetText(note, kVersionItem, version, sizeof version);
    version[kVersionSize - 1] = '\0';
    return std::strchr(version, '.') == nullptr;
}

STATUS CompilePatternFormula(FORMULAHANDLE* formula) {
    char text[kFormulaSize];
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, kPatternFormula, sizeof kPatternFormula - 1, text,
                              kFormulaSize - 1);
    if (length > kFormulaSize - 1) length = kFormulaSize - 1;
    text[length] = '\0';
    WORD formulaLength = 0, compileError = 0, errorLine = 0, errorColumn = 0, errorOffset = 0,
         errorLength = 0;
    return NSFFormulaCompile(nullptr, 0, text, length, formula, &formulaLength, &compileError, &errorLine,
                             &errorColumn, &errorOffset, &errorLength);
}

// Sets *oldFormat when the pattern database holds an old-format pattern document, and then reads
// its ACL into *acl. Returns a formula compile error, else 0 (also without a pattern database).
STATUS FindOldPatternFormat(int* oldFormat, DHANDLE* acl) {
    PatternSearchParam param;
    if (NSFDbOpen(kPatternDatabase, &param.hDb) != NOERROR) return NOERROR;

    FORMULAHANDLE formula = NULLHANDLE;
    STATUS status = CompilePatternFormula(&formula);
    if (status != NOERROR) {
        LogDebugMessage(kRebuildLogLevel, "[%s:%d]UpdateRpency Cannot compile the formula! error[%d]\n",
                        kPatchSourceName, kCompileErrorLine, (int)status);
        NSFDbClose(param.hDb);
        return status;
    }
    NSFSearch(param.hDb, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CheckPatternVersionFormat, &param,
              nullptr);
    if (param.oldFormat) {
        NSFDbReadACL(param.hDb, acl);
        *oldFormat = 1;
    }
    NSFDbClose(param.hDb);
    return NOERROR;  // the compiled formula stays: the server frees the task's memory at task end
}

// Creates the pattern database from its template, gives it the fixed replica ID and stores acl.
// 0 or the create status.
STATUS RecreatePatternDatabase(DHANDLE acl) {
    DBHANDLE db = NULLHANDLE;
    STATUS status = NSFDbCreateAndCopy(kPatternTemplate, kPatternDatabase, NOTE_CLASS_ALL, 0x1000, 0, &db);
    if (status != NOERROR) {
        LogDebugMessage(kRebuildLogLevel, "Failed to recreate rpency.nsf, Error: %X", (unsigned)status);
        return status;
    }
    DBREPLICAINFO info;
    std::memset(&info, 0, sizeof info);
    NSFDbReplicaInfoGet(db, &info);
    info.ID.Innards[0] = kFixedReplicaIdLow;
    info.ID.Innards[1] = kFixedReplicaIdHigh;
    NSFDbReplicaInfoSet(db, &info);
    NSFDbStoreACL(db, acl, 0, 0);
    LogDebugMessage(kRebuildLogLevel, "Success created new rpency.nsf");
    return NOERROR;  // the new database and the ACL stay open: the server frees them at task end
}

}  // namespace

STATUS LNCALLBACK CheckPatternVersionFormat(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found);
    if (!(found.SERetFlags & SE_FMATCH)) return NOERROR;
    PatternSearchParam* param = static_cast<PatternSearchParam*>(parameter);
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpen(param->hDb, found.ID.NoteID, 0, &note) != NOERROR) return NOERROR;
    if (HasOldVersionText(note)) param->oldFormat = 1;
    NSFNoteClose(note);
    return NOERROR;
}

STATUS UpdateRpency() {
    int oldFormat = 0;
    DHANDLE acl = NULLHANDLE;
    STATUS status = FindOldPatternFormat(&oldFormat, &acl);
    if (status != NOERROR) return status;
    if (!oldFormat) return NOERROR;

    LogDebugMessage(kRebuildLogLevel, "rpency.nsf is old format, recreate it");
    status = TakeDatabaseOfflineWhenFree(kPatternDatabase, 0, false);
    if (status != NOERROR) {
        LogDebugMessage(kRebuildLogLevel, "Failed to delete original RPX V3 rpency.nsf, Error: %X",
                        (unsigned)status);
        return status;
    }
    return RecreatePatternDatabase(acl);
}
