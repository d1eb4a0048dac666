// The LMBCS utilities that go through the platform: upper-casing into LMBCS, number
// conversions and the bounded copies that step whole characters, with their buffer limits.
#include <climits>
#include <cstring>
#include <string>

#include "PatchTestServer.h"
#include "RkLMBCS.h"
#include "global.h"
#include "nls.h"
#include "osmisc.h"

namespace patch_test {
namespace {

std::string ToLmbcs(const char* native) {
    char out[512];
    WORD n = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, native, MAXWORD, out, sizeof out);
    return std::string(out, n);
}

// A buffer of `size` bytes followed by a guard zone that must stay untouched.
struct Guarded {
    explicit Guarded(size_t size) : size(size) { std::memset(bytes, '#', sizeof bytes); }
    char* data() { return bytes; }
    bool GuardIntact() const {
        for (size_t i = size; i < sizeof bytes; ++i)
            if (bytes[i] != '#') return false;
        return true;
    }
    size_t size;
    char bytes[1024];
};

TEST(RkLMBCSPlatform, UpperStringTranslatesToLmbcsAndUpperCases) {
    Guarded out(256);
    _toUpperStringLMBCS("rpx/rpconf.nsf", out.data());
    EXPECT_STREQ(out.data(), "RPX/RPCONF.NSF");

    _toUpperStringLMBCS("form=\xC3\xA9t\xC3\xA9", out.data());  // "form=été": accents in LMBCS
    EXPECT_EQ(std::string(out.data()), ToLmbcs("FORM=\xC3\x89T\xC3\x89"));
    EXPECT_NE(std::string(out.data()), "FORM=\xC3\x89T\xC3\x89") << "the result is LMBCS, not UTF-8";

    // Longer input is cut to 255 bytes; the 256-byte buffer is never overrun.
    std::string longText(400, 'a');
    _toUpperStringLMBCS(longText.c_str(), out.data());
    EXPECT_EQ(std::string(out.data()), std::string(255, 'A'));
    EXPECT_TRUE(out.GuardIntact());

    _toUpperStringLMBCS("", out.data());
    EXPECT_STREQ(out.data(), "");
    std::strcpy(out.data(), "kept");
    _toUpperStringLMBCS(nullptr, out.data());
    EXPECT_STREQ(out.data(), "kept");
    _toUpperStringLMBCS("x", nullptr);  // no crash
}

TEST(RkLMBCSPlatform, ItoaWritesDecimalOrHexWithinTheBuffer) {
    char out[32];
    EXPECT_EQ(lmbcs_itoa(out, sizeof out, -42, 10), out);
    EXPECT_STREQ(out, "-42");
    EXPECT_STREQ(lmbcs_itoa(out, sizeof out, INT_MIN, 10), "-2147483648");
    EXPECT_STREQ(lmbcs_itoa(out, sizeof out, 255, 16), "ff");
    EXPECT_STREQ(lmbcs_itoa(out, sizeof out, -1, 16), "ffffffff");
    EXPECT_STREQ(lmbcs_itoa(out, sizeof out, 8, 8), "") << "only radix 10 and 16";

    Guarded small(3);
    EXPECT_STREQ(lmbcs_itoa(small.data(), 3, 12345, 10), "12");
    EXPECT_TRUE(small.GuardIntact());
    Guarded one(1);
    EXPECT_STREQ(lmbcs_itoa(one.data(), 1, 7, 10), "");
    EXPECT_TRUE(one.GuardIntact());
    Guarded none(0);
    EXPECT_EQ(lmbcs_itoa(none.data(), 0, 7, 10), none.data());
    EXPECT_TRUE(none.GuardIntact());
    EXPECT_EQ(lmbcs_itoa(nullptr, 10, 7, 10), nullptr);
}

TEST(RkLMBCSPlatform, AtoiAndStrtolReadLmbcsNumbers) {
    EXPECT_EQ(lmbc_atoi("123"), 123);
    EXPECT_EQ(lmbc_atoi("-17"), -17);
    EXPECT_EQ(lmbc_atoi("12abc"), 12);
    EXPECT_EQ(lmbc_atoi("abc"), 0);
    EXPECT_EQ(lmbc_atoi(nullptr), 0);
    EXPECT_EQ(lmbc_strtol("ff", 16), 255);
    EXPECT_EQ(lmbc_strtol("0x1A", 16), 26);
    EXPECT_EQ(lmbc_strtol("777", 8), 511);
    // What lmbcs_itoa writes reads back.
    char text[32];
    for (int value : {0, 1, -1, 3100, INT_MAX, INT_MIN}) {
        EXPECT_EQ(lmbc_atoi(lmbcs_itoa(text, sizeof text, value, 10)), value);
        EXPECT_EQ(static_cast<unsigned int>(lmbc_strtol(lmbcs_itoa(text, sizeof text, value, 16), 16)),
                  static_cast<unsigned int>(value));
    }
}

// "é日": é is one byte of group 1, 日 the group byte 0x10 and a Shift-JIS pair.
const char kAccentAndKanji[] = "\x82\x10\x93\xFA";

std::string Copied(const char* in, unsigned short outSize, unsigned short maxLength) {
    Guarded out(outSize);
    int result = nls_strncpy(out.data(), outSize, in, NLS_NULLTERM, maxLength, OSGetLMBCSCLS());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(out.GuardIntact()) << "outSize " << outSize;
    return out.data();
}

TEST(RkLMBCSPlatform, CopyStepsWholeCharactersOfTheCharacterSet) {
    // Two-byte characters of group 1: three of them, room for one.
    EXPECT_EQ(Copied("\x01\x82\x01\x83\x01\x84", 4, 6), "\x01\x82");
    EXPECT_EQ(Copied("\x01\x82\x01\x83\x01\x84", 16, 5), "\x01\x82\x01\x83");

    // An unprefixed high byte is one character; a group 0x10 character is three bytes.
    EXPECT_EQ(Copied(kAccentAndKanji, 16, 2), "\x82");
    EXPECT_EQ(Copied(kAccentAndKanji, 16, 3), "\x82");
    EXPECT_EQ(Copied(kAccentAndKanji, 4, 10), "\x82");
    EXPECT_EQ(Copied(kAccentAndKanji, 16, 4), kAccentAndKanji);
    EXPECT_EQ(Copied(kAccentAndKanji, 5, 10), kAccentAndKanji);
    EXPECT_EQ(Copied("\x10\x82\xA0\x10\x82\xA1", 6, 10), "\x10\x82\xA0");
    EXPECT_EQ(Copied("A\x10\x82\xA0", 4, 10), "A");

    // Text the platform made from native text is cut only between its characters.
    char lmbcs[64];
    WORD length = OSTranslate(OS_TRANSLATE_NATIVE_TO_LMBCS, "a\xC3\xA9\xE6\x97\xA5\xE6\x9C\xAC\xC3\xBC", MAXWORD,
                              lmbcs, sizeof lmbcs - 1);
    lmbcs[length] = '\0';
    std::string previous;
    for (unsigned short room = 0; room <= length; ++room) {
        std::string copy = Copied(lmbcs, 64, room);
        ASSERT_LE(copy.size(), room);
        ASSERT_EQ(copy, std::string(lmbcs, copy.size()));
        ASSERT_GE(copy.size(), previous.size());
        // Whatever was copied reads back as native text without a broken character.
        char native[64];
        WORD n = OSTranslate(OS_TRANSLATE_LMBCS_TO_NATIVE, copy.c_str(), static_cast<WORD>(copy.size()), native,
                             sizeof native - 1);
        native[n] = '\0';
        EXPECT_EQ(std::string("a\xC3\xA9\xE6\x97\xA5\xE6\x9C\xAC\xC3\xBC").find(native), 0u) << "room " << room;
        previous = copy;
    }
    EXPECT_EQ(previous, std::string(lmbcs));

    // At most inLength bytes are read.
    EXPECT_EQ(nls_strncpy(lmbcs, sizeof lmbcs, "ABCD", 2, 10, OSGetLMBCSCLS()), 0);
    EXPECT_STREQ(lmbcs, "AB");
}

TEST(RkLMBCSPlatform, AppendCopiesIntoTheRoomLeftAndRefusesBadArguments) {
    NLS_PINFO cls = OSGetLMBCSCLS();
    char path[16] = "/data";
    EXPECT_EQ(nls_strncat(path, sizeof path, "/rpx/rpconf.nsf", NLS_NULLTERM, 4, cls), 0);
    EXPECT_STREQ(path, "/data/rpx");
    char out[7] = "abc";
    EXPECT_EQ(nls_strncat(out, sizeof out, kAccentAndKanji, NLS_NULLTERM, 10, cls), 0);
    EXPECT_STREQ(out, "abc\x82");

    char kept[8] = "abc";
    EXPECT_EQ(static_cast<unsigned int>(nls_strncpy(kept, 0, "x", 1, 1, cls)), 0xFFFFABADu);
    EXPECT_STREQ(kept, "abc");
    EXPECT_EQ(nls_strncpy(kept, sizeof kept, nullptr, 1, 1, cls), RK_NLS_BADPARM);
    EXPECT_STREQ(kept, "");
    char full[3] = {'a', 'b', 'c'};  // no zero within outSize
    EXPECT_EQ(nls_strncat(full, sizeof full, "x", NLS_NULLTERM, 5, cls), RK_NLS_BADPARM);
    char abc[8] = "abc";
    EXPECT_EQ(nls_strncat(abc, 3, "x", NLS_NULLTERM, 5, cls), RK_NLS_BADPARM);
    EXPECT_EQ(nls_strncat(abc, 4, "x", NLS_NULLTERM, 5, cls), 0);
    EXPECT_STREQ(abc, "abc");
}

}  // namespace
}  // namespace patch_test
