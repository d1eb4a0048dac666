/*
 * acl.h - building and reading access control lists in memory. A
 * database's ACL is read and stored with NSFDbReadACL / NSFDbStoreACL
 * (nsfdb.h); the handle is a memory object freed with OSMemFree.
 */
#ifndef ACL_DEFS
#define ACL_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

/* ACL-wide flags (ACLGetFlags / ACLSetFlags). */
#define ACL_UNIFORM_ACCESS 0x00000001

/* Access levels. */
#define ACL_LEVEL_NOACCESS  0
#define ACL_LEVEL_DEPOSITOR 1
#define ACL_LEVEL_READER    2
#define ACL_LEVEL_AUTHOR    3
#define ACL_LEVEL_EDITOR    4
#define ACL_LEVEL_DESIGNER  5
#define ACL_LEVEL_MANAGER   6
#define ACL_LEVEL_HIGHEST   6
#define ACL_LEVEL_COUNT     7
#define ACL_LEVEL_STRINGMAX 128

/* Named privileges (roles). */
#define ACL_PRIVCOUNT     80   /* bits, 10 bytes */
#define ACL_PRIVNAMEMAX   16   /* terminator included */
#define ACL_PRIVSTRINGMAX (16+2)
#define ACL_BITPRIVCOUNT  5
#define ACL_BITPRIVS      0x1f

/* Access-level modifier flags of an entry. */
#define ACL_FLAG_AUTHOR_NOCREATE     0x0001
#define ACL_FLAG_SERVER              0x0002
#define ACL_FLAG_NODELETE            0x0004
#define ACL_FLAG_CREATE_PRAGENT      0x0008
#define ACL_FLAG_CREATE_PRFOLDER     0x0010
#define ACL_FLAG_PERSON              0x0020
#define ACL_FLAG_GROUP               0x0040
#define ACL_FLAG_CREATE_FOLDER       0x0080
#define ACL_FLAG_CREATE_LOTUSSCRIPT  0x0100
#define ACL_FLAG_PUBLICREADER        0x0200
#define ACL_FLAG_PUBLICWRITER        0x0400
#define ACL_FLAG_MONITORS_DISALLOWED 0x0800
#define ACL_FLAG_NOREPLICATE         0x1000
#define ACL_FLAG_ADMIN_READERAUTHOR  0x4000
#define ACL_FLAG_ADMIN_SERVER        0x8000

/* ACLUpdateEntry: which parameters change. */
#define ACL_UPDATE_NAME       0x01
#define ACL_UPDATE_LEVEL      0x02
#define ACL_UPDATE_PRIVILEGES 0x04
#define ACL_UPDATE_FLAGS      0x08

/* A user's name followed by all the groups it belongs to, packed as
   NUL-terminated strings after this header. */
typedef struct {
	WORD      NumNames;
	LICENSEID License;        /* obsolete, must be zero */
	DWORD     Authenticated;
} NAMES_LIST;

#define NAMES_LIST_AUTHENTICATED          0x0001
#define NAMES_LIST_PASSWORD_AUTHENTICATED 0x0002
#define NAMES_LIST_FULL_ADMIN_ACCESS      0x0004

/* Privilege bit mask of an entry. */
typedef struct {
	BYTE BitMask[10];
} ACL_PRIVILEGES;

#define ACLIsPrivSet(privs, num)  ((privs).BitMask[(num) / 8] &   (1 << ((num) % 8)))
#define ACLSetPriv(privs, num)    ((privs).BitMask[(num) / 8] |=  (1 << ((num) % 8)))
#define ACLClearPriv(privs, num)  ((privs).BitMask[(num) / 8] &= ~(1 << ((num) % 8)))
#define ACLInvertPriv(privs, num) ((privs).BitMask[(num) / 8] ^=  (1 << ((num) % 8)))

#ifdef __cplusplus
extern "C" {
#endif

STATUS LNPUBLIC ACLCreate(DHANDLE far *rethACL);
STATUS LNPUBLIC ACLAddEntry(DHANDLE hACL, const char far *Name,
                            WORD AccessLevel, ACL_PRIVILEGES far *Privileges,
                            WORD AccessFlags);
STATUS LNPUBLIC ACLDeleteEntry(DHANDLE hACL, const char far *Name);
STATUS LNPUBLIC ACLUpdateEntry(DHANDLE hACL, const char far *Name,
                               WORD UpdateFlags, const char far *NewName,
                               WORD NewAccessLevel,
                               ACL_PRIVILEGES far *NewPrivileges,
                               WORD NewAccessFlags);

/* Calls EnumFunc once per entry. The callback type has no name in the
   vendor's header, so none is given here either. */
STATUS LNPUBLIC ACLEnumEntries(DHANDLE hACL,
                               void (LNCALLBACKPTR EnumFunc)(void far *EnumFuncParam,
                                                             char far *Name,
                                                             WORD AccessLevel,
                                                             ACL_PRIVILEGES far *Privileges,
                                                             WORD AccessFlags),
                               void far *EnumFuncParam);

STATUS LNPUBLIC ACLLookupAccess(DHANDLE hACL, NAMES_LIST far *pNamesList,
                                WORD far *retAccessLevel,
                                ACL_PRIVILEGES far *retPrivileges,
                                WORD far *retAccessFlags,
                                DHANDLE far *rethPrivNames);
STATUS LNPUBLIC ACLGetPrivName(DHANDLE hACL, WORD PrivNum,
                               char far *retPrivName);
STATUS LNPUBLIC ACLSetPrivName(DHANDLE hACL, WORD PrivNum, char far *PrivName);
STATUS LNPUBLIC ACLGetFlags(DHANDLE hACL, DWORD far *Flags);
STATUS LNPUBLIC ACLSetFlags(DHANDLE hACL, DWORD Flags);

#ifdef __cplusplus
}
#endif

#endif /* ACL_DEFS */
