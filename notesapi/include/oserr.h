/*
 * oserr.h - status codes of the operating-system package (PKG_OS).
 */
#ifndef OS_ERR_DEFS
#define OS_ERR_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

#define ERR_UNKNOWN             (PKG_OS+1)   /* unknown OS error */
#define ERR_PROTECTED           (PKG_OS+2)   /* file or disk is read-only */
#define ERR_NOEXIST             (PKG_OS+3)   /* file does not exist */
#define ERR_EXISTS              (PKG_OS+4)   /* file already exists */
#define ERR_FILES               (PKG_OS+5)   /* too many open files */
#define ERR_DISK                (PKG_OS+6)   /* insufficient disk space */
#define ERR_MEMORY              (PKG_OS+7)   /* insufficient memory */
#define ERR_CREATE              (PKG_OS+8)   /* file cannot be created */
#define ERR_LOCK                (PKG_OS+12)  /* file in use by another program */
#define ERR_IOERROR             (PKG_OS+14)  /* I/O data error */
#define ERR_ACCESS              (PKG_OS+16)  /* access to data denied */
#define ERR_INV_FILE_NAME       (PKG_OS+19)  /* file name too long or invalid */
#define ERR_OS_NULL_HANDLE      (PKG_OS+54)  /* null handle */
#define ERR_OS_HANDLE_RANGE     (PKG_OS+55)  /* handle out of range */
#define ERR_OS_FREE_HANDLE      (PKG_OS+56)  /* handle not allocated */
#define ERR_OS_STILL_LOCKED     (PKG_OS+57)  /* freeing a locked object */
#define ERR_OS_ALREADY_UNLOCKED (PKG_OS+58)  /* unlocking an unlocked object */
#define ERR_SEGMENT_TOO_BIG     (PKG_OS+59)  /* allocation over 65,000 bytes */
#define ERR_OS_EXECERRORNF      (PKG_OS+73)  /* unable to locate program */
#define ERR_OS_EXECERROR        (PKG_OS+74)  /* unable to invoke program */
#define ERR_NO_NOTESINI         (PKG_OS+165) /* notes.ini cannot be found */
#define ERR_NOT_SUPPORTED       (PKG_OS+224) /* not supported on this OS */

#endif /* OS_ERR_DEFS */
