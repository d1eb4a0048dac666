// The steps of the database maintenance that need no server-only platform call (console
// logging, taking databases offline, idle waits). DatabaseMaintenance.h's operations are built
// from them; they live in their own sources so that they link without the server.
#ifndef MAINTENANCE_STEPS_H
#define MAINTENANCE_STEPS_H

#include <cstddef>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

// Room for a platform status text read with capacity 256, or a translation of one.
constexpr size_t kStatusTextSize = 257;

// The platform's text of status (all 16 bits passed on) into text (kStatusTextSize bytes).
void LoadStatusText(STATUS status, char* text);
// LMBCS text to the native character set, at most 256 bytes, into native (kStatusTextSize).
void StatusTextToNative(const char* text, char* native);

// "rpx/" + name into path (size bytes). False, with path empty, when it would not fit.
bool BuildPreparePath(const char* name, char* path, size_t size);
// Sets the hidden-design replica flag; the platform's statuses are not looked at.
void HideDatabaseDesign(DBHANDLE db);

// folder + separator + name into path (size bytes): the folder cut to size - 1 bytes, the other
// two pieces appended as far as they fit.
void BuildReplicaDbPath(const char* folder, const char* separator, const char* name, char* path, size_t size);

// The note-level work of BuildNumber: stamps g_szRkRPXBuildVersion into the matched note's
// "BuildNumber". Returns the status of a failed open or write (BuildNumber reports it).
STATUS LNCALLBACK StampBuildNumberNote(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);
// The walk of SetAllDatabasesBuild over DBNames, handing every help note to stampNote.
int StampDatabasesBuild(NSFSEARCHPROC stampNote);

// Detection half of UpdateRpency: sets *oldFormat when "rpx/rpency.nsf" holds an old-format
// pattern document, and then reads its ACL into *acl. Returns a formula compile error, else 0.
STATUS FindOldPatternFormat(int* oldFormat, DHANDLE* acl);
// Rebuild half of UpdateRpency, once the old database is offline: creates "rpx/rpency.nsf"
// from "rpx/rpency.ntf", gives it the fixed replica ID and stores acl. 0 or the create status.
STATUS RecreatePatternDatabase(DHANDLE acl);

#endif
