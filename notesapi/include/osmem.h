/*
 * osmem.h - movable memory objects: allocate, lock, unlock, free.
 */
#ifndef OS_MEM_DEFS
#define OS_MEM_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

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

#endif /* OS_MEM_DEFS */
