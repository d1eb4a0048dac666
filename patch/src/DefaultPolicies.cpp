// ChangeConflictAction and CheckDefaultPolicies: two document fixes of the configuration database
// made right after its design has been reloaded, each a formula search with a per-note callback.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmisc.h"

#include <strings.h>

#include <cstring>

#include "ConfigMigration.h"
#include "PatchRPX.h"

namespace {

// The default-policy fix: "DefaultRule" stays only on the shipped default of each form.
const char kDefaultRuleFormula[] = "DefaultRule=\"1\"";
const char kDefaultRuleItem[] = "DefaultRule";
const char kFormItem[] = "Form";
constexpr size_t kFormSize = 64;

// The shipped default document of each form, known by the note part of its originator ID.
struct ShippedDefault {
    const char* form;
    DWORD noteHigh;
    DWORD noteLow;
};

const ShippedDefault kShippedDefaults[] = {
    {"Policy", 0xC1256E39, 0x0066396D},
    {"MailConfiguration", 0x48257582, 0x0024ABCC},
    {"LocalSettings", 0x48256E16, 0x002368DD},
    {"DxAgentSettings", 0x4825751A, 0x002F965C},
    {"DTASsetting", 0x48257A23, 0x00200EA2},
};

bool IsShippedDefault(const char* form, const ORIGINATORID& oid) {
    for (const ShippedDefault& row : kShippedDefaults) {
        if (strcasecmp(form, row.form) == 0) {
            return oid.Note.Innards[1] == row.noteHigh && oid.Note.Innards[0] == row.noteLow;
        }
    }
    return false;
}

constexpr size_t kFormulaSize = 32;

// The search both fixes share. *compiled tells a compile failure apart from the search's status.
STATUS SearchConfigDocuments(DBHANDLE* hDb, const char* formula, WORD formulaLength, NSFSEARCHPROC callback,
                             bool* compiled) {
    char lmbcs[kFormulaSize];
    FORMULAHANDLE selection = NULLHANDLE;
    // Both fixes name ChangeConflictAction in the compile failure (log readers match this text);
    // the caller's database is closed then, so its later calls fail.
    STATUS status = CompileSelectionOrCloseDatabase(*hDb, formula, formulaLength, lmbcs, sizeof lmbcs, &selection,
                                                    "ChangeConflictAction", __LINE__);
    *compiled = status == NOERROR;
    if (!*compiled) return status;
    // The compiled formula is not freed: the server frees the task's memory at its end.
    return NSFSearch(*hDb, selection, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, callback, hDb, nullptr);
}

// The matched note when the selection chose it; false for other matches and failed opens.
bool OpenSelectedNote(void* parameter, SEARCH_MATCH* match, NOTEHANDLE* note) {
    return IsSelectedMatch(match) && OpenMatchedNote(parameter, match, note) == NOERROR;
}

// The conflict-action fix: every "Register" document gets the conflict action 3.
const char kRegisterFormula[] = "FORM=\"Register\"";
const char kConflictActionItem[] = "$ConflictAction";
const char kWantedConflictAction[] = "3";
constexpr size_t kConflictActionSize = 32;

bool NeedsConflictAction(NOTEHANDLE note) {
    char value[kConflictActionSize];
    if (!ReadPresentItemText(note, kConflictActionItem, value, sizeof value, sizeof value - 1)) return true;
    return value[0] != kWantedConflictAction[0];
}

}  // namespace

STATUS LNCALLBACK ChangeConflictActionCallback(void* parameter, SEARCH_MATCH* match,
                                               ITEM_TABLE* /*summary*/) {
    NOTEHANDLE note = NULLHANDLE;
    if (!OpenSelectedNote(parameter, match, &note)) return NOERROR;
    if (NeedsConflictAction(note)) {
        NSFItemSetText(note, kConflictActionItem, kWantedConflictAction, sizeof kWantedConflictAction - 1);
        NSFNoteUpdate(note, UPDATE_FORCE);
    }
    NSFNoteClose(note);
    return NOERROR;
}

STATUS LNCALLBACK ProcessDefaultPolicies(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    NOTEHANDLE note = NULLHANDLE;
    if (!OpenSelectedNote(parameter, match, &note)) return NOERROR;
    ORIGINATORID oid;
    std::memset(&oid, 0, sizeof oid);
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    char form[kFormSize];
    std::memset(form, 0, sizeof form);
    NSFItemGetText(note, kFormItem, form, sizeof form - 1);
    if (!IsShippedDefault(form, oid)) {
        NSFItemDelete(note, kDefaultRuleItem, sizeof kDefaultRuleItem - 1);
        NSFNoteUpdate(note, UPDATE_FORCE);
    }
    NSFNoteClose(note);
    return NOERROR;
}

STATUS ChangeConflictAction(DBHANDLE hDb) {
    bool compiled = false;
    STATUS status = SearchConfigDocuments(&hDb, kRegisterFormula, sizeof kRegisterFormula - 1,
                                          ChangeConflictActionCallback, &compiled);
    if (!compiled) return status;
    return status == NOERROR ? 1 : 0;
}

STATUS CheckDefaultPolicies(DBHANDLE hDb) {
    bool compiled = false;
    return SearchConfigDocuments(&hDb, kDefaultRuleFormula, sizeof kDefaultRuleFormula - 1,
                                 ProcessDefaultPolicies, &compiled);
}
