// The public Notes API declarations, seen by every source file of the emulator.
// They are declared with default visibility while the library is built with
// hidden visibility, so exactly the functions the headers declare are exported
// and nothing of the emulator's internals is.
//
// Include standard and third-party headers before this one: global.h defines
// far, near, pascal and NULL the way the toolkit does.
#ifndef EMU_API_H
#define EMU_API_H

#pragma GCC visibility push(default)
#include "global.h"
#include "names.h"
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
#include "emu/notesemu.h"
#pragma GCC visibility pop

#endif
