/*
 * nsfnote.h - opening, creating, saving and deleting notes, reading and
 * writing their header fields (NSFNoteGetInfo / NSFNoteSetInfo) and their
 * items.
 */
#ifndef NSF_NOTE_DEFS
#define NSF_NOTE_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "nsfdata.h"
#include "pool.h"

/* ---- Note classes (WORD) ------------------------------------------- */
#define NOTE_CLASS_DOCUMENT    0x0001
#define NOTE_CLASS_DATA        NOTE_CLASS_DOCUMENT
#define NOTE_CLASS_INFO        0x0002  /* "about this database" */
#define NOTE_CLASS_FORM        0x0004
#define NOTE_CLASS_VIEW        0x0008
#define NOTE_CLASS_ICON        0x0010
#define NOTE_CLASS_DESIGN      0x0020  /* design collection */
#define NOTE_CLASS_ACL         0x0040
#define NOTE_CLASS_HELP_INDEX  0x0080
#define NOTE_CLASS_HELP        0x0100  /* "using this database" */
#define NOTE_CLASS_FILTER      0x0200  /* macros, agents */
#define NOTE_CLASS_FIELD       0x0400  /* shared fields */
#define NOTE_CLASS_REPLFORMULA 0x0800
#define NOTE_CLASS_PRIVATE     0x1000
#define NOTE_CLASS_DEFAULT     0x8000  /* modifier: the class's default note */
#define NOTE_CLASS_NOTIFYDELETION NOTE_CLASS_DEFAULT /* deleted notes in searches */
#define NOTE_CLASS_ALL         0x7fff
#define NOTE_CLASS_ALLNONDATA  0x7ffe
#define NOTE_CLASS_NONE        0x0000
#define NOTE_CLASS_SINGLE_INSTANCE (NOTE_CLASS_DESIGN | NOTE_CLASS_ACL | \
	NOTE_CLASS_INFO | NOTE_CLASS_ICON | NOTE_CLASS_HELP_INDEX)

/* OR into a NOTEID with a class to open that class's default note
   (32-bit, unlike SPECIAL_ID_NOTE in nsfdb.h). */
#define NOTE_ID_SPECIAL 0xFFFF0000L

/* ---- Header fields for NSFNoteGetInfo / NSFNoteSetInfo (WORD) ------- */
#define _NOTE_DB             0   /* DBHANDLE */
#define _NOTE_ID             1   /* NOTEID */
#define _NOTE_OID            2   /* ORIGINATORID; its first 16 bytes are the UNID */
#define _NOTE_CLASS          3   /* WORD */
#define _NOTE_MODIFIED       4   /* TIMEDATE */
#define _NOTE_PRIVILEGES     5   /* WORD, obsolete */
#define _NOTE_FLAGS          7   /* WORD, NOTE_FLAG_* */
#define _NOTE_ACCESSED       8   /* TIMEDATE */
#define _NOTE_PARENT_NOTEID  10  /* NOTEID, get only */
#define _NOTE_RESPONSE_COUNT 11  /* DWORD, get only */
#define _NOTE_RESPONSES      12  /* HANDLE of an ID table, get only */
#define _NOTE_ADDED_TO_FILE  13  /* TIMEDATE */
#define _NOTE_OBJSTORE_DB    14  /* DBHANDLE */

/* _NOTE_FLAGS bits. */
#define NOTE_FLAG_READONLY         0x0001
#define NOTE_FLAG_ABSTRACTED       0x0002
#define NOTE_FLAG_INCREMENTAL      0x0004
#define NOTE_FLAG_LINKED           0x0020
#define NOTE_FLAG_INCREMENTAL_FULL 0x0040
#define NOTE_FLAG_CANONICAL        0x4000

/* ---- NSFNoteOpen flags (WORD) --------------------------------------- */
#define OPEN_SUMMARY           0x0001  /* summary items only */
#define OPEN_NOVERIFYDEFAULT   0x0002
#define OPEN_EXPAND            0x0004  /* TEXT->TEXT_LIST, NUMBER->NUMBER_RANGE,
                                          TIME->TIME_RANGE */
#define OPEN_NOOBJECTS         0x0008
#define OPEN_SHARE             0x0020
#define OPEN_CANONICAL         0x0040
#define OPEN_MARK_READ         0x0100
#define OPEN_ABSTRACT          0x0200
#define OPEN_RESPONSE_ID_TABLE 0x1000
/* Only for the DWORD-flag open calls. */
#define OPEN_WITH_FOLDERS      0x00020000
#define OPEN_RAW_RFC822_TEXT   0x01000000
#define OPEN_RAW_MIME_PART     0x02000000
#define OPEN_RAW_MIME          (OPEN_RAW_RFC822_TEXT | OPEN_RAW_MIME_PART)

/* ---- NSFNoteUpdate / NSFNoteDelete flags (WORD) ---------------------- */
#define UPDATE_FORCE            0x0001  /* write even if changed meanwhile */
#define UPDATE_NAME_KEY_WARNING 0x0002
#define UPDATE_NOCOMMIT         0x0004
#define UPDATE_NOREVISION       0x0100
#define UPDATE_NOSTUB           0x0200  /* delete without a deletion stub */
#define UPDATE_INCREMENTAL      0x4000
#define UPDATE_DELETED          0x8000
#define UPDATE_DUPLICATES       0       /* obsolete */
/* Only for the DWORD-flag update calls. */
#define UPDATE_SHARE_SECOND     0x00200000L
#define UPDATE_SHARE_OBJECTS    0x00400000L

/* ---- Item flags (WORD) ---------------------------------------------- */
#define ITEM_SIGN        0x0001
#define ITEM_SEAL        0x0002  /* encrypted */
#define ITEM_SUMMARY     0x0004  /* visible to searches and views */
#define ITEM_READWRITERS 0x0020  /* Authors field (with ITEM_NAMES) */
#define ITEM_NAMES       0x0040
#define ITEM_PLACEHOLDER 0x0100
#define ITEM_PROTECTED   0x0200
#define ITEM_READERS     0x0400
#define ITEM_UNCHANGED   0x1000

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Notes ---------------------------------------------------------- */
STATUS LNPUBLIC NSFNoteOpen(DBHANDLE hDB, NOTEID NoteID, WORD OpenFlags,
                            NOTEHANDLE far *rethNote);
STATUS LNPUBLIC NSFNoteOpenExt(DBHANDLE hDB, NOTEID NoteID, DWORD flags,
                               NOTEHANDLE *rethNote);
STATUS LNPUBLIC NSFNoteOpenByUNID(DBHANDLE hDB, UNID far *pUNID, WORD flags,
                                  NOTEHANDLE far *rethNote);
STATUS LNPUBLIC NSFNoteCreate(DBHANDLE hDB, NOTEHANDLE far *rethNote);
/* The copy keeps the source's NoteID, OID and database: give it a new OID
   and zero its _NOTE_ID before saving it as a different note. */
STATUS LNPUBLIC NSFNoteCopy(NOTEHANDLE hSrcNote, NOTEHANDLE far *rethDstNote);
STATUS LNPUBLIC NSFNoteUpdate(NOTEHANDLE hNote, WORD UpdateFlags);
STATUS LNPUBLIC NSFNoteUpdateExtended(NOTEHANDLE hNote, DWORD UpdateFlags);
STATUS LNPUBLIC NSFNoteDelete(DBHANDLE hDB, NOTEID NoteID, WORD UpdateFlags);
STATUS LNPUBLIC NSFNoteClose(NOTEHANDLE hNote);

/* Copy one header field (_NOTE_*) out of / into the in-memory note. A NULL
   Value for NSFNoteSetInfo clears the field. */
void LNPUBLIC NSFNoteGetInfo(NOTEHANDLE hNote, WORD Type, void far *Value);
void LNPUBLIC NSFNoteSetInfo(NOTEHANDLE hNote, WORD Type, void far *Value);

STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE hNote);
STATUS LNPUBLIC NSFNoteContract(NOTEHANDLE hNote);

/* ---- Items ---------------------------------------------------------- */

/* Value excludes the leading type WORD. Appends even if an item of that
   name exists. */
STATUS LNPUBLIC NSFItemAppend(NOTEHANDLE hNote, WORD ItemFlags,
                              const char far *Name, WORD NameLength,
                              WORD DataType,
                              const void far *Value, DWORD ValueLength);
STATUS LNPUBLIC NSFItemDelete(NOTEHANDLE hNote, const char far *Name,
                              WORD NameLength);

/* Name NULL/0 means the first item. Every out-pointer may be NULL. The
   value block starts with the type WORD, which retValueLength counts.
   The BLOCKIDs belong to the note; never free them. */
STATUS LNPUBLIC NSFItemInfo(NOTEHANDLE hNote,
                            const char far *Name, WORD NameLength,
                            BLOCKID far *retbhItem,
                            WORD far *retDataType,
                            BLOCKID far *retbhValue,
                            DWORD far *retValueLength);

#define NSFItemIsPresent(hNote, Name, NameLength) \
	((BOOL) (NSFItemInfo(hNote, Name, NameLength, NULL, NULL, NULL, NULL) == NOERROR))

void LNPUBLIC NSFItemQuery(NOTEHANDLE hNote, BLOCKID bhItem,
                           char far *retItemName, WORD ItemNameBufferLength,
                           WORD far *retItemNameLength,
                           WORD far *retItemFlags,
                           WORD far *retDataType,
                           BLOCKID far *retbhValue, DWORD far *retValueLength);

/* Text of a TYPE_TEXT item, NUL-terminated, truncated to BufferLength-1.
   Returns the length copied; 0 for an absent and for an empty item. */
WORD LNPUBLIC NSFItemGetText(NOTEHANDLE hNote, const char far *ItemName,
                             char far *retBuffer, WORD BufferLength);
BOOL LNPUBLIC NSFItemGetTime(NOTEHANDLE hNote, const char far *ItemName,
                             TIMEDATE far *retTime);
BOOL LNPUBLIC NSFItemGetNumber(NOTEHANDLE hNote, const char far *ItemName,
                               NUMBER far *retNumber);
LONG LNPUBLIC NSFItemGetLong(NOTEHANDLE hNote, const char far *ItemName,
                             LONG DefaultNumber);

/* Replaces any item of that name with a summary TYPE_TEXT item. TextLength
   MAXWORD means Text is NUL-terminated. */
STATUS LNPUBLIC NSFItemSetText(NOTEHANDLE hNote, const char far *ItemName,
                               const char far *Text, WORD TextLength);
STATUS LNPUBLIC NSFItemSetTextSummary(NOTEHANDLE hNote, const char far *ItemName,
                                      const char far *Text, WORD TextLength,
                                      BOOL Summary);
STATUS LNPUBLIC NSFItemSetTime(NOTEHANDLE hNote, const char far *ItemName,
                               const TIMEDATE far *Time);
STATUS LNPUBLIC NSFItemSetNumber(NOTEHANDLE hNote, const char far *ItemName,
                                 const NUMBER far *Number);

/* Text lists. Entry positions start at 0; for NSFItemGetTextListEntry
   BufferLength is the buffer size minus one (room for the NUL). */
WORD LNPUBLIC NSFItemGetTextListEntries(NOTEHANDLE hNote,
                                        const char far *ItemName);
WORD LNPUBLIC NSFItemGetTextListEntry(NOTEHANDLE hNote,
                                      const char far *ItemName, WORD EntryPos,
                                      char far *retBuffer, WORD BufferLength);
STATUS LNPUBLIC NSFItemCreateTextList(NOTEHANDLE hNote,
                                      const char far *ItemName,
                                      const char far *Text, WORD TextLength);
STATUS LNPUBLIC NSFItemAppendTextList(NOTEHANDLE hNote,
                                      const char far *ItemName,
                                      const char far *Text, WORD TextLength,
                                      BOOL fAllowDuplicates);

/* Any item rendered as text; multiple values joined by SepChar. */
WORD LNPUBLIC NSFItemConvertToText(NOTEHANDLE hNote, const char far *ItemName,
                                   char far *retBuffer, WORD BufferLength,
                                   char SepChar);

/* Summary buffers handed to NSFSearch callbacks. */
BOOL LNPUBLIC NSFGetSummaryValue(const void far *SummaryBuffer,
                                 const char far *Name, char far *retValue,
                                 WORD ValueBufferLength);
BOOL LNPUBLIC NSFLocateSummaryValue(const void far *SummaryBuffer,
                                    const char far *Name,
                                    void far *retValuePointer,
                                    WORD far *retValueLength,
                                    WORD far *retDataType);

/* Calls ActionRoutine for every item of the note; a non-NOERROR return
   stops the scan and is returned. Value starts with the type WORD. */
typedef STATUS (LNCALLBACKPTR NSFITEMSCANPROC)(WORD Spare, WORD ItemFlags,
                                               char far *Name, WORD NameLength,
                                               void far *Value, DWORD ValueLength,
                                               void far *RoutineParameter);
STATUS LNPUBLIC NSFItemScan(NOTEHANDLE hNote, NSFITEMSCANPROC ActionRoutine,
                            void far *RoutineParameter);

#ifdef __cplusplus
}
#endif

#endif /* NSF_NOTE_DEFS */
