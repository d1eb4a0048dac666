// The DLP template upgrade of rpx/rpconf.nsf from rpx/rpconf.ntf, form by form ("Filed" is the
// intended spelling). UpgradeDLPDocumentFromNTFtoNSF itself is declared in ConfigMigration.h.
#ifndef DLP_TEMPLATE_UPGRADE_H
#define DLP_TEMPLATE_UPGRADE_H

#include <map>
#include <string>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

// Document name (native text) -> UNID text of the configuration database's document of that name.
using DLPNameMap = std::map<std::string, std::string>;

// Parameter of the database search; begins with the searched database's handle.
struct SearchDLPDocParam {
    DBHANDLE hDb;
    DLPNameMap* names;
    const char* itemName;
};

// Parameter of the template search; begins with the searched template's handle.
struct UpgradeDLPDocParam {
    DBHANDLE hTemplate;
    DBHANDLE hDb;
    DLPNameMap* names;
    const char* itemName;
};

// Upgrades the documents of one form. 0, or the failing status with its two top bits cleared.
STATUS UpgradeDLPFormFromNTFtoNSF(DBHANDLE hTemplate, DBHANDLE hDb, const char* form, const char* itemName);
// Fills names with the database's documents of form, keyed by itemName. Notes status.
STATUS SearchFormDocByDatabase(DBHANDLE hDb, const char* form, const char* itemName, DLPNameMap& names);
// Brings every template document of form into the database. Notes status.
STATUS UpgradeFormDocumentsWithIdentifiedFiled(DBHANDLE hTemplate, DBHANDLE hDb, const char* form,
                                               const char* itemName, DLPNameMap& names);

// The per-document steps of the two searches; both always return 0.
STATUS LNCALLBACK SearchFormDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);
STATUS LNCALLBACK UpgradeFormDocumentsWithIdentifiedFiledCallBack(void* parameter, SEARCH_MATCH* match,
                                                                  ITEM_TABLE* summary);

#endif
