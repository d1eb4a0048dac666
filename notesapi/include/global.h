/*
 * global.h - base types, calling-convention macros and runtime start-up of
 * the Notes C API, as laid out on Linux x86-64 (UNIX, LONGIS64BIT,
 * HANDLE_IS_32BITS, ND64).
 *
 * Every other platform header includes this one first. Like the toolkit's
 * global.h it finishes by including globerr.h, so STATUS helpers (ERR(),
 * NOERROR, PKG_*) are always available.
 */
#ifndef GLOBAL_DEFS
#define GLOBAL_DEFS

/* Segment and calling-convention keywords of 16-bit and Windows builds.
   On UNIX they all vanish. */
#ifndef far
#define far
#endif
#ifndef near
#define near
#endif
#ifndef FAR
#define FAR far
#endif
#ifndef NEAR
#define NEAR near
#endif
#ifndef pascal
#define pascal
#endif
#ifndef PASCAL
#define PASCAL pascal
#endif
#ifndef cdecl
#define cdecl
#endif

/* Exported API functions, callbacks, pointers to callbacks, and "..."
   functions. Use them exactly where the toolkit does:
       STATUS LNPUBLIC NSFDbClose(DBHANDLE hDB);
       typedef STATUS (LNCALLBACKPTR NSFSEARCHPROC)(...);
       void LNVARARGS AddInLogMessageText(char far *String, STATUS e, ...); */
#define LNPUBLIC      FAR PASCAL
#define LNCALLBACK    FAR PASCAL
#define LNCALLBACKPTR LNCALLBACK FAR *
#define LNVARARGS     FAR cdecl

/* Older spellings of the same macros, still met in sample code. */
#define NOTESMAIN        LNPUBLIC
#define NOTESAPI         LNPUBLIC
#define NOTESAPICDECL    LNVARARGS
#define NOTESCALLBACK    LNCALLBACK
#define NOTESCALLBACKPTR LNCALLBACKPTR
#define NOTESPTR         FAR *

/* ---- Scalar types ----------------------------------------------------
   With LONGIS64BIT the toolkit maps its 32-bit names onto int, so that
   DWORD and LONG stay 4 bytes although C's long is 8 bytes here. */
#ifndef VOID
#define VOID void
#endif
typedef unsigned char  BYTE;
typedef unsigned short WORD;
typedef unsigned int   DWORD;
typedef int            LONG;
typedef int            BOOL;
typedef unsigned short USHORT;
typedef unsigned int   ULONG;
typedef unsigned char  UCHAR;
typedef unsigned int   UINT;
typedef unsigned long  NDQWORD;        /* 8 bytes under LONGIS64BIT */

#define BOOLBYTE BYTE
#define UBYTE    BYTE
#define SBYTE    signed char
#define SWORD    signed short

#define LOBYTE(w) ((BYTE)(w))
#define HIBYTE(w) ((BYTE)(((WORD)(w) >> 8) & 0xff))
#define LOWORD(l) ((WORD)(DWORD)(l))
#define HIWORD(l) ((WORD)(((DWORD)(l) >> 16) & 0xffff))

/* Status code of every API call: 0 (NOERROR) or package + number, with
   the two top bits used as flags (see globerr.h). */
typedef WORD STATUS;

/* Handles. HANDLE is 32 bits here (HANDLE_IS_32BITS); DHANDLE is the name
   newer releases use for memory-object handles and has the same width on
   Linux 64-bit. MEMHANDLE belongs to the separate OSMemoryAllocate family. */
typedef unsigned int HANDLE;
typedef unsigned int DHANDLE;
typedef DWORD        MEMHANDLE;
#define NULLMEMHANDLE ((MEMHANDLE) 0)

#ifdef NULLHANDLE
#undef NULLHANDLE
#endif
#define NULLHANDLE 0

/* A resource module (string tables for OSLoadString). */
typedef HANDLE WHANDLE;
#ifndef HMODULE
#define HMODULE WHANDLE
#endif

typedef DWORD FONTID;

/* Offset of a block inside a memory pool (see pool.h for BLOCKID). */
typedef WORD BLOCK;

/* ---- Multi-value headers ------------------------------------------- */

/* Start of a list value: the entry count, then the entries. */
typedef struct {
	USHORT ListEntries;
	/* entries follow */
} LIST;

/* Start of a range value: list entries, then range (pair) entries. */
typedef struct {
	USHORT ListEntries;
	USHORT RangeEntries;
	/* list entries follow, then range entries */
} RANGE;

/* ---- Time and numbers ----------------------------------------------
   TIMEDATE is bit-encoded: Innards[0] holds hundredths of a second since
   midnight GMT, Innards[1] the day number plus zone and DST bits. Read it
   only through the Time* and OS* calls (misc.h, ostime.h). */
typedef struct tagTIMEDATE {
	DWORD Innards[2];
} TIMEDATE;

typedef struct {
	TIMEDATE Lower;
	TIMEDATE Upper;
} TIMEDATE_PAIR;

/* IEEE 754 double, as stored in TYPE_NUMBER items. */
typedef double NUMBER;
typedef NUMBER ALIGNED_NUMBER;

typedef struct {
	NUMBER Lower;
	NUMBER Upper;
} NUMBER_PAIR;

typedef NUMBER_PAIR ALIGNED_NUMBER_PAIR;

typedef struct {
	BYTE ID[5];
	BYTE Product;
	BYTE Check[2];
} LICENSEID;

/* ---- Constants ------------------------------------------------------ */
#ifndef TRUE
#define FALSE 0
#define TRUE  !FALSE
#endif

/* The toolkit insists on a plain 0 for NULL, whatever the C library said. */
#ifdef NULL
#undef NULL
#endif
#define NULL 0

#ifndef MAXDWORD
#define MAXDWORD ((DWORD) 0xffffffff)
#endif
#ifndef MAXWORD
#define MAXWORD ((WORD) 0xffff)
#endif
#ifndef MAXBYTE
#define MAXBYTE ((BYTE) 0xff)
#endif
#ifndef MAXINT
#define MAXINT ((int) (((unsigned int) -1) >> 1))
#endif
#ifndef MININT
#define MININT ((int) (~(unsigned int) MAXINT))
#endif
#ifndef BITS_PER_BYTE
#define BITS_PER_BYTE 8
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Entry point of a stand-alone program linked with the toolkit's start-up
   object; the program itself does not define main(). */
STATUS LNPUBLIC NotesMain(int argc, char far *argv[]);

/* Run-time start-up and shut-down for programs with their own main().
   NotesInitExtended accepts an argument of the form "=/path/to/notes.ini"
   to choose the settings file. */
STATUS LNPUBLIC NotesInitIni(char far *pConfigFileName);
STATUS LNPUBLIC NotesInit(void);
STATUS LNPUBLIC NotesInitExtended(int argc, char far * far *argv);
void   LNPUBLIC NotesTerm(void);
STATUS LNPUBLIC NotesInitThread(void);
void   LNPUBLIC NotesTermThread(void);

#ifdef __cplusplus
}
#endif

#include "globerr.h"

#endif /* GLOBAL_DEFS */
