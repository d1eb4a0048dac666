// The DLP template upgrade: every document of the eight DLP forms of rpx/rpconf.ntf is brought
// into rpx/rpconf.nsf, matched by its "name". Missing documents are copied in; pre-defined ones
// are deleted and recreated from the template under their old UNID with their old references
// kept; the administrator's own documents are left alone. Template UNIDs given up on the way go
// into the obsolete collections for the reference cleanup.
#include "global.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "osmisc.h"

#include <strings.h>

#include <cstring>
#include <set>
#include <string>

#include "ConfigMigration.h"
#include "DLPTemplateUpgrade.h"
#include "ObsoleteReferenceCleanup.h"
#include "PatchRPX.h"
#include "RkFormat.h"
#include "RkLMBCS.h"

namespace {

const char* const kDLPForms[] = {"dictionary",  "entity",   "template", "dictionary_type",
                                 "entity_type", "industry", "region",   "validator"};
const char kNameItem[] = "name";
const char kOut[] = "SearchFormDocumentCallback OUT";

const STATUS kTopStatusBits = 0xC000;

int LowWord(STATUS status) {
    return static_cast<int>(static_cast<WORD>(status));
}

// The platform's text of a status, for the failure messages.
struct ErrorText {
    explicit ErrorText(STATUS status) { LoadStatusText(status, text, sizeof text); }
    char text[kErrorTextSize];
};

// Logs a failed call as "<call> error. sError is <n>, czErrorMessage is <text>..."; true when
// status is 0.
bool CallSucceeded(STATUS status, const char* call) {
    if (status == NOERROR) return true;
    LogDebugMessage(1, "%s error. sError is %d, czErrorMessage is %s...", call, LowWord(status),
                    ErrorText(status).text);
    return false;
}

NOTEID NoteIdOf(NOTEHANDLE note) {
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    return id;
}

constexpr size_t kNameSize = 1024;

// The identifying item in the native character set; empty when absent or empty.
std::string ReadNativeName(NOTEHANDLE note, const char* item) {
    char lmbcs[kNameSize];
    std::memset(lmbcs, 0, sizeof lmbcs);
    WORD length = NSFItemGetText(note, item, lmbcs, sizeof lmbcs);
    if (length == 0) return std::string();
    char native[kNameSize];
    std::memset(native, 0, sizeof native);
    WORD nativeLength = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, lmbcs, length, native, sizeof native - 1);
    native[nativeLength < sizeof native ? nativeLength : sizeof native - 1] = '\0';
    return native;
}

constexpr size_t kPredefinedSize = 4096;

bool IsPredefined(NOTEHANDLE note) {
    char value[kPredefinedSize];
    std::memset(value, 0, sizeof value);
    NSFItemGetText(note, kPreDefinedItem, value, sizeof value);
    return strcasecmp(value, "true") == 0;
}

struct References {
    std::set<std::string> referDocs;
    std::set<std::string> useDocs;
};

References ReadReferences(NOTEHANDLE note) {
    References references;
    GetTextListfield(note, kReferDocsItem, references.referDocs);
    GetTextListfield(note, kUseDocsItem, references.useDocs);
    return references;
}

constexpr size_t kFormulaSize = 512;

// Shared by the database search and the template search: the form's selection, the walk and
// its failure messages. routine names the caller in its messages.
STATUS SearchFormDocuments(DBHANDLE hSearched, const char* form, NSFSEARCHPROC callback, void* parameter,
                           const char* routine) {
    LogDebugMessage(1, "%s IN", routine);
    char formula[kFormulaSize];
    rk_snprintf(formula, sizeof formula, "Form=\"%s\"", form);
    char lmbcs[kFormulaSize];
    FORMULAHANDLE compiled = NULLHANDLE;
    STATUS status =
        CompileNativeFormula(formula, static_cast<WORD>(std::strlen(formula)), lmbcs, sizeof lmbcs, &compiled);
    if (status != NOERROR) {
        LogDebugMessage(1, "Fail to compile %s", routine);
        return status;
    }
    // The compiled formula is not freed: the task ends soon after the migration.
    status = NSFSearch(hSearched, compiled, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, callback, parameter, nullptr);
    // Both searches report a failure under the database search's name: log readers match this text.
    if (status != NOERROR) LogDebugMessage(1, "NSFSearch failed for SearchFormDocByDatabase");
    return status;
}

// Step for a template document whose name the database lacks: copied in. True when the
// callback's closing line is due.
bool CopyMissingDocument(const UpgradeDLPDocParam& param, NOTEHANDLE templateNote, NOTEID templateId,
                         const std::string& name) {
    LogDebugMessage(1, "not find %s, add to nsf", name.c_str());
    NOTEID copyId = 0;
    STATUS status = NSFDbCopyNote(param.hTemplate, nullptr, nullptr, templateId, param.hDb, nullptr, nullptr, &copyId,
                                  nullptr);
    if (status != NOERROR) {
        LogDebugMessage(1, "NSFDbCopyNote error. old notesid=%d, sError is %d, czErrorMessage is %s...",
                        static_cast<int>(templateId), LowWord(status), ErrorText(status).text);
        return false;
    }
    LogDebugMessage(1, "NSFDbCopyNote success");
    char templateUnid[kUnidTextSize];
    FormatNoteUNID(templateNote, templateUnid, sizeof templateUnid);
    LogDebugMessage(1, "NSFNoteGetInfo success");
    LogDebugMessage(1, "rk_snprintf success");
    LogDebugMessage(1, "szdlpdocUNID is %s, tmpunid is %s", "", templateUnid);
    // A later template document of the same name now finds this one.
    param.names->emplace(name, templateUnid);
    LogDebugMessage(1, "UpgradeFormDocumentsWithIdentifiedFiledCallBack copy document %s:%s success", name.c_str(),
                    templateUnid);
    return true;
}

// Deletes a DLP note, logging "Delete <which> dlp template error..." or "... <succeeded>.
// notesid=<n>". The two deletions spell the success word differently and log readers match each,
// so it is passed in.
bool DeleteDLPNote(DBHANDLE hDb, NOTEID noteId, const char* which, const char* succeeded) {
    STATUS status = NSFNoteDelete(hDb, noteId, UPDATE_FORCE);
    if (status != NOERROR) {
        LogDebugMessage(1, "Delete %s dlp template error. notesid=%d, sError is %d, czErrorMessage is %s...", which,
                        static_cast<int>(noteId), LowWord(status), ErrorText(status).text);
        return false;
    }
    LogDebugMessage(1, "Delete %s dlp template %s. notesid=%d", which, succeeded, static_cast<int>(noteId));
    return true;
}

// Appends to the recreated note each old entry of item that the template's version lacks.
bool KeepOldEntries(NOTEHANDLE note, const char* item, const std::set<std::string>& oldEntries,
                    const std::set<std::string>& newEntries) {
    for (const std::string& entry : oldEntries) {
        if (newEntries.count(entry) != 0) continue;
        LogDebugMessage(1, "buf: %s cannot be found in ori ntf doc %s.", entry.c_str(), item);
        STATUS status = NSFItemAppendTextList(note, item, entry.c_str(), static_cast<WORD>(entry.size()), FALSE);
        if (!CallSucceeded(status, "NSFItemAppendTextList")) return false;
        LogDebugMessage(1, "NSFItemAppendTextList success.");
    }
    return true;
}

bool SaveNote(NOTEHANDLE note) {
    if (!CallSucceeded(NSFNoteUpdate(note, UPDATE_FORCE), "NSFNoteUpdate")) return false;
    LogDebugMessage(1, "NSFNoteUpdate success.");
    return true;
}

// Saves a duplicate of the recreated note under oldUnid as a new note and deletes the recreated
// one (copyId). Closes copy in every case.
bool GiveBackOldUnid(DBHANDLE hDb, NOTEHANDLE copy, NOTEID copyId, const std::string& oldUnid) {
    NOTEHANDLE duplicate = NULLHANDLE;
    if (!CallSucceeded(NSFNoteCopy(copy, &duplicate), "NSFNoteCopy")) {
        NSFNoteClose(copy);
        return false;
    }
    UNID unid;
    char unidText[kUnidTextSize];
    rk_snprintf(unidText, sizeof unidText, "%s", oldUnid.c_str());
    convertStringToUNID(unidText, &unid);
    ORIGINATORID oid;
    std::memset(&oid, 0, sizeof oid);
    NSFNoteGetInfo(duplicate, _NOTE_OID, &oid);
    oid.File = unid.File;
    oid.Note = unid.Note;
    NSFNoteSetInfo(duplicate, _NOTE_OID, &oid);
    NOTEID newNote = 0;
    NSFNoteSetInfo(duplicate, _NOTE_ID, &newNote);
    bool saved = SaveNote(duplicate);
    NSFNoteClose(duplicate);
    NSFNoteClose(copy);
    if (!saved) return false;

    return DeleteDLPNote(hDb, copyId, "temp", "sucess");
}

// After the original (UNID oldUnid) was deleted: the template document copied in, the old
// references added back, and the old UNID restored when the copy has another one.
bool RecreateFromTemplate(const UpgradeDLPDocParam& param, NOTEID templateId, const std::string& oldUnid,
                          const References& oldReferences) {
    NOTEID copyId = 0;
    STATUS status = NSFDbCopyNote(param.hTemplate, nullptr, nullptr, templateId, param.hDb, nullptr, nullptr, &copyId,
                                  nullptr);
    if (status != NOERROR) {
        LogDebugMessage(1, "NSFDbCopyNote error. old notesid=%d, new notesid=%d, sError is %d, czErrorMessage is %s...",
                        static_cast<int>(templateId), static_cast<int>(copyId), LowWord(status),
                        ErrorText(status).text);
        return false;
    }
    LogDebugMessage(1, "NSFDbCopyNote success. old notesid=%d, new notesid=%d", static_cast<int>(templateId),
                    static_cast<int>(copyId));

    NOTEHANDLE copy = NULLHANDLE;
    status = NSFNoteOpen(param.hDb, copyId, 0, &copy);
    if (status != NOERROR) {
        LogDebugMessage(1, "NSFNoteOpen error. notesid=%d, sError is %d, czErrorMessage is %s...",
                        static_cast<int>(copyId), LowWord(status), ErrorText(status).text);
        return false;
    }
    LogDebugMessage(1, "NSFNoteOpen success. notesid=%d", static_cast<int>(copyId));
    char copyUnid[kUnidTextSize];
    FormatNoteUNID(copy, copyUnid, sizeof copyUnid);
    copyId = NoteIdOf(copy);
    References newReferences = ReadReferences(copy);

    if (!KeepOldEntries(copy, kReferDocsItem, oldReferences.referDocs, newReferences.referDocs) ||
        !KeepOldEntries(copy, kUseDocsItem, oldReferences.useDocs, newReferences.useDocs) || !SaveNote(copy)) {
        NSFNoteClose(copy);
        return false;
    }
    LogDebugMessage(1, "The doc copied from ntf: notesid=%d, unid is %s", static_cast<int>(copyId), copyUnid);

    if (strcasecmp(oldUnid.c_str(), copyUnid) == 0) {
        NSFNoteClose(copy);
        return true;
    }
    LogDebugMessage(1, "The UNID is different, need action!");
    if (!GiveBackOldUnid(param.hDb, copy, copyId, oldUnid)) return false;
    m_nsf_ObsoleteUNIDSet.insert(copyUnid);
    m_nsf_ObsoleteUNIDMap.emplace(copyUnid, oldUnid);
    return true;
}

// Step for a template document whose name the database has (as document dbUnid). True when
// the callback's closing line is due.
bool UpgradeExistingDocument(const UpgradeDLPDocParam& param, NOTEID templateId, const std::string& name,
                             const std::string& dbUnid) {
    LogDebugMessage(1, "current nsf doc name %s,unid:%s", name.c_str(), dbUnid.c_str());
    char unidText[kUnidTextSize];
    rk_snprintf(unidText, sizeof unidText, "%s", dbUnid.c_str());
    UNID unid;
    convertStringToUNID(unidText, &unid);
    NOTEHANDLE original = NULLHANDLE;
    if (NSFNoteOpenByUNID(param.hDb, &unid, 0, &original) != NOERROR) {
        LogDebugMessage(1, "NSFNoteOpenByUNID, open note failed.");
        return false;
    }
    if (!IsPredefined(original)) {
        // The administrator's document stays open as well as untouched: the server releases
        // the task's handles when the task ends.
        LogDebugMessage(1, "%s is find in nsf, it is NOT predefine", name.c_str());
        return true;
    }
    LogDebugMessage(1, "%s is find in nsf, it is predefine", name.c_str());
    if (HasItem(original, kReferDocsItem)) {
        LogDebugMessage(1, "%s is used by any rule or template, try to delete and recreate", name.c_str());
    } else {
        LogDebugMessage(1, "%s is NOT used by any rule or template, try to delete and recreate", name.c_str());
    }
    References oldReferences = ReadReferences(original);
    NOTEID originalId = NoteIdOf(original);
    NSFNoteClose(original);
    if (!DeleteDLPNote(param.hDb, originalId, "original", "Success")) return false;
    return RecreateFromTemplate(param, templateId, dbUnid, oldReferences);
}

}  // namespace

STATUS UpgradeDLPDocumentFromNTFtoNSF(DBHANDLE hTemplate, DBHANDLE hDb) {
    LogDebugMessage(1, "UpgradeDLPDocumentFromNTFtoNSF IN");
    if (hTemplate == NULLHANDLE || hDb == NULLHANDLE) {
        LogDebugMessage(1, "ERROR: hDatabase or hTempalte is 0, quit");
        return NOERROR;
    }
    for (const char* form : kDLPForms) UpgradeDLPFormFromNTFtoNSF(hTemplate, hDb, form, kNameItem);
    return NOERROR;
}

STATUS UpgradeDLPFormFromNTFtoNSF(DBHANDLE hTemplate, DBHANDLE hDb, const char* form, const char* itemName) {
    DLPNameMap names;
    STATUS status = SearchFormDocByDatabase(hDb, form, itemName, names);
    if (status != NOERROR) {
        LogDebugMessage(1, "error to get form: %s document", form);
        return status & ~kTopStatusBits;
    }
    LogDebugMessage(1, "===========%s start==============", form);
    OutputSet(names);
    LogDebugMessage(1, "===========%s end==============", form);
    status = UpgradeFormDocumentsWithIdentifiedFiled(hTemplate, hDb, form, itemName, names);
    if (status != NOERROR) {
        LogDebugMessage(1, "upgrade dlp documetn from ntf to nsf error, form: %s ,return", form);
        return status & ~kTopStatusBits;
    }
    return NOERROR;
}

STATUS SearchFormDocByDatabase(DBHANDLE hDb, const char* form, const char* itemName, DLPNameMap& names) {
    SearchDLPDocParam param{hDb, &names, itemName};
    STATUS status = SearchFormDocuments(hDb, form, SearchFormDocumentCallback, &param, "SearchFormDocByDatabase");
    if (status == NOERROR) {
        LogDebugMessage(1, "NSFSearch success to get form: %s documents with size: %d ", form,
                        static_cast<int>(names.size()));
    }
    return status;
}

STATUS UpgradeFormDocumentsWithIdentifiedFiled(DBHANDLE hTemplate, DBHANDLE hDb, const char* form,
                                               const char* itemName, DLPNameMap& names) {
    UpgradeDLPDocParam param{hTemplate, hDb, &names, itemName};
    STATUS status = SearchFormDocuments(hTemplate, form, UpgradeFormDocumentsWithIdentifiedFiledCallBack, &param,
                                        "UpgradeFormDocumentsWithIdentifiedFiled");
    if (status == NOERROR) LogDebugMessage(1, "Update form documents: %s  success ", form);
    return status;
}

STATUS LNCALLBACK SearchFormDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
    LogDebugMessage(1, "SearchFormDocumentCallback IN");
    const SearchDLPDocParam& param = *static_cast<const SearchDLPDocParam*>(parameter);
    if (param.names == nullptr) {
        LogDebugMessage(1, "SearchDLPDocParam's set is null");
        return NOERROR;
    }
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpen(param.hDb, MatchedNoteId(match), 0, &note) != NOERROR) {
        // Another routine's name: administrators' tools search the debug log for this exact text.
        LogDebugMessage(1, "MigrateManualScanSettingCallback, open note failed.");
        return NOERROR;
    }
    // The note is not closed on any path: the server releases the task's handles when it ends.
    std::string name = ReadNativeName(note, param.itemName);
    if (!name.empty()) {
        char unid[kUnidTextSize];
        FormatNoteUNID(note, unid, sizeof unid);
        param.names->emplace(name, unid);
    }
    LogDebugMessage(1, "%s", kOut);
    return NOERROR;
}

STATUS LNCALLBACK UpgradeFormDocumentsWithIdentifiedFiledCallBack(void* parameter, SEARCH_MATCH* match,
                                                                  ITEM_TABLE* /*summary*/) {
    LogDebugMessage(1, "UpgradeFormDocumentsWithIdentifiedFiledCallBack IN");
    const UpgradeDLPDocParam& param = *static_cast<const UpgradeDLPDocParam*>(parameter);
    if (param.names == nullptr) {
        LogDebugMessage(1, "SearchDLPDocParam's map is null");
        return NOERROR;
    }
    NOTEID templateId = MatchedNoteId(match);
    NOTEHANDLE templateNote = NULLHANDLE;
    if (NSFNoteOpen(param.hTemplate, templateId, 0, &templateNote) != NOERROR) {
        LogDebugMessage(1, "open rpconfntf failed.");
        return NOERROR;
    }
    // The template note is not closed: the server releases the task's handles when it ends.
    std::string name = ReadNativeName(templateNote, param.itemName);
    bool done = true;
    if (!name.empty()) {
        auto known = param.names->find(name);
        if (known == param.names->end()) {
            done = CopyMissingDocument(param, templateNote, templateId, name);
        } else {
            std::string dbUnid = known->second;
            done = UpgradeExistingDocument(param, templateId, name, dbUnid);
        }
    }
    if (done) LogDebugMessage(1, "%s", kOut);
    return NOERROR;
}
