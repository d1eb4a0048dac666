/* Every bundled Notes C API header must compile as C, alone and together,
   and give the same layout as in C++. Compile-only: building this file is
   the test. */
#include "global.h"
#include "globerr.h"
#include "oserr.h"
#include "nsferr.h"
#include "miscerr.h"
#include "bsafeerr.h"
#include "clerr.h"
#include "pool.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "nsf.h"
#include "nls.h"
#include "osmisc.h"
#include "osenv.h"
#include "osfile.h"
#include "osmem.h"
#include "ostime.h"
#include "misc.h"
#include "names.h"
#include "kfm.h"
#include "addin.h"
#include "acl.h"

#include <stddef.h>

_Static_assert(sizeof(TIMEDATE) == 8, "TIMEDATE");
_Static_assert(sizeof(UNIVERSALNOTEID) == 16, "UNID");
_Static_assert(sizeof(ORIGINATORID) == 28, "ORIGINATORID");
_Static_assert(sizeof(GLOBALINSTANCEID) == 20, "GLOBALINSTANCEID");
_Static_assert(sizeof(SEARCH_MATCH) == 56, "SEARCH_MATCH");
_Static_assert(offsetof(SEARCH_MATCH, SERetFlags) == 50, "SEARCH_MATCH.SERetFlags");
_Static_assert(sizeof(DBREPLICAINFO) == 20, "DBREPLICAINFO");
_Static_assert(sizeof(BLOCKID) == 8, "BLOCKID");
_Static_assert(sizeof(TIME) == 48, "TIME");
_Static_assert(sizeof(DHANDLE) == 4 && sizeof(DWORD) == 4 && sizeof(STATUS) == 2, "widths");

/* A search callback written the toolkit's way must fit NSFSEARCHPROC. */
static STATUS LNCALLBACK c_check_callback(void far *param, SEARCH_MATCH far *match,
                                          ITEM_TABLE far *summary)
{
	(void) param;
	(void) summary;
	return (match->SERetFlags & SE_FMATCH) ? NOERROR : ERR_NOT_FOUND;
}

NSFSEARCHPROC notesapi_c_check_proc = c_check_callback;
