/*
 * nsfdata.h - data definitions of the note storage file (NSF): database,
 * note and replica identifiers, item data types, item tables and
 * replication settings.
 */
#ifndef NSF_DATA_DEFS
#define NSF_DATA_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "pool.h"

/* Self-documenting names for handles. They are macros, not typedefs. */
#define DBHANDLE              DHANDLE
#define NOTEHANDLE            DHANDLE
#define ITEMDEFTABLEHANDLE    HANDLE
#define ITEMDEFTABLEEXTHANDLE HANDLE
#define FORMULAHANDLE         DHANDLE
typedef void far *HCOMPUTE;

/* ---- Note identifiers ---------------------------------------------- */

/* Reserved NOTEIDs. Setting _NOTE_ID to one of the NOTEID_ADD* values
   before NSFNoteUpdate chooses how a note with an existing UNID is
   treated. */
#define NOTEID_RESERVED       0x80000000L /* deleted-note bit; category entries */
#define NOTEID_ADD            0x00000000L /* add; fails if the UNID exists */
#define NOTEID_ADD_OR_REPLACE 0x80000000L /* replace the note with that UNID, or add */
#define NOTEID_ADD_UNID       0x80000001L /* keep the UNID unless taken, else new UNID */
#define NOTEID_NULL_FOLDER    0x00000000L
#define NOTEID_NO_PARENT      0x00000000L

#define RRV_ALIGNMENT 4L
#define RRV_DELETED   NOTEID_RESERVED

/* Identifies a database instance (its creation time). Also the type of a
   replica ID. */
typedef TIMEDATE DBID;

/* A note's position in one database file; stable within that file only. */
typedef DWORD NOTEID;

/* Identity of a note across all replicas, with its revision.
   File and Note together form the UNID and must stay first. */
#define MAXSEQNO         0x00FFFFFFL
#define OID_SEQNO_MASK   0x00FFFFFFL  /* low 24 bits of Sequence */
#define OID_NO_REPLICATE 0x80000000L

typedef struct ORIGINATORID_tag {
	DBID     File;          /* random number, nothing to do with the file */
	TIMEDATE Note;          /* normally the creation time */
	DWORD    Sequence;      /* revision number; high bits are flags */
	TIMEDATE SequenceTime;  /* when Sequence was last bumped */
} ORIGINATORID;             /* 28 bytes */

#define OID ORIGINATORID

/* One instance (one revision in one file) of a note. */
typedef struct {
	DBID     File;    /* database creation time */
	TIMEDATE Note;    /* note modification time */
	NOTEID   NoteID;
} GLOBALINSTANCEID;   /* 20 bytes */

/* The universal note ID: the first 16 bytes of the ORIGINATORID. */
typedef struct UNIVERSALNOTEID_tag {
	DBID     File;
	TIMEDATE Note;
} UNIVERSALNOTEID;    /* 16 bytes */

#define UNID UNIVERSALNOTEID

/* A link to a note: replica ID of the file, view UNID, note UNID. */
typedef struct {
	TIMEDATE File;
	UNID     View;
	UNID     Note;
} NOTELINK;

/* ---- Replication settings ------------------------------------------ */

/* DBREPLICAINFO.Flags. 0x0001 and 0x0002 are unused. */
#define REPLFLG_DISABLE             0x0004
#define REPLFLG_UNREADIFFNEW        0x0008
#define REPLFLG_IGNORE_DELETES      0x0010
#define REPLFLG_HIDDEN_DESIGN       0x0020  /* design cannot be viewed */
#define REPLFLG_DO_NOT_CATALOG      0x0040
#define REPLFLG_CUTOFF_DELETE       0x0080
#define REPLFLG_NEVER_REPLICATE     0x0100
#define REPLFLG_ABSTRACT            0x0200
#define REPLFLG_DO_NOT_BROWSE       0x0400
#define REPLFLG_NO_CHRONOS          0x0800
#define REPLFLG_IGNORE_DEST_DELETES 0x1000
#define REPLFLG_MULTIDB_INDEX       0x2000
#define REPLFLG_PRIORITY_LOW        0xC000
#define REPLFLG_PRIORITY_MED        0x0000
#define REPLFLG_PRIORITY_HI         0x4000
#define REPLFLG_PRIORITY_SHIFT      14
#define REPLFLG_PRIORITY_MASK       0x0003
#define REPLFLG_PRIORITY_INVMASK    0x3fff

/* Priority is kept biased by -1 in bits 14-15; these take and give 0..2
   (low, medium, high). */
#define REPL_GET_PRIORITY(Flags) \
	((((Flags) >> REPLFLG_PRIORITY_SHIFT) + 1) & REPLFLG_PRIORITY_MASK)
#define REPL_SET_PRIORITY(Pri) \
	((((Pri) - 1) & REPLFLG_PRIORITY_MASK) << REPLFLG_PRIORITY_SHIFT)

typedef struct {
	TIMEDATE ID;              /* replica ID, shared by all replicas */
	WORD     Flags;           /* REPLFLG_* */
	WORD     CutoffInterval;  /* days */
	TIMEDATE Cutoff;          /* cutoff date */
} DBREPLICAINFO;              /* 20 bytes */

/* ---- Item data types -----------------------------------------------
   A type is a class in the high byte plus an index in the low byte. */
#define CLASS_NOCOMPUTE   (0 << 8)
#define CLASS_ERROR       (1 << 8)
#define CLASS_UNAVAILABLE (2 << 8)
#define CLASS_NUMBER      (3 << 8)
#define CLASS_TIME        (4 << 8)
#define CLASS_TEXT        (5 << 8)
#define CLASS_FORMULA     (6 << 8)
#define CLASS_USERID      (7 << 8)
#define CLASS_MASK        0xff00

/* Computable types. */
#define TYPE_ERROR        (0 + CLASS_ERROR)
#define TYPE_UNAVAILABLE  (0 + CLASS_UNAVAILABLE)
#define TYPE_TEXT         (0 + CLASS_TEXT)     /* LMBCS bytes, no terminator */
#define TYPE_TEXT_LIST    (1 + CLASS_TEXT)     /* LIST, WORD lengths, texts */
#define TYPE_RFC822_TEXT  (2 + CLASS_TEXT)
#define TYPE_NUMBER       (0 + CLASS_NUMBER)   /* NUMBER */
#define TYPE_NUMBER_RANGE (1 + CLASS_NUMBER)   /* RANGE, NUMBERs, NUMBER_PAIRs */
#define TYPE_TIME         (0 + CLASS_TIME)     /* TIMEDATE */
#define TYPE_TIME_RANGE   (1 + CLASS_TIME)     /* RANGE, TIMEDATEs, TIMEDATE_PAIRs */
#define TYPE_FORMULA      (0 + CLASS_FORMULA)  /* compiled formula */
#define TYPE_USERID       (0 + CLASS_USERID)

/* Non-computable types. */
#define TYPE_INVALID_OR_UNKNOWN (0 + CLASS_NOCOMPUTE)
#define TYPE_COMPOSITE          (1 + CLASS_NOCOMPUTE)  /* rich text */
#define TYPE_COLLATION          (2 + CLASS_NOCOMPUTE)
#define TYPE_OBJECT             (3 + CLASS_NOCOMPUTE)
#define TYPE_NOTEREF_LIST       (4 + CLASS_NOCOMPUTE)  /* $REF */
#define TYPE_VIEW_FORMAT        (5 + CLASS_NOCOMPUTE)
#define TYPE_ICON               (6 + CLASS_NOCOMPUTE)
#define TYPE_NOTELINK_LIST      (7 + CLASS_NOCOMPUTE)
#define TYPE_SIGNATURE          (8 + CLASS_NOCOMPUTE)
#define TYPE_SEAL               (9 + CLASS_NOCOMPUTE)
#define TYPE_SEALDATA           (10 + CLASS_NOCOMPUTE)
#define TYPE_SEAL_LIST          (11 + CLASS_NOCOMPUTE)
#define TYPE_HIGHLIGHTS         (12 + CLASS_NOCOMPUTE)
#define TYPE_WORKSHEET_DATA     (13 + CLASS_NOCOMPUTE)
#define TYPE_USERDATA           (14 + CLASS_NOCOMPUTE)
#define TYPE_QUERY              (15 + CLASS_NOCOMPUTE)
#define TYPE_ACTION             (16 + CLASS_NOCOMPUTE)
#define TYPE_HTML               (21 + CLASS_NOCOMPUTE)
#define TYPE_MIME_PART          (25 + CLASS_NOCOMPUTE)

/* ---- Item tables ---------------------------------------------------
   A summary buffer (and other packed item lists) is an ITEM_TABLE, then
   Items ITEM descriptors, then the names and values packed end to end.
   Each value starts with its WORD data type, which ValueLength counts.
   The buffer is packed: memcpy the headers out before reading them. */
typedef struct {
	USHORT Length;  /* whole buffer, this header included */
	USHORT Items;
} ITEM_TABLE;

typedef struct {
	USHORT NameLength;
	USHORT ValueLength;  /* includes the leading type WORD */
} ITEM;

#endif /* NSF_DATA_DEFS */
