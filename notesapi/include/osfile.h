/*
 * osfile.h - the data and program directories and network path names.
 */
#ifndef OS_FILE_DEFS
#define OS_FILE_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

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

#ifdef __cplusplus
}
#endif

#endif /* OS_FILE_DEFS */
