// Database maintenance of the patch: preparing a replaced database (signing, hidden design),
// signing every product database and giving it the fixed replication note, stamping the build
// into the help notes, and rebuilding an old-format pattern database.
#ifndef DATABASE_MAINTENANCE_H
#define DATABASE_MAINTENANCE_H

#include <cstddef>
#include <vector>

#include "global.h"
#include "nsfdata.h"
#include "nsfsearc.h"

#include "PatchRPX.h"

// ---- Search parameter records -------------------------------------------------------------
// Every record handed to NSFSearch begins with the open handle of the searched database; the
// callbacks read it from there.

// The record of the signing, replication-note and build-stamping searches.
struct DbSearchParam {
    DBHANDLE hDb = NULLHANDLE;
};

// The record of SearchDocumentCallback: the database, then the note IDs collected so far.
struct DocumentSearchParam {
    DBHANDLE hDb = NULLHANDLE;
    std::vector<NOTEID> noteIds;
};

// The record of the pattern-format check: set to 1 once an old-format pattern document is seen.
struct PatternSearchParam {
    DBHANDLE hDb = NULLHANDLE;
    int oldFormat = 0;
};

// ---- The product's databases --------------------------------------------------------------

struct DBNameEntry {
    const char* templateName;  // design template (.ntf), or null when there is none
    const char* databaseName;  // database file (.nsf); null ends the table
    char path[512];            // room for a full path, filled by the tasks that need it
    int flag;                  // 1 for the first nine rows; not read by the patch
};

constexpr int kDBNamesRows = 12;  // eleven databases and the empty row that ends the table
extern DBNameEntry DBNames[kDBNamesRows];

// The pattern database, whose ACL every replaced database receives and which is rebuilt when old.
constexpr char kPatternDatabase[] = "rpx/rpency.nsf";

// ---- Status texts ---------------------------------------------------------------------------

// Room for a platform status text read with capacity 256, or a translation of one.
constexpr size_t kStatusTextSize = 257;

// LMBCS text to the native character set, at most 256 bytes, into native (kStatusTextSize).
void StatusTextToNative(const char* text, char* native);
// Opens the database at path into *db. When it cannot be opened, puts its path and then the
// platform's text of the status on the server console, gives that text in the native character
// set in nativeText (kStatusTextSize bytes) and returns false.
bool OpenDatabaseOrReport(const char* path, DBHANDLE* db, char* nativeText);
// Puts the platform's text of status on the server console and gives it in the native character
// set in nativeText (kStatusTextSize bytes).
void ReportStatusOnConsole(STATUS status, char* nativeText);

// ---- Database preparation -----------------------------------------------------------------

// Signs the design of "rpx/<name>" (unless setting.skipDbSign) and hides its design.
// Returns 0, or -1 when the database cannot be opened or signed.
int PrepareDatabase(char* name, PatchSetting& setting);

// Collects the matched note IDs into a DocumentSearchParam; returns NOERROR.
STATUS LNCALLBACK SearchDocumentCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

// ---- Signing and replication documents ------------------------------------------------------

// For every DBNames row: signs the design notes of <folder>\<database>, deletes the old
// replication-formula notes and writes the new one. folder is LMBCS text.
void SignAndChangeReplicaDatabase(void* folder);

// Signs one note (forms, info, help and field notes through an expanded open).
STATUS LNCALLBACK SignDatabaseCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

// Deletes the note when it is a replication-formula note.
STATUS LNCALLBACK DelReplicaDocCallback(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

// Writes the replication-formula note (source "MailServer", select all). 0, 1 or a status.
STATUS AddReplicationDoc(DBHANDLE db);

// The platform's text of (status & 0x3FFF), at most 8 characters and a NUL, into text (9 bytes).
void GetAPIError(unsigned short status, char* text);

// ---- Build stamping -----------------------------------------------------------------------

// Stamps g_szRkRPXBuildVersion into the help notes of every DBNames database; returns 0.
int SetAllDatabasesBuild();

// Writes g_szRkRPXBuildVersion into the "BuildNumber" item of the matched help note; a note that
// cannot be stamped is reported on the server console. Always NOERROR.
STATUS LNCALLBACK BuildNumber(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

// Stamps the help notes of the database at notesPath with BuildNumber; silent when the database
// cannot be opened.
void StampHelpNotes(const char* notesPath);

// ---- Pattern database rebuild -------------------------------------------------------------

// Recreates "rpx/rpency.nsf" from its template when it holds old-format pattern documents.
// Returns 0 when nothing had to be done or the rebuild succeeded, else the failing status.
STATUS UpdateRpency();

// Puts back a pattern database that a rebuild kept in the temp folder and did not finish (the
// task was killed): the copy is there only while a rebuild is under way.
void RestoreInterruptedRpencyRebuild();

// Sets PatternSearchParam::oldFormat when a matched document's "InternalPVer" has no ".".
STATUS LNCALLBACK CheckPatternVersionFormat(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary);

#endif
