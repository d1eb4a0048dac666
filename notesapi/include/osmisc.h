/*
 * osmisc.h - character-set translation, status texts, the LMBCS
 * character-set information and starting external programs.
 */
#ifndef OS_MISC_DEFS
#define OS_MISC_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "nls.h"

/* OSTranslate modes (WORD). On UNIX "native" is the platform character
   set (UTF-8 here). The Unicode modes produce/consume UTF-16. */
#define OS_TRANSLATE_NATIVE_TO_LMBCS   0
#define OS_TRANSLATE_LMBCS_TO_NATIVE   1
#define OS_TRANSLATE_LOWER_TO_UPPER    3   /* LMBCS case fold to upper */
#define OS_TRANSLATE_UPPER_TO_LOWER    4
#define OS_TRANSLATE_UNACCENT          5
#define OS_TRANSLATE_OSNATIVE_TO_LMBCS 0   /* same as NATIVE on UNIX */
#define OS_TRANSLATE_LMBCS_TO_OSNATIVE 1
#define OS_TRANSLATE_LMBCS_TO_ASCII    11
#define OS_TRANSLATE_LMBCS_TO_UNICODE  20
#define OS_TRANSLATE_LMBCS_TO_UTF8     22
#define OS_TRANSLATE_UNICODE_TO_LMBCS  23
#define OS_TRANSLATE_UTF8_TO_LMBCS     24

/* OSLoadProgram flags. */
#define OS_LOADPROG_ICONIC       0x0001
#define OS_LOADPROG_BACKGROUND   0x0002
#define OS_LOADPROG_DEBUG        0x0004
#define OS_LOADPROG_DETACHED     0x0008  /* do not wait for the process */
#define OS_LOADPROG_ASSOCIATE    0x0010
#define OS_LOADPROG_PRIORITY_LOW 0x0020
#define OS_LOADPROG_SHELL_SCRIPT_USE_EXECVP 0x0040
#define OS_LOADPROG_OPEN_WITH    0x0080

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the number of bytes stored in Out (OutLength is its size).
   InLength MAXWORD: In is NUL-terminated. No terminator is promised;
   callers terminate at the returned length. */
WORD LNPUBLIC OSTranslate(WORD TranslateMode, const char far *In,
                          WORD InLength, char far *Out, WORD OutLength);

/* Text of a status code (pass ERR(code); hModule NULLHANDLE for the
   platform's own strings). BufferLength is the longest string accepted,
   normally sizeof(buffer) - 1. Returns the length, 0 if unknown. */
WORD LNPUBLIC OSLoadString(HMODULE hModule, STATUS StringCode,
                           char far *retBuffer, WORD BufferLength);

/* Character-set information for LMBCS, for the NLS_* routines. */
NLS_PINFO LNPUBLIC OSGetLMBCSCLS(void);

/* Starts a program. WorkingDir NULL: the program's own directory.
   Arguments are LMBCS. Without OS_LOADPROG_DETACHED the call is taken to
   wait for the program (not stated by the vendor). */
STATUS LNPUBLIC OSLoadProgram(char far *filename, char far *WorkingDir,
                              char far *Arguments, WORD Flags);

#ifdef __cplusplus
}
#endif

#endif /* OS_MISC_DEFS */
