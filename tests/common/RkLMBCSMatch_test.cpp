// lmbcsMatch against a plain backtracking matcher of the same rules (exponential in the number
// of "*", so only fed short inputs), and its running time on inputs that defeat backtracking.
#include "RkLMBCS.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

namespace reference {

using Byte = unsigned char;

size_t MatchCharLength(const Byte* t) {
    const char* text = reinterpret_cast<const char*>(t);
    if (IsLMBCSMultibyteGroup(t[0])) return 1 + strnlen(text + 1, LMBCSCharSizeBytes(t[1], t[0]));
    if (t[0] < 0x20) return std::max<size_t>(1, strnlen(text, nLMBCSGroupSize[t[0]]));
    return 1;
}

bool MatchOneCharacter(const Byte*& t, const Byte*& p) {
    if (IsLMBCSMultibyteGroup(*t) != IsLMBCSMultibyteGroup(*p)) return false;
    if (lmbcs_toupper(*t) != lmbcs_toupper(*p)) return false;
    if (!IsLMBCSMultibyteGroup(*t)) {
        ++t;
        ++p;
        return true;
    }
    Byte group = *t;
    int textSize = LMBCSCharSizeBytes(t[1], group);
    if (textSize != LMBCSCharSizeBytes(p[1], group)) return false;
    const char* textChar = reinterpret_cast<const char*>(t + 1);
    const char* patternChar = reinterpret_cast<const char*>(p + 1);
    size_t textLength = strnlen(textChar, textSize);
    if (textLength != strnlen(patternChar, textSize)) return false;
    if (std::memcmp(textChar, patternChar, textLength) != 0) return false;
    t += 1 + textLength;
    p += 1 + textLength;
    return true;
}

bool OnlyWildcardsLeft(const Byte* p) {
    for (; *p; ++p)
        if (*p != '*' && *p != '?') return false;
    return true;
}

bool MatchFrom(const Byte* t, const Byte* p) {
    while (*p) {
        if (*p == '*') {
            while (*p == '*') ++p;
            if (!*p) return true;
            for (;; t += MatchCharLength(t)) {
                if (MatchFrom(t, p)) return true;
                if (!*t) return false;
            }
        }
        if (!*t) return OnlyWildcardsLeft(p);
        if (*p == '?') {
            ++t;
            ++p;
            continue;
        }
        if (!MatchOneCharacter(t, p)) return false;
    }
    return !*t;
}

bool Match(const std::string& text, const std::string& pattern) {
    return MatchFrom(reinterpret_cast<const Byte*>(text.c_str()), reinterpret_cast<const Byte*>(pattern.c_str()));
}

}  // namespace reference

// Letters in both cases, wildcards, group bytes, lead and trail bytes and control characters:
// the bytes whose handling differs.
std::string RandomText(std::mt19937& random, size_t maxLength, bool wildcards) {
    static const char kAlphabet[] = "aAbB*?\x10\x11\x14\x01\x0D\x18\x82\x9F\xA0\xE0";
    const size_t choices = wildcards ? sizeof kAlphabet - 1 : 4 + 10;
    std::string text;
    size_t length = std::uniform_int_distribution<size_t>(0, maxLength)(random);
    for (size_t i = 0; i < length; ++i) {
        size_t pick = std::uniform_int_distribution<size_t>(0, choices - 1)(random);
        text += wildcards || pick < 4 ? kAlphabet[pick] : kAlphabet[pick + 2];
    }
    return text;
}

TEST(RkLMBCSMatchTest, SameResultsAsBacktrackingOnRandomInputs) {
    std::mt19937 random(20261124);
    int matches = 0;
    for (int round = 0; round < 200000; ++round) {
        std::string text = RandomText(random, 10, false);
        std::string pattern = RandomText(random, 8, true);
        bool expected = reference::Match(text, pattern);
        ASSERT_EQ(lmbcsMatch(text.c_str(), pattern.c_str()), expected)
            << "round " << round << ", text " << ::testing::PrintToString(text) << ", pattern "
            << ::testing::PrintToString(pattern);
        matches += expected;
    }
    // Both outcomes were exercised in quantity.
    EXPECT_GT(matches, 1000);
    EXPECT_LT(matches, 199000);
}

TEST(RkLMBCSMatchTest, ManyStarsDoNotBacktrackExponentially) {
    std::string stars;
    for (int i = 0; i < 10; ++i) stars += "*a";
    std::string hard[][2] = {{std::string(30, 'a'), stars + "b"},
                             {std::string(400, 'a'), std::string(60, '*') + "?" + std::string(40, '*') + "b"},
                             {std::string(300, 'a') + "b", "*a*a*a*a*a*a*a*a*a*a*a*a*a*a*c"},
                             {std::string(69, '\x10'), std::string(30, '*') + "\x10\x82"}};
    auto start = std::chrono::steady_clock::now();
    for (const auto& test : hard) EXPECT_FALSE(lmbcsMatch(test[0].c_str(), test[1].c_str()));
    EXPECT_TRUE(lmbcsMatch((std::string(30, 'a') + "b").c_str(), (stars + "b").c_str()));
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 2.0);
}

}  // namespace
