/*
 * kfm.h - the ID file in use (key file manager).
 */
#ifndef KFM_DEFS
#define KFM_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "names.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Name of the current ID (on a server, the server's name), NUL-terminated;
   retUserName holds at least MAXUSERNAME + 1 bytes. */
STATUS LNPUBLIC SECKFMGetUserName(char far *retUserName);

#ifdef __cplusplus
}
#endif

#endif /* KFM_DEFS */
