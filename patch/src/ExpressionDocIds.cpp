// The fix-up of the content-filter expressions of rpx/rpconf.nsf: every "Expression" document's
// "DocID" becomes its own UNID, and a predefined expression gains, in "RefContent", the UNID of
// the predefined document that refers to it. The expressions and those UNIDs come from
// patch/data/expression_table.tsv, turned into ExpressionTable.inc when the module is built.
#include "global.h"

#include <cstring>
#include <map>
#include <string>

#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmisc.h"

#include "ConfigMigration.h"
#include "PatchRPX.h"
#include "RkFormat.h"

namespace {

using ExpressionTable = std::map<std::string, std::string>;

struct ExpressionRow {
    const char* expression;
    const char* unid;
};

const ExpressionRow kExpressionRows[] = {
#include "ExpressionTable.inc"
};

// What the search hands to UpdateExpresionProc; the database handle comes first, as in every
// search parameter record of the patch.
struct ExpressionSearchParam {
    DBHANDLE hDb;
    ExpressionTable* table;
};

const char kExpressionFormula[] = "FORM=\"Expression\"";
const size_t kFormulaSize = 32;
const int kCompileErrorLine = 2299;  // log readers match this position, not the source's own line

const int kTableLogLevel = 3;

void FillExpressionTable(ExpressionTable& table) {
    for (const ExpressionRow& row : kExpressionRows) table[row.expression] = row.unid;
}

void LogExpressionTable(const ExpressionTable& table) {
    for (const auto& row : table) {
        LogDebugMessage(kTableLogLevel, "\tgMap[\"%s\"]=\"%s\";", row.first.c_str(), row.second.c_str());
    }
}

const char kDocIdItem[] = "DocID";
const char kExpressionItem[] = "Expression";
const char kRefContentItem[] = "RefContent";
const size_t kFieldSize = 256;
const WORD kFieldReadLimit = 255;

// An item's text into text (kFieldSize bytes, zeroed here); a missing item reads as "".
void ReadFieldText(NOTEHANDLE note, const char* item, char* text) {
    std::memset(text, 0, kFieldSize);
    WORD length = NSFItemGetText(note, item, text, kFieldReadLimit);
    if (length > kFieldReadLimit) length = kFieldReadLimit;
    text[length] = '\0';
}

}  // namespace

STATUS LNCALLBACK UpdateExpresionProc(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    if (!IsSelectedMatch(match)) return NOERROR;
    ExpressionSearchParam* param = static_cast<ExpressionSearchParam*>(parameter);

    NOTEHANDLE note = NULLHANDLE;
    STATUS status = OpenMatchedNote(param, match, &note);
    if (status != NOERROR) {
        LogDebugMessage(kTableLogLevel, "NSFNoteOpen error %d", (int)status);
        return NOERROR;
    }
    char unid[kFieldSize];
    char docId[kFieldSize];
    char expression[kFieldSize];
    std::memset(unid, 0, sizeof unid);
    FormatNoteUNID(note, unid, kFieldSize - 1);
    ReadFieldText(note, kDocIdItem, docId);
    ReadFieldText(note, kExpressionItem, expression);

    if (std::strcmp(unid, docId) != 0) {
        NSFItemSetText(note, kDocIdItem, unid, static_cast<WORD>(std::strlen(unid)));
    }
    auto row = param->table->find(expression);
    if (row != param->table->end()) {
        NSFItemAppendTextList(note, kRefContentItem, row->second.c_str(), static_cast<WORD>(row->second.size()),
                              FALSE);
    }
    // Saved even when nothing changed: the forced save gives every expression a new sequence
    // number, so replicas pick up the fixed IDs.
    NSFNoteUpdate(note, UPDATE_FORCE);
    NSFNoteClose(note);
    return NOERROR;
}

STATUS UpdateExpresionDocID() {
    ExpressionTable gMap;
    FillExpressionTable(gMap);

    ExpressionSearchParam param{NULLHANDLE, &gMap};
    if (NSFDbOpen(kConfigDatabase, &param.hDb) == NOERROR) {
        char lmbcs[kFormulaSize];
        FORMULAHANDLE formula = NULLHANDLE;
        STATUS status = CompileSelectionOrCloseDatabase(param.hDb, kExpressionFormula, sizeof kExpressionFormula - 1,
                                                        lmbcs, sizeof lmbcs, &formula, "UpdateRpency",
                                                        kCompileErrorLine);
        if (status != NOERROR) return status;
        NSFSearch(param.hDb, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, UpdateExpresionProc, &param,
                  nullptr);
        NSFDbClose(param.hDb);  // the compiled formula is not freed: the server frees it at task end
    }
    LogExpressionTable(gMap);
    return NOERROR;
}
