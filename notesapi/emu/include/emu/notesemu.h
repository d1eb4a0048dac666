/* Extensions of the emulated Notes platform that the real platform does not have.
 * Only the tools (nsfdb, rpxserver) and the emulator's own tests use them; the product
 * never includes this header. Everything else is reached through the real API.
 *
 * Where the platform's documentation leaves a behaviour open, the emulator does this:
 * - Databases are SQLite files (see notesapi/emu/src/Store.h for the schema); ".nsf" may be
 *   left out of a Notes path and '\' is accepted as a separator. Directory handles are not
 *   supported: NSFDbOpen of a folder gives ERR_DIRECTORY.
 * - Note IDs start at 0x2102 and go up in steps of 4; they are never reused.
 * - NSFNoteUpdate of a new note (ID 0) whose UNID a live note has fails with ERR_CONFLICT;
 *   a deletion stub of that UNID gives way (the new note gets a new note ID).
 *   NOTEID_ADD_OR_REPLACE and NOTEID_ADD_UNID behave as the toolkit documents them.
 * - NSFDbCopyNote keeps the originator ID only between replicas (same replica ID) and then
 *   replaces the target's note of that UNID; otherwise the copy gets a new OID.
 *   NSFDbCreateAndCopy keeps every note's OID and gives new note IDs.
 * - NSFItemGetText reads a text list's first entry and shows a number or time as
 *   NSFItemConvertToText does (its first value for a list); other types read as empty.
 *   NSFItemDelete removes the first item of that name only.
 * - OSTranslate writes a NUL after its result when there is room (never counted).
 * - Search formulas and summary buffers see summary items (ITEM_SUMMARY) only, as on the
 *   platform: tools that build notes must mark the items a formula needs as summary.
 * - NSFFormulaDecompile gives back the text exactly as it was compiled, whatever
 *   fSelectionFormula says (a leading SELECT stays as written, none is added). It reads no
 *   further than the compiled formula's own lengths and, for a pointer into platform memory
 *   (OSLockObject, OSLockBlock), no further than that block; other bytes give
 *   ERR_INVALID_FORMULA.
 * - OSLoadString looks the code up as given: a status with STS_DISPLAYED or STS_REMOTE set
 *   has no text (length 0); the caller masks with ERR() first.
 * - Texts crossing the API are LMBCS: notes.ini values (OSGetEnvironmentString), the data,
 *   program and notes.ini folder names and the server's name come out as LMBCS, and paths and
 *   values given in are taken as LMBCS. notes.ini itself is native text (UTF-8).
 * - Stale, zero and wrong-kind handles: ERR_OS_FREE_HANDLE, ERR_OS_NULL_HANDLE,
 *   ERR_OS_HANDLE_RANGE; OSLockObject gives NULL. OSMemFree of a locked object gives
 *   ERR_OS_STILL_LOCKED, of item memory owned by a note ERR_OS_HANDLE_RANGE.
 *
 * The stand-in server (the folder of the notes.ini given to NotesInitExtended):
 * - notes.ini must be native text naming a data directory ("Directory"): an empty or UTF-16
 *   file, or none given, makes initialisation fail with ERR_IOERROR and a message on standard
 *   error naming the file; there is no default data directory. The data directory is fixed at
 *   initialisation.
 * - <server>/server.json is read at initialisation (see notesapi/emu/README.md for its
 *   format); a malformed one (an unknown key at any level, a call that is not a function of
 *   the API, a bad value) makes initialisation fail with ERR_IOERROR and a message on
 *   standard error naming the key path. Its counters, the offline state and the task state live in the process
 *   and start afresh at each initialisation.
 * - Injected faults: the first rule of "faults" that matches a call (API function name, and
 *   the database path and note UNID when the rule names them) makes it return its status.
 * - NSFTakeDatabaseOffline: ERR_NOEXIST for a missing database; ERR_NOT_NSF for a folder or
 *   a file that is not a database (nothing is deleted); ERR_DBINUSE after WaitTime
 *   (real or virtual) while the database is busy per server.json, held by the running task
 *   rpxreal or open through any handle of this process. Offline again: NOERROR. While
 *   offline, NSFDbOpen gives ERR_NSFOPEN. NSFDbCreate / NSFDbCreateAndCopy at an offline
 *   path make a new database that is online. NSFBringDatabaseOnline of a database that is
 *   not offline: NOERROR; of a path without a file: ERR_NOEXIST (it stays offline).
 * - Console: every line goes to <server>/console.log as "MM/DD/YYYY HH:MM:SS" (local time
 *   on the platform clock), two blanks and the text; commands are recorded as "> " + command.
 *   NSFRemoteConsole accepts the server's own name (case-insensitive, canonical
 *   "CN=Alpha/O=Acme" or abbreviated "Alpha/Acme"; NULL or "" also mean the own server);
 *   any other name gives ERR_SERVER_NOT_RESPONDING. Commands: load convert, load design -f,
 *   tell rpxreal quit|restart; anything else is answered "Unknown command" with NOERROR.
 * - OSLoadProgram starts nothing: it records "Program started: PROGRAM ARGUMENTS" and, for
 *   <OSGetExecutableDirectory>/server with -c "COMMAND", runs COMMAND on the console.
 * - Clock "virtual": AddInIdleDelay and the WaitTime of NSFTakeDatabaseOffline advance the
 *   platform clock (OSCurrentTIMEDATE, console time stamps, note times) at once. */
#ifndef EMU_NOTESEMU_H
#define EMU_NOTESEMU_H

#include "global.h"
#include "nsfdata.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Full path of the settings file (notes.ini), into a MAXPATH buffer; returns its length. The
 * platform's library exports such a call but its toolkit headers declare none, so it is declared
 * here and the product does not use it. */
WORD LNPUBLIC OSGetIniFileName(char far *retPathName);

/* Sets the build version that NSFDbGetBuildVersion reports for this database. */
STATUS LNPUBLIC EmuDbSetBuildVersion(DBHANDLE hDB, WORD version);

/* The note ID that the next new note of this database receives; it must be above every
 * note ID the database has used (ERR_NOTE_ID otherwise). Lets a dump be recreated with its IDs. */
STATUS LNPUBLIC EmuDbSetNextNoteID(DBHANDLE hDB, NOTEID nextNoteID);

/* Bulk loading of a database that nothing else uses yet (the tools that make databases).
 * While on, note updates and other changes through any handle on this file are gathered and
 * written in large groups: each change is still all-or-nothing, but it is durable only once its
 * group is written (every 20,000 changes, when the mode is turned off, and when the last handle
 * on the file closes). Turning it off writes what is left and returns the status of that write. */
STATUS LNPUBLIC EmuDbBulkLoad(DBHANDLE hDB, BOOL on);

/* When TRUE, NSFSearch also reports notes that do not match the formula, with SE_FMATCH
 * clear, as the platform does for incremental searches. Process-wide; default FALSE. */
void LNPUBLIC EmuSearchReportNonMatches(BOOL report);

/* Checks the text of a server object (the content of server.json) as initialisation reads it:
 * NOERROR, or ERR_IOERROR with the first problem in retError ("faults[0].call: ..."; the key
 * path and what is allowed), cut to errorSize - 1 bytes. Needs no initialised platform. */
STATUS LNPUBLIC EmuCheckServerSettings(const char far *jsonText, char far *retError, WORD errorSize);

/* Number of database, note and memory handles currently open (for leak reports). */
DWORD LNPUBLIC EmuOpenHandleCount(void);

/* Calls report once per open handle with one line naming its kind and, for database and
 * note handles, the database's file path; a memory handle's line names its size and the call
 * that allocated it: "memory handle 11 (110 bytes) from NSFFormulaCompile" (item memory owned
 * by notes is not listed). */
void LNPUBLIC EmuOpenHandleReport(void (LNCALLBACKPTR report)(const char far *line, void far *ctx),
                                  void far *ctx);

/* When TRUE, console lines are also written to standard output (flushed at once). Default FALSE. */
void LNPUBLIC EmuConsoleEcho(BOOL echo);

/* Runs one console command as NSFRemoteConsole to the own server does (recorded in
 * console.log with its answer). NOERROR also for an unknown command; ERR_UNKNOWN for NULL. */
STATUS LNPUBLIC EmuConsoleCommand(const char far *command);

#ifdef __cplusplus
}
#endif

#endif
