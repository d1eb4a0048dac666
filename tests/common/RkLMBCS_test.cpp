#include "RkLMBCS.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

// A heap copy of text with no spare byte, so the sanitizers catch any read past its zero.
std::unique_ptr<char[]> Exact(const std::string& text) {
    std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

TEST(RkLMBCSTest, CharSizeOfGroupAndLeadBytes) {
    EXPECT_EQ(3, LMBCSCharSizeBytes(0x10, 0x10));
    EXPECT_EQ(3, LMBCSCharSizeBytes(0x10, 0x01));
    EXPECT_EQ(2, LMBCSCharSizeBytes(0x01, 0x10));
    EXPECT_EQ(1, LMBCSCharSizeBytes(0x0D, 0x10));
    EXPECT_EQ(2, LMBCSCharSizeBytes(0x18, 0x10));
    EXPECT_EQ(1, LMBCSCharSizeBytes('A', 0x10));

    EXPECT_EQ(2, LMBCSCharSizeBytes(0x9F, 0x10));
    EXPECT_EQ(1, LMBCSCharSizeBytes(0xA0, 0x10));
    EXPECT_EQ(2, LMBCSCharSizeBytes(0xFC, 0x10));
    EXPECT_EQ(1, LMBCSCharSizeBytes(0xFD, 0x10));
    EXPECT_EQ(2, LMBCSCharSizeBytes(0xA0, 0x13));
    EXPECT_EQ(1, LMBCSCharSizeBytes(0xFF, 0x11));
    EXPECT_EQ(1, LMBCSCharSizeBytes(0x80, 0x12));
    EXPECT_EQ(2, LMBCSCharSizeBytes(0x82, 0x14));  // multibyte group without a row: any lead
    EXPECT_EQ(1, LMBCSCharSizeBytes(0x82, 0x01));  // single-byte group

    EXPECT_FALSE(IsLMBCSMultibyteGroup(0x0F));
    EXPECT_TRUE(IsLMBCSMultibyteGroup(0x17));
    EXPECT_FALSE(IsLMBCSMultibyteGroup(0x18));
    EXPECT_TRUE(IsLMBCSLeadbyte(0x80, 0x05));
}

TEST(RkLMBCSTest, LeadByteRowsHoldTheirRanges) {
    int perRow[4] = {};
    for (int row = 0; row < 4; ++row)
        for (int i = 0; i < 128; ++i) perRow[row] += fLMBCSLeadbyte[row][i];
    EXPECT_EQ(31 + 29, perRow[0]);
    for (int row = 1; row < 4; ++row) EXPECT_EQ(126, perRow[row]);
    EXPECT_EQ(0, fLMBCSLeadbyte[1][0xFF - 0x80]);
}

TEST(RkLMBCSTest, MatchFoldsAsciiCaseAndAppliesWildcards) {
    EXPECT_TRUE(lmbcsMatch("ABC", "a*"));
    EXPECT_FALSE(lmbcsMatch("ABC", "a?"));
    EXPECT_TRUE(lmbcsMatch("", "*"));
    EXPECT_TRUE(lmbcsMatch("abc", "A?C"));
    EXPECT_TRUE(lmbcsMatch("rpconf.nsf", "RP*.NSF"));
    EXPECT_TRUE(lmbcsMatch("abcbc", "*bc"));
    EXPECT_TRUE(lmbcsMatch("axbxc", "a**b*c"));
    EXPECT_FALSE(lmbcsMatch("abc", "*b"));
    EXPECT_FALSE(lmbcsMatch("abcd", "abc"));
    EXPECT_FALSE(lmbcsMatch("abc", "abcd"));
    EXPECT_FALSE(lmbcsMatch("", "*a"));
    EXPECT_FALSE(lmbcsMatch(nullptr, "*"));
}

TEST(RkLMBCSTest, TrailingQuestionMarkMatchesEndedText) {
    EXPECT_TRUE(lmbcsMatch("AB", "AB?"));
    EXPECT_TRUE(lmbcsMatch("AB", "ab?*?"));
    EXPECT_TRUE(lmbcsMatch("", "?"));
    EXPECT_FALSE(lmbcsMatch("AB", "AB?C"));
}

TEST(RkLMBCSTest, MatchComparesMultibyteCharactersWhole) {
    EXPECT_TRUE(lmbcsMatch("\x10\x82\xA0x", "\x10\x82\xA0X"));
    EXPECT_FALSE(lmbcsMatch("\x10\x82\xA0", "\x10\x82\xA1"));
    // The trail byte 0x61 is not the letter a: no case folding inside the character.
    EXPECT_FALSE(lmbcsMatch("\x10\x82\x41", "\x10\x82\x61"));
    // "*" steps over whole characters, so it never lands on a trail byte.
    EXPECT_FALSE(lmbcsMatch("\x10\x82\x41", "*A"));
    EXPECT_TRUE(lmbcsMatch("x\x10\x82\x41", "*\x10\x82\x41"));
    EXPECT_FALSE(lmbcsMatch("\x01\x82", "*\x82"));
    // A character cut short by the zero: no read past it.
    auto cut = Exact("\x10\x82");
    EXPECT_FALSE(lmbcsMatch(cut.get(), "\x10\x82\xA0"));
    EXPECT_TRUE(lmbcsMatch(cut.get(), "\x10\x82"));
}

TEST(RkLMBCSTest, UnidTextRoundTrip) {
    UNIVERSALNOTEID unid = {};
    unid.File.Innards[1] = 0x0123ABCD;
    unid.File.Innards[0] = 0x89ABCDEF;
    unid.Note.Innards[1] = 0x00000001;
    unid.Note.Innards[0] = 0xFEDCBA98;
    char text[255];
    rk_snprintf(text, sizeof(text), "%08X%08X%08X%08X", unid.File.Innards[1], unid.File.Innards[0],
                unid.Note.Innards[1], unid.Note.Innards[0]);
    ASSERT_STREQ("0123ABCD89ABCDEF00000001FEDCBA98", text);

    UNIVERSALNOTEID parsed;
    ASSERT_TRUE(convertStringToUNID(text, &parsed));
    EXPECT_EQ(0, std::memcmp(&unid, &parsed, sizeof(unid)));
    char lower[] = "0123abcd89abcdef00000001fedcba98";
    ASSERT_TRUE(convertStringToUNID(lower, &parsed));
    EXPECT_EQ(0, std::memcmp(&unid, &parsed, sizeof(unid)));
}

TEST(RkLMBCSTest, UnidTextMustBeThirtyTwoHexDigits) {
    const UNIVERSALNOTEID zero = {};
    for (const char* bad : {"", "0123", "0123ABCD89ABCDEF00000001FEDCBA9", "0123ABCD89ABCDEF00000001FEDCBA981",
                            "0123ABCD89ABCDEF00000001FEDCBA9G", " 123ABCD89ABCDEF00000001FEDCBA98"}) {
        auto text = Exact(bad);
        UNIVERSALNOTEID unid;
        std::memset(&unid, 0xFF, sizeof(unid));
        EXPECT_FALSE(convertStringToUNID(text.get(), &unid)) << bad;
        EXPECT_EQ(0, std::memcmp(&zero, &unid, sizeof(unid))) << bad;
    }
    UNIVERSALNOTEID unid;
    EXPECT_FALSE(convertStringToUNID(nullptr, &unid));
}

TEST(RkLMBCSTest, Utf16WideningAndTermination) {
    const unsigned short text[] = {0x41, 0x8000, 0xFFFF, 0};
    unsigned int out[6];
    std::fill(out, out + 6, 7u);
    Utf162Utf32(text, out, 6);
    EXPECT_EQ(0x41u, out[0]);
    EXPECT_EQ(0xFFFF8000u, out[1]);
    EXPECT_EQ(0xFFFFFFFFu, out[2]);
    EXPECT_EQ(0u, out[3]);
    EXPECT_EQ(7u, out[4]);

    Utf162Utf32(text, out, 2);  // input fills the output: the last unit gives way to the zero
    EXPECT_EQ(0x41u, out[0]);
    EXPECT_EQ(0u, out[1]);

    std::fill(out, out + 6, 7u);
    Utf162Utf32(text, out, 0);
    Utf162Utf32(nullptr, out, 6);
    EXPECT_EQ(7u, out[0]);
}

TEST(RkLMBCSTest, FormattersTruncateAndAlwaysTerminate) {
    char out[8];
    EXPECT_EQ(10, rk_snprintf(out, sizeof(out), "%s-%d", "abcdefg", 42));
    EXPECT_STREQ("abcdefg", out);
    out[0] = 'X';
    EXPECT_EQ(3, rk_snprintf(out, 0, "%d", 123));
    EXPECT_EQ('X', out[0]);

    wchar_t wide[4];
    EXPECT_EQ(3, rk_snwprintf(wide, 4, L"%ls", L"abc"));
    EXPECT_STREQ(L"abc", wide);
    EXPECT_LT(rk_snwprintf(wide, 4, L"%ls", L"abcdef"), 0);
    EXPECT_LT(std::wcslen(wide), 4u);
}

TEST(RkLMBCSTest, PathAndCaseHelpers) {
    char path[] = "a\\b\\c\\";
    EXPECT_EQ(0, MkCanonicalPath(path, true));
    EXPECT_STREQ("a/b/c", path);
    char twice[] = "a//";
    MkCanonicalPath(twice, false);
    EXPECT_STREQ("a/", twice);
    EXPECT_EQ(-1, MkCanonicalPath(nullptr, false));

    char upper[16];
    _toUpperString("rpx\xE9z", upper);
    EXPECT_STREQ("RPX\xE9Z", upper);
    EXPECT_EQ(0xE9, lmbcs_toupper(static_cast<char>(0xE9)));
}

}  // namespace
