// The configuration migration of rpx/rpconf.nsf and the fix-ups of its documents that the update
// driver runs: the shared UNID collections and the three entry points.
#ifndef CONFIG_MIGRATION_H
#define CONFIG_MIGRATION_H

#include <map>
#include <set>
#include <string>

#include "global.h"

// UNID of an obsolete document of rpx/rpconf.nsf -> UNID of the document that replaces it.
extern std::map<std::string, std::string> m_nsf_ObsoleteUNIDMap;
// UNIDs of obsolete documents of rpx/rpconf.nsf.
extern std::set<std::string> m_nsf_ObsoleteUNIDSet;
// UNIDs of duplicated user-defined digital-asset documents ("Digtal" is the intended spelling).
extern std::set<std::string> duplicatedUserDefinedDigtalAssertSet;

// Gives the predefined content-filter expressions their fixed document IDs and links.
STATUS UpdateExpresionDocID();
// Deletes the known duplicated user-defined digital assets nothing refers to.
STATUS RemoveDuplicatedUserDefinedDigitalAssert();
// Migrates the documents of rpx/rpconf.nsf once its new template has been applied.
STATUS UpdateRPXConfigue();

#endif
