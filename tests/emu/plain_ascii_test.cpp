// The plain-ASCII tests behind case-blind comparisons work on whole words; these check them against
// the rules byte by byte, for every length up to three words and a telling byte at every position.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LmbcsText.h"

namespace {

using emu::formula::lmbcs::AsciiFoldsTo;
using emu::formula::lmbcs::IsPlainAscii;

// One-byte characters that mean the same in ASCII: 0x20..0x7F and the controls NUL, tab, LF, CR.
bool PlainByte(unsigned char byte) {
    return (byte >= 0x20 && byte < 0x80) || byte == 0x00 || byte == 0x09 || byte == 0x0A || byte == 0x0D;
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Bytes next to the edges the word arithmetic relies on.
const std::vector<unsigned char> kTellingBytes = {0x00, 0x01, 0x09, 0x0A, 0x0D, 0x10, 0x14, 0x19, 0x1F,
                                                  0x20, '@',  'A',  'M',  'Z',  '[',  '`',  'a',  'z',
                                                  '{',  0x7F, 0x80, 0x82, 0x90, 0xBF, 0xC1, 0xFF};

TEST(PlainAscii, EveryByteCountsAtEveryPositionAndLength) {
    for (size_t length = 1; length <= 24; ++length) {
        for (size_t at = 0; at < length; ++at) {
            for (unsigned char byte : kTellingBytes) {
                std::string text(length, 'q');
                text[at] = static_cast<char>(byte);
                EXPECT_EQ(IsPlainAscii(text), PlainByte(byte))
                    << "length " << length << ", byte 0x" << std::hex << int{byte} << " at " << std::dec
                    << at;
            }
        }
    }
    EXPECT_TRUE(IsPlainAscii(""));
    EXPECT_FALSE(IsPlainAscii(std::string(15, '\x01') + "x"));  // controls in every word
    EXPECT_TRUE(IsPlainAscii(std::string("\t\r\n\0 x", 6)));
}

TEST(PlainAscii, FoldsToComparesAsciiLowerCaseAtEveryPositionAndLength) {
    for (size_t length = 1; length <= 24; ++length) {
        for (size_t at = 0; at < length; ++at) {
            for (unsigned char byte : kTellingBytes) {
                if (!PlainByte(byte)) continue;
                std::string raw(length, 'Q');
                raw[at] = static_cast<char>(byte);
                std::string folded;
                for (char c : raw) folded += Lower(c);
                EXPECT_TRUE(AsciiFoldsTo(raw, folded)) << raw;
                // A different byte at any position is no match, nor the raw text itself when it has capitals.
                for (size_t other = 0; other < length; ++other) {
                    std::string wrong = folded;
                    wrong[other] = wrong[other] == 'x' ? 'y' : 'x';
                    EXPECT_FALSE(AsciiFoldsTo(raw, wrong)) << raw << " against " << wrong;
                }
                if (raw != folded) {
                    EXPECT_FALSE(AsciiFoldsTo(raw, raw)) << raw;
                }
            }
        }
    }
    EXPECT_TRUE(AsciiFoldsTo("", ""));
    EXPECT_FALSE(AsciiFoldsTo("abc", "abcd"));
    // Only A-Z fold: '@' and '[' are one step from the letters, '`' and '{' from their lower case.
    EXPECT_FALSE(AsciiFoldsTo("@[@[@[@[@", "`{`{`{`{`"));
    EXPECT_FALSE(AsciiFoldsTo("`{`{`{", "@[@[@["));
}

}  // namespace
