// The configuration migration of rpx/rpconf.nsf and the fix-ups of its documents that the update
// driver runs: the shared UNID collections and the three entry points.
#ifndef CONFIG_MIGRATION_H
#define CONFIG_MIGRATION_H

#include <map>
#include <set>
#include <string>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

// The configuration database and the items its DLP documents share.
constexpr char kConfigDatabase[] = "rpx/rpconf.nsf";
constexpr char kPreDefinedItem[] = "pre-defined";
constexpr char kReferDocsItem[] = "ReferDocs";
constexpr char kUseDocsItem[] = "UseDocs";

// UNID of an obsolete document of rpx/rpconf.nsf -> UNID of the document that replaces it.
extern std::map<std::string, std::string> m_nsf_ObsoleteUNIDMap;
// UNIDs of obsolete documents of rpx/rpconf.nsf.
extern std::set<std::string> m_nsf_ObsoleteUNIDSet;
// UNIDs of duplicated user-defined digital-asset documents ("Digtal" is the intended spelling).
extern std::set<std::string> duplicatedUserDefinedDigtalAssertSet;

// Gives the predefined content-filter expressions their fixed document IDs and links.
STATUS UpdateExpresionDocID();
// Its search callback, for each document of the form "Expression". Always 0.
STATUS LNCALLBACK UpdateExpresionProc(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);
// Deletes the known duplicated user-defined digital assets nothing refers to.
STATUS RemoveDuplicatedUserDefinedDigitalAssert();
// Migrates the documents of rpx/rpconf.nsf once its new template has been applied.
STATUS UpdateRPXConfigue();

// The steps of the migration, called by UpdateRPXConfigue on the open configuration database.
// "$ConflictAction" of every "Register" document set to "3". 1, 0 when the search failed, or a compile
// status.
STATUS ChangeConflictAction(DBHANDLE hDb);
// "DefaultRule" kept only on the shipped default document of each policy form.
STATUS CheckDefaultPolicies(DBHANDLE hDb);
// Brings the DLP documents of the configuration database up to the template's; fills the two
// obsolete-document collections. Always 0.
STATUS UpgradeDLPDocumentFromNTFtoNSF(DBHANDLE hTemplate, DBHANDLE hDb);
// Lists each UNID of the set at level 1, in order.
void OutputObsoleteSet(const std::set<std::string>& unids);
// Lists each pair of the map at level 3, in order.
void OutputSet(const std::map<std::string, std::string>& unids);
// Drops the obsolete UNIDs from "ReferDocs" and "UseDocs" of the DLP documents.
STATUS RemoveObsoleteUNID(DBHANDLE hDb);
// Puts each replacing UNID where its obsolete one stood in "matchRule" of the template documents.
STATUS ReplaceObsoleteUNID(DBHANDLE hDb);

// The search callbacks of the steps above; each takes a pointer to the database handle.
STATUS LNCALLBACK ChangeConflictActionCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);
STATUS LNCALLBACK ProcessDefaultPolicies(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

// Puts the UNIDs of the known duplicated digital assets into duplicatedUserDefinedDigtalAssertSet.
void InitDuplicatedUserDefinedDigtalAssertSet();
// Collects the matched note when it is a listed, unreferred, not pre-defined duplicate. Ends the
// search with the status of a note that cannot be opened.
STATUS LNCALLBACK RemoveDuplicatedUserDefinedDigitalAssertCallback(void* parameter, SEARCH_MATCH* match,
                                                                   ITEM_TABLE* summary);

#endif
