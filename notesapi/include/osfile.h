/*
 * osfile.h - the data and program directories and network path names.
 */
#ifndef OS_FILE_DEFS
#define OS_FILE_DEFS

#include "global.h"

#ifdef __cplusplus
extern "C" {
#endif

/* retPathName: MAXPATH bytes. Returns the length of the NUL-terminated
   data directory (notes.ini "Directory"). */
WORD LNPUBLIC OSGetDataDirectory(char far *retPathName);

/* retPathName: MAXPATH bytes; the program directory, NUL-terminated. */
void LNPUBLIC OSGetExecutableDirectory(char *retPathName);

/* "port!!server!!file" style names for remote databases. retPathName:
   MAXPATH bytes. */
STATUS LNPUBLIC OSPathNetConstruct(const char far *PortName,
                                   const char far *ServerName,
                                   const char far *FileName,
                                   char far *retPathName);
STATUS LNPUBLIC OSPathNetParse(const char far *PathName, char far *retPortName,
                               char far *retServerName, char far *retFileName);

/* Full path of the settings file (notes.ini), into a MAXPATH buffer;
   returns its length. The vendor exports this call but documents it in no
   header, so this prototype is our best reading of its public uses. Code
   that must also build against a real toolkit should carry its own
   identical prototype. */
WORD LNPUBLIC OSGetIniFileName(char far *retPathName);

#ifdef __cplusplus
}
#endif

#endif /* OS_FILE_DEFS */
