/*
 * names.h - limits of user and server names.
 */
#ifndef NAMES_DEFS
#define NAMES_DEFS

#include "global.h"

/* Buffer size for a user or server name, terminator included. */
#define MAXUSERNAME 256

#endif /* NAMES_DEFS */
