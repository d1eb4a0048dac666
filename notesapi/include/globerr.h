/*
 * globerr.h - layout of STATUS codes and the package bases of the error
 * numbering.
 *
 * A STATUS is 16 bits: bit 15 (STS_DISPLAYED) says the error was already
 * shown to the user, bit 14 (STS_REMOTE) that it came from a server, and
 * bits 13..0 are the code proper, a package base plus a number. Strip the
 * flags with ERR() before comparing against ERR_* or asking OSLoadString
 * for the text.
 */
#ifndef GLOBERR_DEFS
#define GLOBERR_DEFS

#define NOERROR 0

#define STS_DISPLAYED ((STATUS) 0x8000)
#define STS_REMOTE    ((STATUS) 0x4000)
#define ERR_MASK      0x3fff
#define PKG_MASK      0x3f00
#define ERRNUM_MASK   0x00ff

#define ERR(error)    ((STATUS) ((error) & ERR_MASK))
/* PKG() and ERRNUM() only split codes of the old 256-wide packages; the
   newer packages (PKG_NSF3, PKG_BSAFE, ...) start part-way into a range. */
#define PKG(error)    ((STATUS) ((error) & PKG_MASK))
#define ERRNUM(error) ((STATUS) ((error) & ERRNUM_MASK))

/* OSMemAlloc BlkType (osmem.h). 0 is private memory. */
#define MEM_SHARE    ((WORD) 0x8000)
#define MEM_GROWABLE ((WORD) 0x4000)

/* Package bases. */
#define PKG_OS       0x0100
#define PKG_NSF      0x0200
#define PKG_NIF      0x0300
#define PKG_NSF2     0x0380
#define PKG_MISC     0x0400
#define PKG_FORMULA  0x0500
#define PKG_CLIENT   0x0800
#define PKG_SERVER   0x0900
#define PKG_NSF3     0x1380
#define PKG_BSAFE    0x1700
#define PKG_ADDIN    0x3300
#define PKG_ADDIN2   0x3700

#endif /* GLOBERR_DEFS */
