/*
 * bsafeerr.h - status codes of the security package (PKG_BSAFE).
 */
#ifndef BSAFE_ERR_DEFS
#define BSAFE_ERR_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* The user cancelled the password prompt. Often seen with STS_DISPLAYED
   set (0x9728); compare after ERR(). */
#define ERR_BSAFE_USER_ABORT (PKG_BSAFE+40)

#endif /* BSAFE_ERR_DEFS */
