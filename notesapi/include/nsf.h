/*
 * nsf.h - everything about databases and notes in one include.
 */
#ifndef NSF_ALL_DEFS
#define NSF_ALL_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "nsferr.h"

#endif /* NSF_ALL_DEFS */
