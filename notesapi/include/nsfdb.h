/*
 * nsfdb.h - databases: open, close, create, copy, ACL storage, replica
 * settings, the database information buffer, off-line handling, and
 * remote console commands.
 */
#ifndef NSF_DB_DEFS
#define NSF_DB_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "nsfdata.h"

/* Size of the database information buffer (NSFDbInfoGet/Set), including
   its terminator. Fields inside it are separated by newlines. */
#define NSF_INFO_SIZE 128
#define NSF_INFO_WILD_CARD_SERVER_CHAR '*'

/* NSFDbInfoParse / NSFDbInfoModify field selectors. */
#define INFOPARSE_TITLE        0
#define INFOPARSE_CATEGORIES   1
#define INFOPARSE_CLASS        2  /* template name, when a master template */
#define INFOPARSE_DESIGN_CLASS 3  /* template the design is inherited from */

/* NSFDbCreate database classes. */
#define DBCLASS_BY_EXTENSION   0       /* decide from .nsf / .ntf */
#define DBCLASS_NSFTESTFILE    0xff00
#define DBCLASS_NOTEFILE       0xff01
#define DBCLASS_DESKTOP        0xff02
#define DBCLASS_NOTECLIPBOARD  0xff03
#define DBCLASS_TEMPLATEFILE   0xff04
#define DBCLASS_GIANTNOTEFILE  0xff05
#define DBCLASS_HUGENOTEFILE   0xff06
#define DBCLASS_ONEDOCFILE     0xff07
#define DBCLASS_V2NOTEFILE     0xff08
#define DBCLASS_ENCAPSMAILFILE 0xff09
#define DBCLASS_LRGENCAPSMAILFILE 0xff0a
#define DBCLASS_V3NOTEFILE     0xff0b
#define DBCLASS_OBJSTORE       0xff0c
#define DBCLASS_V3ONEDOCFILE   0xff0d
#define DBCLASS_V4NOTEFILE     0xff0e
#define DBCLASS_V5NOTEFILE     0xff0f
#define DBCLASS_V6NOTEFILE     0xff10
#define DBCLASS_MASK           0x00ff
#define DBCLASS_VALID_MASK     0xff00

/* Index for NSFDbGetSpecialNoteID: SPECIAL_ID_NOTE + NOTE_CLASS_xxx gives
   the default note of that class (16-bit; NOTE_ID_SPECIAL is the 32-bit
   form used as a NoteID). */
#define SPECIAL_ID_NOTE 0x8000

/* NSFDbModeGet results. */
#define DB_LOADED    1  /* a database file */
#define DB_DIRECTORY 2  /* a directory */

/* NSFDbCreateAndCopy flags. */
#define DBCOPY_REPLICA           0x00000001L
#define DBCOPY_SUBCLASS_TEMPLATE 0x00000002L
#define DBCOPY_DBINFO2           0x00000004L
#define DBCOPY_SPECIAL_OBJECTS   0x00000008L
#define DBCOPY_NO_ACL            0x00000010L
#define DBCOPY_NO_FULLTEXT       0x00000020L
#define DBCOPY_ENCRYPT_SIMPLE    0x00000040L
#define DBCOPY_ENCRYPT_MEDIUM    0x00000080L
#define DBCOPY_ENCRYPT_STRONG    0x00000100L
#define DBCOPY_KEEP_NOTE_MODTIME 0x00000200L
#define DBCOPY_REPLICA_NAMELIST  0x01000000L
#define DBCOPY_DEST_IS_NSF       0x02000000L
#define DBCOPY_DEST_IS_DB2       0x04000000L
#define DBCOPY_OVERRIDE_DEST     0x08000000L

/* NSFTakeDatabaseOffline options. 0 stops access and deletes the file. */
#define OFFLINE_NODELETE             0x00000001  /* keep the file */
#define OFFLINE_KEEP_ACCESS_ENTITIES 0x00000002

/* Version of the code running where a database lives
   (NSFDbGetMajMinVersion). For 5.0.4a: 5, 0, 4, 1. */
typedef struct {
	DWORD MajorVersion;
	DWORD MinorVersion;
	DWORD QMRNumber;
	DWORD QMUNumber;
	DWORD HotfixNumber;
	DWORD Flags;
	DWORD FixpackNumber;
	DWORD Spare[2];
} BUILDVERSION;

#ifdef __cplusplus
extern "C" {
#endif

/* PathName is relative to the data directory or absolute; a directory
   path (or NULL) gives a directory handle. */
STATUS LNPUBLIC NSFDbOpen(const char far *PathName, DBHANDLE far *rethDB);
STATUS LNPUBLIC NSFDbClose(DBHANDLE hDB);
STATUS LNPUBLIC NSFDbCreate(const char far *PathName, USHORT DbClass,
                            BOOL ForceCreation);
STATUS LNPUBLIC NSFDbDelete(const char far *PathName);
/* limit: size quota in MB, 0 = none. The returned handle is open. */
STATUS LNPUBLIC NSFDbCreateAndCopy(const char far *srcDb, const char far *dstDb,
                                   WORD NoteClass, WORD limit, DWORD flags,
                                   DBHANDLE far *retHandle);

STATUS LNPUBLIC NSFDbCopyNote(DBHANDLE hSrcDB, DBID far *SrcDbID,
                              DBID far *SrcReplicaID, NOTEID SrcNoteID,
                              DBHANDLE hDstDB, DBID far *DstDbID,
                              DBID far *DstReplicaID,
                              NOTEID far *retDstNoteID, WORD far *retNoteClass);
STATUS LNPUBLIC NSFDbGenerateOID(DBHANDLE hDB, OID far *retOID);

/* ACLs. The read handle belongs to the caller (OSMemFree). Store with
   ObjectID 0; Method 0 for an ACL read from a database, 1 for one made
   with ACLCreate. */
STATUS LNPUBLIC NSFDbReadACL(DBHANDLE hDB, DHANDLE far *rethACL);
STATUS LNPUBLIC NSFDbStoreACL(DBHANDLE hDB, DHANDLE hACL, DWORD ObjectID,
                              WORD Method);
STATUS LNPUBLIC NSFDbCopyACL(DBHANDLE hSrcDB, DBHANDLE hDstDB);

STATUS LNPUBLIC NSFDbReplicaInfoGet(DBHANDLE hDB,
                                    DBREPLICAINFO far *retReplicationInfo);
STATUS LNPUBLIC NSFDbReplicaInfoSet(DBHANDLE hDB,
                                    DBREPLICAINFO far *ReplicationInfo);
STATUS LNPUBLIC NSFDbIDGet(DBHANDLE hDB, DBID far *retDbID);

/* retBuffer / Buffer hold NSF_INFO_SIZE bytes. */
STATUS LNPUBLIC NSFDbInfoGet(DBHANDLE hDB, char far *retBuffer);
STATUS LNPUBLIC NSFDbInfoSet(DBHANDLE hDB, char far *Buffer);
void LNPUBLIC NSFDbInfoParse(char far *Info, WORD What, char far *Buffer,
                             WORD Length);
void LNPUBLIC NSFDbInfoModify(char far *Info, WORD What,
                              const char far *Buffer);

STATUS LNPUBLIC NSFDbGetSpecialNoteID(DBHANDLE hDB, WORD Index,
                                      NOTEID far *retNoteID);
STATUS LNPUBLIC NSFDbGetNoteInfo(DBHANDLE hDB, NOTEID NoteID,
                                 OID far *retNoteOID, TIMEDATE far *retModified,
                                 WORD far *retNoteClass);
STATUS LNPUBLIC NSFDbGetNoteInfoByUNID(DBHANDLE hDB, UNID far *pUNID,
                                       NOTEID far *retNoteID, OID far *retOID,
                                       TIMEDATE far *retModTime,
                                       WORD far *retClass);
STATUS LNPUBLIC NSFDbPathGet(DBHANDLE hDB, char far *retCanonicalPathName,
                             char far *retExpandedPathName);
STATUS LNPUBLIC NSFDbModeGet(DBHANDLE hDB, USHORT far *retMode);

/* Build number of the code running where the database lives. */
STATUS LNPUBLIC NSFDbGetBuildVersion(DBHANDLE hDB, WORD far *retVersion);
STATUS LNPUBLIC NSFDbGetMajMinVersion(DBHANDLE hDb,
                                      BUILDVERSION far *retBuildVersion);

/* WaitTime: milliseconds to keep retrying while the database is in use
   (then ERR_DBINUSE). */
STATUS LNPUBLIC NSFTakeDatabaseOffline(const char far *dbPath, DWORD WaitTime,
                                       DWORD options);
STATUS LNPUBLIC NSFBringDatabaseOnline(const char far *dbPath, DWORD options);

/* Runs a console command on a server. The reply is NUL-terminated text in
   a memory object the caller locks, reads and frees (OSMemFree). */
STATUS LNPUBLIC NSFRemoteConsole(char far *ServerName, char far *ConsoleCommand,
                                 DHANDLE far *hResponseText);

#ifdef __cplusplus
}
#endif

#endif /* NSF_DB_DEFS */
