/*
 * nls.h - the national-language string routines that walk LMBCS text one
 * character (1 to 3 bytes) at a time. Get the character-set information
 * for LMBCS with OSGetLMBCSCLS (osmisc.h).
 */
#ifndef NLS_DEFS
#define NLS_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* Result of the NLS_* calls. */
typedef WORD NLS_STATUS;

/* Opaque character-set information. */
typedef void NLS_INFO;
typedef NLS_INFO far *NLS_PINFO;

#define NLS_SUCCESS      0x0000
#define NLS_ENDOFSTRING  0x1001
#define NLS_FINDFAILED   0x1005
#define NLS_BADPARM      0xABAD

/* Length argument meaning "the string runs to its NUL". */
#define NLS_NULLTERM ((WORD) -1)

/* Longest LMBCS character. */
#define NLS_MAXBYTESPERCHAR 3

/* NLS_find control flags. */
#define NLS_FIND_CHARINSET    0x0001  /* stop at the first char in the set */
#define NLS_FIND_CHARNOTINSET 0x0002  /* stop at the first char not in it */

#ifdef __cplusplus
extern "C" {
#endif

/* Moves *ppString to the first character in (or not in) pSetOfChars.
   Returns NLS_SUCCESS or NLS_FINDFAILED. */
NLS_STATUS LNPUBLIC NLS_find(BYTE far * far *ppString, WORD Len,
                             const BYTE far *pSetOfChars, WORD ControlFlags,
                             NLS_PINFO pInfo);

/* Advances *ppString by one character unless at the end; returns the
   number of bytes skipped (0 for bad arguments or Len 0). */
WORD LNPUBLIC NLS_goto_next(BYTE far * far *ppString, WORD Len,
                            NLS_PINFO pInfo);

#ifdef __cplusplus
}
#endif

#endif /* NLS_DEFS */
