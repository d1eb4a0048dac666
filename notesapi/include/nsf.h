/*
 * nsf.h - everything about databases and notes in one include.
 */
#ifndef NSF_ALL_DEFS
#define NSF_ALL_DEFS

#include "global.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "nsferr.h"

#endif /* NSF_ALL_DEFS */
