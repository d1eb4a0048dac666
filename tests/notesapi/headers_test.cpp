// Checks that the bundled Notes C API headers match the real toolkit's
// binary layout, constant values and function types on Linux x86-64.
// Everything here is compile-time information, so the suite needs no
// platform library; a mismatch means code built against these headers
// would misbehave against libnotes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

#include "global.h"
#include "nsf.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearc.h"
#include "pool.h"
#include "osmisc.h"
#include "osenv.h"
#include "osfile.h"
#include "osmem.h"
#include "ostime.h"
#include "misc.h"
#include "nls.h"
#include "kfm.h"
#include "names.h"
#include "addin.h"
#include "acl.h"
#include "oserr.h"
#include "nsferr.h"
#include "miscerr.h"
#include "bsafeerr.h"

namespace {

template <typename A, typename B>
constexpr bool same = std::is_same<A, B>::value;

// ---------------------------------------------------------------------------
// Scalar widths and signedness

TEST(NotesHeaderTypes, ScalarWidthsFollowLongIs64Bit) {
    EXPECT_EQ(sizeof(BYTE), 1u);
    EXPECT_EQ(sizeof(WORD), 2u);
    EXPECT_EQ(sizeof(STATUS), 2u);
    EXPECT_EQ(sizeof(DWORD), 4u);   // not 8 although long is 8 bytes here
    EXPECT_EQ(sizeof(LONG), 4u);
    EXPECT_EQ(sizeof(BOOL), 4u);
    EXPECT_EQ(sizeof(NDQWORD), 8u);
    EXPECT_EQ(sizeof(NUMBER), 8u);
    EXPECT_EQ(sizeof(NOTEID), 4u);
    EXPECT_EQ(sizeof(NLS_STATUS), 2u);
    EXPECT_EQ(sizeof(NLS_PINFO), sizeof(void *));
}

TEST(NotesHeaderTypes, HandlesAre32BitUnsigned) {
    EXPECT_EQ(sizeof(HANDLE), 4u);
    EXPECT_EQ(sizeof(DHANDLE), 4u);
    EXPECT_EQ(sizeof(MEMHANDLE), 4u);
    EXPECT_TRUE(std::is_unsigned<HANDLE>::value);
    EXPECT_TRUE(std::is_unsigned<DHANDLE>::value);
    // The NSF handle names are aliases of HANDLE, not distinct types.
    EXPECT_TRUE((same<DBHANDLE, HANDLE>));
    EXPECT_TRUE((same<NOTEHANDLE, HANDLE>));
    EXPECT_TRUE((same<FORMULAHANDLE, HANDLE>));
    EXPECT_TRUE((same<HMODULE, HANDLE>));
}

TEST(NotesHeaderTypes, SignednessMatchesToolkit) {
    EXPECT_TRUE(std::is_unsigned<WORD>::value);
    EXPECT_TRUE(std::is_unsigned<DWORD>::value);
    EXPECT_TRUE(std::is_unsigned<STATUS>::value);
    EXPECT_TRUE(std::is_signed<LONG>::value);
    EXPECT_TRUE(std::is_signed<BOOL>::value);
    EXPECT_TRUE((same<NUMBER, double>));
    // A STATUS with the "displayed" bit must stay positive when widened.
    STATUS s = 0x9728;
    EXPECT_EQ(static_cast<int>(s), 0x9728);
}

TEST(NotesHeaderTypes, BasicConstants) {
    EXPECT_EQ(TRUE, 1);
    EXPECT_EQ(FALSE, 0);
    EXPECT_EQ(NULLHANDLE, 0);
    EXPECT_EQ(MAXWORD, 0xFFFFu);
    EXPECT_EQ(MAXDWORD, 0xFFFFFFFFu);
    EXPECT_EQ(MAXPATH, 256);
    EXPECT_EQ(MAXUSERNAME, 256);
    EXPECT_EQ(MAXENVVALUE, 256);
    EXPECT_EQ(NSF_INFO_SIZE, 128);
    EXPECT_EQ(MAX_CONSOLE_CMD_LEN, 256);
    // MAXWORD is a WORD, so it is the "NUL-terminated" length sentinel.
    EXPECT_TRUE((same<decltype(MAXWORD), WORD>));
    EXPECT_EQ(NLS_NULLTERM, static_cast<WORD>(0xFFFF));
}

// The literal's own type decides promotion, overloads and printf formats, so
// it has to be the toolkit's, not just the value.
TEST(NotesHeaderTypes, ConstantsCarryTheToolkitsTypes) {
    EXPECT_TRUE((same<decltype(MEM_SHARE), WORD>));
    EXPECT_TRUE((same<decltype(MEM_GROWABLE), WORD>));
    EXPECT_TRUE((same<decltype(ALLDAY), long>));
    EXPECT_TRUE((same<decltype(ANYDAY), long>));
    EXPECT_TRUE((same<decltype(OPEN_WITH_FOLDERS), int>));
    EXPECT_TRUE((same<decltype(OPEN_RAW_MIME), int>));
    EXPECT_TRUE((same<decltype(STS_DISPLAYED), STATUS>));
    EXPECT_TRUE(std::is_unsigned<NDQWORD>::value);
}

// ---------------------------------------------------------------------------
// Structure layout (natural alignment, no packing)

TEST(NotesHeaderLayout, TimeAndIdentifiers) {
    EXPECT_EQ(sizeof(TIMEDATE), 8u);
    EXPECT_EQ(sizeof(TIMEDATE_PAIR), 16u);
    EXPECT_EQ(sizeof(NUMBER_PAIR), 16u);
    EXPECT_EQ(sizeof(DBID), 8u);

    EXPECT_EQ(sizeof(UNIVERSALNOTEID), 16u);
    EXPECT_EQ(offsetof(UNIVERSALNOTEID, File), 0u);
    EXPECT_EQ(offsetof(UNIVERSALNOTEID, Note), 8u);
    EXPECT_TRUE((same<UNID, UNIVERSALNOTEID>));

    EXPECT_EQ(sizeof(ORIGINATORID), 28u);
    EXPECT_EQ(offsetof(ORIGINATORID, File), 0u);
    EXPECT_EQ(offsetof(ORIGINATORID, Note), 8u);
    EXPECT_EQ(offsetof(ORIGINATORID, Sequence), 16u);
    EXPECT_EQ(offsetof(ORIGINATORID, SequenceTime), 20u);
    EXPECT_TRUE((same<OID, ORIGINATORID>));

    EXPECT_EQ(sizeof(GLOBALINSTANCEID), 20u);
    EXPECT_EQ(offsetof(GLOBALINSTANCEID, Note), 8u);
    EXPECT_EQ(offsetof(GLOBALINSTANCEID, NoteID), 16u);
}

TEST(NotesHeaderLayout, UnidIsThePrefixOfTheOriginatorId) {
    // Code takes the UNID out of _NOTE_OID by copying the first 16 bytes.
    ORIGINATORID oid{};
    oid.File.Innards[0] = 0x11111111u;
    oid.File.Innards[1] = 0x22222222u;
    oid.Note.Innards[0] = 0x33333333u;
    oid.Note.Innards[1] = 0x44444444u;
    oid.Sequence = 7;
    UNID unid{};
    std::memcpy(&unid, &oid, sizeof unid);
    EXPECT_EQ(unid.File.Innards[1], 0x22222222u);
    EXPECT_EQ(unid.Note.Innards[0], 0x33333333u);
    EXPECT_EQ(unid.Note.Innards[1], 0x44444444u);
}

TEST(NotesHeaderLayout, SearchMatch) {
    EXPECT_EQ(sizeof(SEARCH_MATCH), 56u);
    EXPECT_EQ(offsetof(SEARCH_MATCH, ID), 0u);
    EXPECT_EQ(offsetof(SEARCH_MATCH, OriginatorID), 20u);
    EXPECT_EQ(offsetof(SEARCH_MATCH, NoteClass), 48u);
    EXPECT_EQ(offsetof(SEARCH_MATCH, SERetFlags), 50u);
    EXPECT_EQ(offsetof(SEARCH_MATCH, Privileges), 51u);
    EXPECT_EQ(offsetof(SEARCH_MATCH, SummaryLength), 52u);
    EXPECT_EQ(sizeof(SEARCH_MATCH::SERetFlags), 1u);
}

TEST(NotesHeaderLayout, ReplicaInfo) {
    EXPECT_EQ(sizeof(DBREPLICAINFO), 20u);
    EXPECT_EQ(offsetof(DBREPLICAINFO, ID), 0u);
    EXPECT_EQ(offsetof(DBREPLICAINFO, Flags), 8u);
    EXPECT_EQ(offsetof(DBREPLICAINFO, CutoffInterval), 10u);
    EXPECT_EQ(offsetof(DBREPLICAINFO, Cutoff), 12u);
}

TEST(NotesHeaderLayout, ItemTablesAndLists) {
    EXPECT_EQ(sizeof(ITEM_TABLE), 4u);
    EXPECT_EQ(offsetof(ITEM_TABLE, Items), 2u);
    EXPECT_EQ(sizeof(ITEM), 4u);
    EXPECT_EQ(offsetof(ITEM, ValueLength), 2u);
    EXPECT_EQ(sizeof(LIST), 2u);
    EXPECT_EQ(sizeof(RANGE), 4u);
}

TEST(NotesHeaderLayout, BlockIdTimeAndBuildVersion) {
    EXPECT_EQ(sizeof(BLOCKID), 8u);
    EXPECT_EQ(offsetof(BLOCKID, block), 4u);
    EXPECT_EQ(sizeof(BLOCK), 2u);

    EXPECT_EQ(sizeof(TIME), 48u);
    EXPECT_EQ(offsetof(TIME, zone), 36u);
    EXPECT_EQ(offsetof(TIME, GM), 40u);

    EXPECT_EQ(sizeof(BUILDVERSION), 36u);
    EXPECT_EQ(sizeof(ACL_PRIVILEGES), 10u);
}

// ---------------------------------------------------------------------------
// Status codes

TEST(NotesHeaderStatus, ErrStripsBothFlagBits) {
    EXPECT_EQ(ERR(0x9728), ERR_BSAFE_USER_ABORT);
    EXPECT_EQ(ERR(STS_REMOTE | ERR_NOT_FOUND), ERR_NOT_FOUND);
    EXPECT_EQ(ERR(STS_DISPLAYED | STS_REMOTE | ERR_DBINUSE), ERR_DBINUSE);
    EXPECT_EQ(ERR(NOERROR), 0);
    EXPECT_EQ(PKG(ERR_ITEM_NOT_FOUND), PKG_NSF);
    EXPECT_EQ(ERRNUM(ERR_ITEM_NOT_FOUND), 34);
}

TEST(NotesHeaderStatus, ValuesThatCallersCompareAgainst) {
    EXPECT_EQ(ERR_NOEXIST, 0x0103);
    EXPECT_EQ(ERR_EXISTS, 0x0104);
    EXPECT_EQ(ERR_MEMORY, 0x0107);
    EXPECT_EQ(ERR_NOT_NSF, 0x0201);
    EXPECT_EQ(ERR_CONFLICT, 0x0205);
    EXPECT_EQ(ERR_ITEM_NOT_FOUND, 0x0222);
    EXPECT_EQ(ERR_NOTE_DELETED, 0x0225);
    EXPECT_EQ(ERR_INVALID_NOTE, 0x0227);
    EXPECT_EQ(ERR_SUMMARY_TOO_BIG, 0x0231);
    EXPECT_EQ(ERR_NOACCESS, 0x0246);
    EXPECT_EQ(ERR_NOT_FOUND, 0x0404);
    EXPECT_EQ(ERR_MQ_QUITTING, 0x0466);
    EXPECT_EQ(ERR_FORMULA_COMPILATION, 0x0501);
    // Newer packages start mid-range, so these are easy to get wrong.
    EXPECT_EQ(ERR_DBINUSE, 0x13EA);
    EXPECT_EQ(ERR_DBINUSE, 5098);
    EXPECT_EQ(ERR_BSAFE_USER_ABORT, 0x1728);
}

TEST(NotesHeaderStatus, CodesFitTheCodeBits) {
    const int codes[] = {ERR_NOEXIST, ERR_EXISTS, ERR_NOT_FOUND, ERR_DBINUSE,
                         ERR_BSAFE_USER_ABORT, ERR_FORMULA_COMPILATION,
                         ERR_NO_NOTESINI, ERR_BIG_LITERAL, ERR_OS_FREE_HANDLE};
    for (int code : codes) {
        EXPECT_EQ(code & ~ERR_MASK, 0) << std::hex << code;
        EXPECT_NE(code, NOERROR);
    }
}

// ---------------------------------------------------------------------------
// Constants

TEST(NotesHeaderConstants, NoteClasses) {
    EXPECT_EQ(NOTE_CLASS_DOCUMENT, 0x0001);
    EXPECT_EQ(NOTE_CLASS_HELP, 0x0100);
    EXPECT_EQ(NOTE_CLASS_ACL, 0x0040);
    EXPECT_EQ(NOTE_CLASS_ALL, 0x7FFF);
    EXPECT_EQ(NOTE_CLASS_ALLNONDATA, 0x7FFE);
    EXPECT_EQ(NOTE_CLASS_ALLNONDATA, NOTE_CLASS_ALL & ~NOTE_CLASS_DOCUMENT);
    EXPECT_EQ(NOTE_CLASS_NOTIFYDELETION, 0x8000);
    EXPECT_EQ(NOTE_CLASS_ALL & NOTE_CLASS_NOTIFYDELETION, 0);
    EXPECT_EQ(SPECIAL_ID_NOTE, 0x8000);
    EXPECT_EQ(NOTE_ID_SPECIAL, 0xFFFF0000L);
}

TEST(NotesHeaderConstants, NoteInfoOpenUpdateItemFlags) {
    EXPECT_EQ(_NOTE_ID, 1);
    EXPECT_EQ(_NOTE_OID, 2);
    EXPECT_EQ(_NOTE_CLASS, 3);
    EXPECT_EQ(_NOTE_FLAGS, 7);
    EXPECT_EQ(OPEN_EXPAND, 0x0004);
    EXPECT_EQ(UPDATE_FORCE, 0x0001);
    EXPECT_EQ(UPDATE_NOSTUB, 0x0200);
    EXPECT_EQ(ITEM_SUMMARY, 0x0004);
    EXPECT_EQ(ITEM_SEAL, 0x0002);
    EXPECT_EQ(NOTEID_ADD, 0);
    EXPECT_EQ(NOTEID_ADD_OR_REPLACE, 0x80000000L);
    EXPECT_EQ(NOTEID_ADD_UNID, 0x80000001L);
}

TEST(NotesHeaderConstants, ItemTypesAreClassPlusIndex) {
    EXPECT_EQ(TYPE_TEXT, 0x0500);
    EXPECT_EQ(TYPE_TEXT_LIST, 0x0501);
    EXPECT_EQ(TYPE_NUMBER, 0x0300);
    EXPECT_EQ(TYPE_NUMBER_RANGE, 0x0301);
    EXPECT_EQ(TYPE_TIME_RANGE, 0x0401);
    EXPECT_EQ(TYPE_FORMULA, 0x0600);
    EXPECT_EQ(TYPE_COMPOSITE, 0x0001);
    EXPECT_EQ(TYPE_SIGNATURE, 0x0008);
    EXPECT_EQ(TYPE_HTML, 0x0015);
    EXPECT_EQ(TYPE_MIME_PART, 0x0019);
    EXPECT_EQ(TYPE_TEXT_LIST & CLASS_MASK, CLASS_TEXT);
    EXPECT_EQ(TYPE_FORMULA & CLASS_MASK, CLASS_FORMULA);
    // The macros must survive being used inside larger expressions.
    EXPECT_EQ(2 * TYPE_TEXT, 0x0A00);
    EXPECT_EQ(TYPE_TEXT_LIST * 1, 0x0501);
}

TEST(NotesHeaderConstants, SearchFlags) {
    EXPECT_EQ(SE_FMATCH, 0x01);
    EXPECT_EQ(SE_FNOMATCH, 0x00);
    EXPECT_EQ(SE_FSOFTDELETED, 0x10);
    EXPECT_EQ(SEARCH_SUMMARY, 0x0002);
    EXPECT_EQ(SEARCH_ALL_VERSIONS, 0x0001);
    EXPECT_EQ(SEARCH_NOTIFYDELETIONS, 0x0010);
    EXPECT_EQ(SEARCH_DATAONLY_FORMULA, 0x4000);
}

TEST(NotesHeaderConstants, ReplicationFlagsAndPriority) {
    EXPECT_EQ(REPLFLG_HIDDEN_DESIGN, 0x0020);
    EXPECT_EQ(REPLFLG_DISABLE, 0x0004);
    EXPECT_EQ(REPLFLG_NEVER_REPLICATE, 0x0100);
    // Priority is stored biased by -1: low=3, medium=0, high=1 in bits 14-15.
    EXPECT_EQ(REPL_SET_PRIORITY(0), REPLFLG_PRIORITY_LOW);
    EXPECT_EQ(REPL_SET_PRIORITY(1), REPLFLG_PRIORITY_MED);
    EXPECT_EQ(REPL_SET_PRIORITY(2), REPLFLG_PRIORITY_HI);
    WORD flags = REPLFLG_HIDDEN_DESIGN | REPLFLG_PRIORITY_HI;
    EXPECT_EQ(REPL_GET_PRIORITY(flags), 2);
    EXPECT_EQ(REPL_GET_PRIORITY(static_cast<WORD>(REPLFLG_PRIORITY_LOW)), 0);
    EXPECT_EQ(REPL_GET_PRIORITY(static_cast<WORD>(0)), 1);
    EXPECT_EQ(flags & REPLFLG_PRIORITY_INVMASK, REPLFLG_HIDDEN_DESIGN);
}

TEST(NotesHeaderConstants, SequenceMask) {
    DWORD sequence = 0x80000005u;  // flag bit plus revision 5
    EXPECT_EQ(sequence & OID_SEQNO_MASK, 5u);
    EXPECT_EQ(MAXSEQNO, OID_SEQNO_MASK);
}

TEST(NotesHeaderConstants, TranslationAndPlatformModes) {
    EXPECT_EQ(OS_TRANSLATE_NATIVE_TO_LMBCS, 0);
    EXPECT_EQ(OS_TRANSLATE_LMBCS_TO_NATIVE, 1);
    EXPECT_EQ(OS_TRANSLATE_LOWER_TO_UPPER, 3);
    EXPECT_EQ(OS_TRANSLATE_LMBCS_TO_UTF8, 22);
    EXPECT_EQ(OS_TRANSLATE_UTF8_TO_LMBCS, 24);
    EXPECT_EQ(OS_LOADPROG_DETACHED, 0x0008);
    EXPECT_EQ(OFFLINE_NODELETE, 1);
    EXPECT_EQ(DBCOPY_REPLICA, 1);
    EXPECT_EQ(MEM_SHARE, 0x8000);
    EXPECT_EQ(NLS_FINDFAILED, 0x1005);
    EXPECT_EQ(NLS_FIND_CHARINSET, 1);
    EXPECT_EQ(ACL_LEVEL_MANAGER, 6);
    EXPECT_EQ(ACL_LEVEL_READER, 2);
    EXPECT_EQ(INFOPARSE_DESIGN_CLASS, 3);
}

// ---------------------------------------------------------------------------
// Macros with behaviour

TEST(NotesHeaderMacros, AclPrivilegeBits) {
    ACL_PRIVILEGES privs{};
    ACLSetPriv(privs, 9);
    EXPECT_EQ(privs.BitMask[1], 0x02);
    EXPECT_TRUE(ACLIsPrivSet(privs, 9));
    EXPECT_FALSE(ACLIsPrivSet(privs, 8));
    ACLInvertPriv(privs, 0);
    EXPECT_EQ(privs.BitMask[0], 0x01);
    ACLClearPriv(privs, 9);
    EXPECT_EQ(privs.BitMask[1], 0x00);
    ACLSetPriv(privs, ACL_PRIVCOUNT - 1);
    EXPECT_EQ(privs.BitMask[9], 0x80);
}

TEST(NotesHeaderMacros, BlockIdNullTest) {
    BLOCKID none{NULLHANDLE, 0};
    BLOCKID some{42u, 6};
    EXPECT_TRUE(ISNULLBLOCKID(none));
    EXPECT_FALSE(ISNULLBLOCKID(some));
}

// ---------------------------------------------------------------------------
// Function types: what the caller pushes must match the real ABI.

STATUS LNCALLBACK SearchCallback(void far *, SEARCH_MATCH far *, ITEM_TABLE far *) {
    return NOERROR;
}
STATUS LNCALLBACK ScanCallback(WORD, WORD, char far *, WORD, void far *, DWORD, void far *) {
    return NOERROR;
}
void LNCALLBACK AclCallback(void far *, char far *, WORD, ACL_PRIVILEGES far *, WORD) {}

TEST(NotesHeaderSignatures, CallbacksConvertToTheirPointerTypes) {
    NSFSEARCHPROC search = SearchCallback;
    NSFITEMSCANPROC scan = ScanCallback;
    EXPECT_NE(search, nullptr);
    EXPECT_NE(scan, nullptr);
    // ACLEnumEntries spells its callback type inline; a callback written
    // the toolkit's way must be accepted as that parameter.
    using AclEnumFunc = void (*)(void *, char *, WORD, ACL_PRIVILEGES *, WORD);
    EXPECT_TRUE((same<decltype(&ACLEnumEntries), STATUS (*)(DHANDLE, AclEnumFunc, void *)>));
    AclEnumFunc acl = AclCallback;
    EXPECT_NE(acl, nullptr);
}

TEST(NotesHeaderSignatures, DatabaseCalls) {
    EXPECT_TRUE((same<decltype(&NSFDbOpen), STATUS (*)(const char *, HANDLE *)>));
    EXPECT_TRUE((same<decltype(&NSFDbCreateAndCopy),
                      STATUS (*)(const char *, const char *, WORD, WORD, DWORD, HANDLE *)>));
    EXPECT_TRUE((same<decltype(&NSFDbStoreACL), STATUS (*)(HANDLE, DHANDLE, DWORD, WORD)>));
    EXPECT_TRUE((same<decltype(&NSFDbReplicaInfoSet), STATUS (*)(HANDLE, DBREPLICAINFO *)>));
    EXPECT_TRUE((same<decltype(&NSFDbGetBuildVersion), STATUS (*)(HANDLE, WORD *)>));
    EXPECT_TRUE((same<decltype(&NSFTakeDatabaseOffline), STATUS (*)(const char *, DWORD, DWORD)>));
    EXPECT_TRUE((same<decltype(&NSFDbCopyNote),
                      STATUS (*)(HANDLE, DBID *, DBID *, NOTEID, HANDLE, DBID *, DBID *,
                                 NOTEID *, WORD *)>));
    EXPECT_TRUE((same<decltype(&NSFRemoteConsole), STATUS (*)(char *, char *, DHANDLE *)>));
}

TEST(NotesHeaderSignatures, SearchAndFormula) {
    EXPECT_TRUE((same<decltype(&NSFSearch),
                      STATUS (*)(HANDLE, HANDLE, char *, WORD, WORD, TIMEDATE *,
                                 NSFSEARCHPROC, void *, TIMEDATE *)>));
    EXPECT_TRUE((same<decltype(&NSFFormulaCompile),
                      STATUS (*)(char *, WORD, const char *, WORD, HANDLE *, WORD *,
                                 STATUS *, WORD *, WORD *, WORD *, WORD *)>));
    EXPECT_TRUE((same<decltype(&NSFFormulaDecompile), STATUS (*)(char *, BOOL, DHANDLE *, WORD *)>));
}

TEST(NotesHeaderSignatures, NoteAndItemCalls) {
    EXPECT_TRUE((same<decltype(&NSFNoteOpen), STATUS (*)(HANDLE, NOTEID, WORD, HANDLE *)>));
    EXPECT_TRUE((same<decltype(&NSFNoteOpenByUNID), STATUS (*)(HANDLE, UNID *, WORD, HANDLE *)>));
    EXPECT_TRUE((same<decltype(&NSFNoteUpdate), STATUS (*)(HANDLE, WORD)>));
    EXPECT_TRUE((same<decltype(&NSFNoteGetInfo), void (*)(HANDLE, WORD, void *)>));
    EXPECT_TRUE((same<decltype(&NSFItemGetText), WORD (*)(HANDLE, const char *, char *, WORD)>));
    EXPECT_TRUE((same<decltype(&NSFItemAppend),
                      STATUS (*)(HANDLE, WORD, const char *, WORD, WORD, const void *, DWORD)>));
    EXPECT_TRUE((same<decltype(&NSFItemInfo),
                      STATUS (*)(HANDLE, const char *, WORD, BLOCKID *, WORD *, BLOCKID *,
                                 DWORD *)>));
    EXPECT_TRUE((same<decltype(&NSFItemAppendTextList),
                      STATUS (*)(HANDLE, const char *, const char *, WORD, BOOL)>));
    EXPECT_TRUE((same<decltype(&NSFItemGetTextListEntry),
                      WORD (*)(HANDLE, const char *, WORD, char *, WORD)>));
}

TEST(NotesHeaderSignatures, OperatingSystemCalls) {
    EXPECT_TRUE((same<decltype(&OSTranslate), WORD (*)(WORD, const char *, WORD, char *, WORD)>));
    EXPECT_TRUE((same<decltype(&OSLoadString), WORD (*)(HANDLE, STATUS, char *, WORD)>));
    // long, not LONG: 64-bit on this platform.
    EXPECT_TRUE((same<decltype(&OSGetEnvironmentLong), long (*)(const char *)>));
    EXPECT_TRUE((same<decltype(&OSGetEnvironmentString), BOOL (*)(const char *, char *, WORD)>));
    EXPECT_TRUE((same<decltype(&OSMemAlloc), STATUS (*)(WORD, DWORD, DHANDLE *)>));
    EXPECT_TRUE((same<decltype(&OSLockObject), void *(*)(DHANDLE)>));
    EXPECT_TRUE((same<decltype(&OSCurrentTimeZone), void (*)(int *, int *)>));
    EXPECT_TRUE((same<decltype(&TimeGMToLocalZone), BOOL (*)(TIME *)>));
    EXPECT_TRUE((same<decltype(&OSGetLMBCSCLS), NLS_PINFO (*)()>));
    EXPECT_TRUE((same<decltype(&NLS_find),
                      NLS_STATUS (*)(BYTE **, WORD, const BYTE *, WORD, NLS_PINFO)>));
    EXPECT_TRUE((same<decltype(&NLS_goto_next), WORD (*)(BYTE **, WORD, NLS_PINFO)>));
    EXPECT_TRUE((same<decltype(&AddInIdleDelay), BOOL (*)(DWORD)>));
    EXPECT_TRUE((same<decltype(&AddInLogMessageText), void (*)(char *, STATUS, ...)>));
    EXPECT_TRUE((same<decltype(&NotesInitExtended), STATUS (*)(int, char **)>));
}

}  // namespace
