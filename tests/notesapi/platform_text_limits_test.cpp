// Texts the platform writes into the caller's buffers: every status it returns has a status
// text (OSLoadString), cut to the length given and terminated; NSFItemGetText on the smallest
// buffers.
#include <string>

#include "PlatformTest.h"
#include "bsafeerr.h"
#include "clerr.h"
#include "miscerr.h"
#include "nsferr.h"
#include "oserr.h"
#include "osmisc.h"

namespace platform_test {
namespace {

// Every status the platform's calls return (the formula compiler's codes included).
const STATUS kPlatformStatuses[] = {
    ERR_UNKNOWN, ERR_PROTECTED, ERR_NOEXIST, ERR_EXISTS, ERR_DISK, ERR_MEMORY, ERR_CREATE, ERR_LOCK,
    ERR_IOERROR, ERR_INV_FILE_NAME, ERR_OS_NULL_HANDLE, ERR_OS_HANDLE_RANGE, ERR_OS_FREE_HANDLE,
    ERR_OS_STILL_LOCKED, ERR_SEGMENT_TOO_BIG, ERR_OS_EXECERRORNF, ERR_NO_NOTESINI, ERR_NOT_SUPPORTED,
    ERR_NOT_NSF, ERR_CONFLICT, ERR_NOTE_ID, ERR_DIRECTORY, ERR_ITEM_NOT_FOUND, ERR_NOTE_DELETED,
    ERR_INVALID_NOTE, ERR_NSFOPEN, ERR_NSF_IN_USE, ERR_SUMMARY_TOO_BIG, ERR_NOACCESS, ERR_DBINUSE,
    ERR_NOT_FOUND, ERR_FORMULA_COMPILATION, ERR_INVALID_FORMULA, ERR_SERVER_NOT_RESPONDING,
    ERR_BSAFE_USER_ABORT};

TEST(PlatformStatusTexts, EveryReturnedStatusHasATextCutAndTerminatedAsAsked) {
    for (STATUS status : kPlatformStatuses) {
        char full[512];
        WORD length = OSLoadString(NULLHANDLE, status, full, sizeof full - 1);
        EXPECT_GT(length, 0) << "no text for status 0x" << std::hex << status;
        EXPECT_EQ(std::strlen(full), length);
        // A short buffer: at most BufferLength bytes, then the terminator, nothing beyond.
        char shortText[12];
        std::memset(shortText, '#', sizeof shortText);
        WORD cut = OSLoadString(NULLHANDLE, status, shortText, 5);
        EXPECT_EQ(cut, std::min<WORD>(length, 5));
        EXPECT_EQ(std::string(shortText, cut), std::string(full, cut));
        EXPECT_EQ(shortText[cut], '\0');
        EXPECT_EQ(shortText[6], '#') << "written past BufferLength + 1";
    }
}

TEST(PlatformItemText, GetTextOnTheSmallestBuffersStaysInside) {
    TestDb db("textlimits.nsf");
    NOTEHANDLE note;
    ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
    NSFItemSetText(note, "Form", "Memo", MAXWORD);
    char buffer[4];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(NSFItemGetText(note, "Form", buffer, 1), 0);  // room for the terminator only
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], '#');
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(NSFItemGetText(note, "Form", buffer, 0), 0);  // no room at all: nothing written
    EXPECT_EQ(buffer[0], '#');
    // Embedded NULs (line breaks) are copied; the length counts them.
    NSFItemSetText(note, "Lines", "a\0b", 3);
    char lines[8];
    ASSERT_EQ(NSFItemGetText(note, "Lines", lines, sizeof lines), 3);
    EXPECT_EQ(std::string(lines, 4), std::string("a\0b\0", 4));
    NSFNoteClose(note);
}

}  // namespace
}  // namespace platform_test
