/*
 * osenv.h - notes.ini settings ("environment variables").
 */
#ifndef OS_ENV_DEFS
#define OS_ENV_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* Longest value, terminator included. */
#define MAXENVVALUE 256

#ifdef __cplusplus
extern "C" {
#endif

/* Name is case-insensitive. BufferLength is the buffer size minus one; the
   value is always NUL-terminated. Returns TRUE if the setting exists. */
BOOL LNPUBLIC OSGetEnvironmentString(const char far *VariableName,
                                     char far *retValueBuffer,
                                     WORD BufferLength);

/* Numeric value; 0 when missing or not a number. long is 64-bit here. */
long LNPUBLIC OSGetEnvironmentLong(const char far *VariableName);
#define OSGetEnvironmentInt(VariableName) ((int) OSGetEnvironmentLong(VariableName))

void LNPUBLIC OSSetEnvironmentVariable(const char far *VariableName,
                                       const char far *Value);
void LNPUBLIC OSSetEnvironmentInt(const char far *VariableName, int Value);

#ifdef __cplusplus
}
#endif

#endif /* OS_ENV_DEFS */
