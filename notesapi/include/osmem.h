/*
 * osmem.h - movable memory objects: allocate, lock, unlock, free.
 */
#ifndef OS_MEM_DEFS
#define OS_MEM_DEFS

#include "global.h"
#include "pool.h"

/* OSMemAlloc BlkType. 0 is private memory. */
#define MEM_SHARE    0x8000
#define MEM_GROWABLE 0x4000

#ifdef __cplusplus
extern "C" {
#endif

/* Size 0 gives NULLHANDLE. On failure (ERR_MEMORY, ERR_SEGMENT_TOO_BIG)
   *retHandle is NULLHANDLE. */
STATUS LNPUBLIC OSMemAlloc(WORD BlkType, DWORD dwSize, DHANDLE far *retHandle);
/* The object must be fully unlocked. */
STATUS LNPUBLIC OSMemFree(DHANDLE Handle);
STATUS LNPUBLIC OSMemGetSize(DHANDLE Handle, DWORD far *retSize);
STATUS LNPUBLIC OSMemRealloc(DHANDLE Handle, DWORD NewSize);

/* Locks may nest; each lock needs its unlock. */
void far * LNPUBLIC OSLockObject(DHANDLE Handle);
BOOL LNPUBLIC OSUnlockObject(DHANDLE Handle);

#ifdef __cplusplus
}
#endif

#define OSLock(type, handle) ((type far *) OSLockObject(handle))
#define OSUnlock(handle)     OSUnlockObject(handle)

/* Pointer to a block inside a pool, e.g. an item value from NSFItemInfo. */
#define OSLockBlock(type, blockid) \
	((type far *) (((char far *) OSLockObject((blockid).pool)) + (blockid).block))
#define OSUnlockBlock(blockid) OSUnlockObject((blockid).pool)

#endif /* OS_MEM_DEFS */
