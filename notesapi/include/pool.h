/*
 * pool.h - BLOCKID, the address of a block inside a memory pool.
 *
 * Item and value locations returned by NSFItemInfo are BLOCKIDs. They point
 * into memory owned by the note: lock with OSLockBlock (osmem.h) to read,
 * never free them.
 */
#ifndef POOL_DEFS
#define POOL_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

typedef struct {
	DHANDLE pool;   /* memory object holding the pool */
	BLOCK   block;  /* offset of the block inside it */
} BLOCKID;          /* 8 bytes on x86-64: 4 + 2 + 2 padding */

#define NULLBLOCK ((BLOCK) 0)
#define ISNULLBLOCKID(b) (((b).pool == NULLHANDLE) && ((b).block == NULLBLOCK))

/* Pointer to a block inside a pool, e.g. an item value from NSFItemInfo
   (OSLockObject and OSUnlockObject are in osmem.h). */
#define OSLockBlock(type, blockid) \
	((type far *) (((char far *) OSLockObject((blockid).pool)) + (blockid).block))
#define OSUnlockBlock(blockid) OSUnlockObject((blockid).pool)

#endif /* POOL_DEFS */
