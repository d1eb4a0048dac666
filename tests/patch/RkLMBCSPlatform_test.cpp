// The LMBCS utilities that go through the platform's OSTranslate: upper-casing into LMBCS and
// number conversions, with their buffer limits.
#include <climits>
#include <cstring>
#include <string>

#include "PatchTestServer.h"
#include "RkLMBCS.h"
#include "global.h"
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

}  // namespace
}  // namespace patch_test
