/*
 * pool.h - BLOCKID, the address of a block inside a memory pool.
 *
 * Item and value locations returned by NSFItemInfo are BLOCKIDs. They point
 * into memory owned by the note: lock with OSLockBlock (osmem.h) to read,
 * never free them.
 */
#ifndef POOL_DEFS
#define POOL_DEFS

#include "global.h"

typedef struct {
	DHANDLE pool;   /* memory object holding the pool */
	BLOCK   block;  /* offset of the block inside it */
} BLOCKID;          /* 8 bytes on x86-64: 4 + 2 + 2 padding */

#define NULLBLOCK ((BLOCK) 0)
#define ISNULLBLOCKID(b) ((b).pool == NULLHANDLE)

#endif /* POOL_DEFS */
