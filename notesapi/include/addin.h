/*
 * addin.h - services for server add-in tasks: console and log messages,
 * status line, idle waits and termination requests.
 */
#ifndef ADDIN_DEFS
#define ADDIN_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* Longest console command, terminator included. */
#define MAX_CONSOLE_CMD_LEN 256

#ifdef __cplusplus
extern "C" {
#endif

/* Entry point of an add-in executable (defined by the add-in). */
STATUS LNPUBLIC AddInMain(HMODULE hModule, int argc, char far *argv[]);

/* Each returns TRUE when the task has been asked to terminate. */
BOOL LNPUBLIC AddInIdle(void);
BOOL LNPUBLIC AddInIdleDelay(DWORD Delay);          /* Delay in ms */
BOOL LNPUBLIC AddInShouldTerminate(void);
BOOL LNPUBLIC AddInSecondsHaveElapsed(DWORD Seconds);
#define AddInMinutesHaveElapsed(x) AddInSecondsHaveElapsed((DWORD)(x) * 60L)
BOOL LNPUBLIC AddInDayHasElapsed(void);

/* printf-style (at most six specifiers). Writes
   "date time <String>: <text of AdditionalErrorCode>" to the console and
   the log; NOERROR adds no secondary text. String is not const in the
   vendor's declaration. */
void LNVARARGS AddInLogMessageText(char far *String, STATUS AdditionalErrorCode, ...);
void LNPUBLIC  AddInLogErrorText(char far *String, STATUS AdditionalErrorCode,
                                 char far *Arg);
void LNVARARGS AddInSetStatusText(char far *String, ...);
void LNVARARGS AddInFormatErrorText(char far *retString, char far *String, ...);

#ifdef __cplusplus
}
#endif

#endif /* ADDIN_DEFS */
