/*
 * nsfsearc.h - walking the notes of a database (NSFSearch) and compiling
 * selection formulas (NSFFormulaCompile).
 */
#ifndef NSF_SEARCH_DEFS
#define NSF_SEARCH_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "nsfdata.h"

/* NSFSearch flags (WORD). */
#define SEARCH_ALL_VERSIONS     0x0001  /* deleted and non-matching notes too;
                                           implied by a Since time */
#define SEARCH_SUMMARY          0x0002  /* pass the summary buffer */
#define SEARCH_FILETYPE         0x0004  /* directory search; class mask is FILE_* */
#define SEARCH_NOTIFYDELETIONS  0x0010  /* deleted notes get NOTE_CLASS_NOTIFYDELETION */
#define SEARCH_ALLPRIVS         0x0040
#define SEARCH_SESSION_USERNAME 0x0400
#define SEARCH_NOABSTRACTS      0x1000
#define SEARCH_DATAONLY_FORMULA 0x4000  /* formula filters data notes only */

/* SEARCH_MATCH.SERetFlags. Test bits with &, the byte may carry several. */
#define SE_FNOMATCH     0x00
#define SE_FMATCH       0x01  /* the note matches the formula */
#define SE_FTRUNCATED   0x02  /* summary buffer was truncated */
#define SE_FPURGED      0x04
#define SE_FNOPURGE     0x08
#define SE_FSOFTDELETED 0x10

/* What a search callback learns about one note. It arrives in a packed
   buffer: memcpy it into a local before reading the members. */
typedef struct {
	GLOBALINSTANCEID ID;            /* file, modification time, NoteID */
	ORIGINATORID     OriginatorID;  /* UNID and revision */
	WORD             NoteClass;
	BYTE             SERetFlags;    /* SE_F* */
	BYTE             Privileges;
	WORD             SummaryLength;
} SEARCH_MATCH;                     /* 54 bytes of data, sizeof 56 */

/* Search callback: a non-NOERROR return ends the search and becomes
   NSFSearch's result. SummaryBuffer is NULL unless SEARCH_SUMMARY. */
typedef STATUS (LNCALLBACKPTR NSFSEARCHPROC)(void far *EnumRoutineParameter,
                                             SEARCH_MATCH far *SearchMatch,
                                             ITEM_TABLE far *SummaryBuffer);

#ifdef __cplusplus
extern "C" {
#endif

/* hFormula NULLHANDLE selects every note of NoteClassMask. ViewTitle is
   only used by @ViewTitle. Since NULL means no date filter; retUntil may
   be NULL. */
STATUS LNPUBLIC NSFSearch(DBHANDLE hDB, FORMULAHANDLE hFormula,
                          char far *ViewTitle, WORD SearchFlags,
                          WORD NoteClassMask, TIMEDATE far *Since,
                          NSFSEARCHPROC EnumRoutine,
                          void far *EnumRoutineParameter,
                          TIMEDATE far *retUntil);

/* FormulaName is NULL/0 except for view columns. On a syntax error returns
   ERR_FORMULA_COMPILATION and fills the five retCompileError* values.
   Free the formula with OSMemFree. */
STATUS LNPUBLIC NSFFormulaCompile(char far *FormulaName, WORD FormulaNameLength,
                                  const char far *FormulaText,
                                  WORD FormulaTextLength,
                                  FORMULAHANDLE far *rethFormula,
                                  WORD far *retFormulaLength,
                                  STATUS far *retCompileError,
                                  WORD far *retCompileErrorLine,
                                  WORD far *retCompileErrorColumn,
                                  WORD far *retCompileErrorOffset,
                                  WORD far *retCompileErrorLength);

/* Gives back the LMBCS text of a compiled formula (a selection formula of
   a view when fSelectionFormula). The text is not NUL-terminated; free it
   with OSMemFree. */
STATUS LNPUBLIC NSFFormulaDecompile(char far *pFormulaBuffer,
                                    BOOL fSelectionFormula,
                                    DHANDLE far *rethFormulaText,
                                    WORD far *retFormulaTextLength);

#ifdef __cplusplus
}
#endif

#endif /* NSF_SEARCH_DEFS */
