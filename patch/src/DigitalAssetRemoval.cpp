// RemoveDuplicatedUserDefinedDigitalAssert: deletes the known duplicated user-defined digital
// assets ("dictionary" and "entity" documents) of the configuration database that are neither
// pre-defined nor referred to. The update driver runs it before any file is replaced.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmisc.h"

#include <strings.h>

#include <cstring>
#include <vector>

#include "ConfigMigration.h"
#include "PatchRPX.h"
#include "RkFormat.h"

namespace {

const char kAssetFormula[] = "Form=\"dictionary\" | Form=\"entity\"";
constexpr size_t kFormulaSize = 1024;
constexpr size_t kItemTextSize = 256;

const char* const kDuplicatedAssetUnids[] = {
    "026196EE7CA8DA4788257DDB00338EAE", "04F4B1069028343288257DDB00338E95",
    "07F523336A88406088257DDB00338E96", "08B7273F2ACA943788257DDB00338EB0",
    "08E5342F6EC1C2DB88257DDB00338E99", "09E9BECF0977178D88257DDB00338EAA",
    "0B040F8520AA780F88257DDB00338EB2", "0B519BFFC4EA161788257DDB00338EAB",
    "0FA922E0B6FF41FF88257DDB00338EA6", "18DC36F3F2C9280088257DDB00338E97",
    "19D3118303713CE088257DDB00338E9B", "1CCEC6D246472BDC88257DDB00338EA9",
    "2B9AFE02840CA78188257DDB00338E9F", "4D3BD2401DD374CF88257DDB00338E90",
    "552AB48AF0F907FD88257DDB00338EA8", "58B65AC7A1F179F388257DDB00338E9E",
    "63261E2835B9145F88257DDB00338E9C", "6FA04D25C7248A8788257DDB00338E9D",
    "714B721F0B7C10C988257DDB00338E94", "7865E5102B54616D88257DDB00338EA2",
    "7A9F46104C1C45B788257DDB00338E8E", "7E067581F322D0F588257DDB00338E85",
    "7E281576B9233C7388257DDB00338EA3", "8A37958D211BBBD188257DDB00338EAD",
    "8C41F5C4FBE240D388257DDB00338E8B", "8E0BE5991E99163688257DDB00338E98",
    "96C298B2DE9ED72F88257DDB00338E87", "A30D2C6EE6BC027288257DDB00338EAC",
    "A64F34619B76266A88257DDB00338E9A", "A8894B6843D7AACF88257DDB00338E8F",
    "B20C62B8D5B1917088257DDB00338E91", "B9A5018A6E320CCA88257DDB00338E86",
    "B9ED895550336A9188257DDB00338E92", "BAE6BEA78C9BBC6688257DDB00338E8A",
    "BE19C33161CDD3E488257DDB00338E89", "C22979B5FD57D22588257DDB00338EA0",
    "C657406F6150DF7688257DDB00338E88", "CA22F40BC0CDC47B88257DDB00338EA7",
    "D2589AFDF313191688257DDB00338E8D", "D38820D9D5B5772388257DDB00338E8C",
    "D61562F35196F68A88257DDB00338EA5", "E610FBAE4AF2BAE988257DDB00338EA1",
    "E70B0371F1F83A8D88257DDB00338EA4", "EC745AEA9867FC6488257DDB00338EB1",
    "F8BBBF0A8EF0757988257DDB00338E93", "FCC034E15D1E590C88257DDB00338EAF",
};

// The search's parameter record: the searched database first, then where the matches go.
struct DigitalAssetSearchParam {
    DBHANDLE hDb;
    std::vector<NOTEID>* candidates;
};

bool IsPreDefined(NOTEHANDLE note) {
    char value[kItemTextSize];
    std::memset(value, 0, sizeof value);
    NSFItemGetText(note, kPreDefinedItem, value, sizeof value - 1);
    return strcasecmp(value, "true") == 0;
}

bool IsReferredTo(NOTEHANDLE note) {
    char value[kItemTextSize];
    if (!ReadPresentItemText(note, kReferDocsItem, value, sizeof value, sizeof value - 1)) return false;
    return value[0] != '\0';
}

void DeleteCandidates(DBHANDLE hDb, const std::vector<NOTEID>& candidates) {
    for (NOTEID id : candidates) {
        if (NSFNoteDelete(hDb, id, UPDATE_FORCE) != NOERROR) {
            LogDebugMessage(3, "cannot delete note: %0x", (unsigned)id);
        }
    }
}

}  // namespace

void InitDuplicatedUserDefinedDigtalAssertSet() {
    for (const char* unid : kDuplicatedAssetUnids) duplicatedUserDefinedDigtalAssertSet.insert(unid);
}

STATUS LNCALLBACK RemoveDuplicatedUserDefinedDigitalAssertCallback(void* parameter, SEARCH_MATCH* match,
                                                                   ITEM_TABLE* /*summary*/) {
    if (!IsSelectedMatch(match)) return NOERROR;
    DigitalAssetSearchParam* param = static_cast<DigitalAssetSearchParam*>(parameter);
    NOTEHANDLE note = NULLHANDLE;
    STATUS status = OpenMatchedNote(param, match, &note);
    if (status != NOERROR) {
        // The message names another routine: administrators' tools search the log for this text.
        LogDebugMessage(3, "MigrateCFDLPDeleteAttachmentActionCallback, open note failed.");
        return ERR(status);
    }
    // A pre-defined asset's note stays open: the server releases the task's handles at task end.
    if (IsPreDefined(note)) return NOERROR;
    if (!IsReferredTo(note)) {
        char unid[kUnidTextSize];
        FormatNoteUNID(note, unid, sizeof unid);
        if (duplicatedUserDefinedDigtalAssertSet.count(unid) != 0)
            param->candidates->push_back(MatchedNoteId(match));
    }
    NSFNoteClose(note);
    return NOERROR;
}

STATUS RemoveDuplicatedUserDefinedDigitalAssert() {
    InitDuplicatedUserDefinedDigtalAssertSet();
    std::vector<NOTEID> candidates;
    DigitalAssetSearchParam param{NULLHANDLE, &candidates};
    STATUS status = NSFDbOpen(kConfigDatabase, &param.hDb);
    if (status != NOERROR) return status;

    char lmbcs[kFormulaSize];
    FORMULAHANDLE formula = NULLHANDLE;
    // The compile failure names another routine: administrators' tools search the log for it.
    status = CompileSelectionOrCloseDatabase(param.hDb, kAssetFormula, sizeof kAssetFormula - 1, lmbcs, sizeof lmbcs,
                                             &formula, "UpdateRpency", __LINE__);
    if (status != NOERROR) return status;
    status = NSFSearch(param.hDb, formula, nullptr, 0, NOTE_CLASS_ALL, nullptr,
                       RemoveDuplicatedUserDefinedDigitalAssertCallback, &param, nullptr);
    if (status != NOERROR) LogDebugMessage(3, "NSFSearch failed for template");
    // Deleting only after the search ends keeps the walk over an unchanged database.
    DeleteCandidates(param.hDb, candidates);
    NSFDbClose(param.hDb);
    return status;  // the compiled formula is not freed: the server frees the task's memory at its end
}
