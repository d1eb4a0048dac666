// The obsolete-reference cleanup of rpx/rpconf.nsf and the note-level helpers it shares with the
// DLP template upgrade: text lists read into ordered sets.
// RemoveObsoleteUNID, ReplaceObsoleteUNID and the two listings are declared in ConfigMigration.h.
#ifndef OBSOLETE_REFERENCE_CLEANUP_H
#define OBSOLETE_REFERENCE_CLEANUP_H

#include <cstddef>
#include <set>
#include <string>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

// Adds every entry of the text list item to entries (already present entries are not added twice).
void GetTextListfield(NOTEHANDLE note, const char* item, std::set<std::string>& entries);
// Rewrites the item without the entries that are in m_nsf_ObsoleteUNIDSet; sorted, no duplicates.
void RemoveTextListfield(NOTEHANDLE note, const char* item);
// Rewrites the item with each obsolete UNID (first occurrence per entry) replaced by its successor
// from m_nsf_ObsoleteUNIDMap; sorted, no duplicates.
void ReplaceTextListfield(NOTEHANDLE note, const char* item);

// Per-document steps of the two cleanup searches; the parameter points at the database handle.
// Both always return 0.
STATUS LNCALLBACK RemoveObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);
STATUS LNCALLBACK ReplaceObsoleteUNIDCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

#endif
