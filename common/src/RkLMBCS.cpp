// The pure LMBCS utilities: character sizes, wildcard matching, upper-casing, bounded copies,
// UNID parsing and path tidying. Nothing here calls the platform.
#include "RkLMBCS.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <unordered_set>

static_assert(static_cast<unsigned int>(RK_NLS_BADPARM) == 0xFFFFABADu,
              "RK_NLS_BADPARM is NLS_BADPARM widened with its sign");

const int nLMBCSGroupSize[32] = {
    1, 2, 2, 2, 2, 2, 2, 2,  // 0x00 - 0x07
    2, 1, 1, 2, 2, 1, 2, 2,  // 0x08 - 0x0F
    3, 3, 3, 3, 3, 3, 3, 3,  // 0x10 - 0x17
    2, 2, 2, 2, 2, 2, 2, 2,  // 0x18 - 0x1F
};

// Groups 0x11 to 0x13 share one row: every high byte but 0x80 and 0xFF leads a character.
#define RK_SIXTEEN_LEAD_BYTES 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1
#define RK_FULL_DOUBLE_BYTE_GROUP                                          \
    {                                                                      \
        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, /* 0x80 - 0x8F */  \
        RK_SIXTEEN_LEAD_BYTES, RK_SIXTEEN_LEAD_BYTES,   /* 0x90 - 0xAF */  \
        RK_SIXTEEN_LEAD_BYTES, RK_SIXTEEN_LEAD_BYTES,   /* 0xB0 - 0xCF */  \
        RK_SIXTEEN_LEAD_BYTES, RK_SIXTEEN_LEAD_BYTES,   /* 0xD0 - 0xEF */  \
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, /* 0xF0 - 0xFF */  \
    }

const int fLMBCSLeadbyte[4][128] = {
    {  // group 0x10
        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x80 - 0x8F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x90 - 0x9F
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 0xA0 - 0xAF
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 0xB0 - 0xBF
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 0xC0 - 0xCF
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 0xD0 - 0xDF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xE0 - 0xEF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0,  // 0xF0 - 0xFF
    },
    RK_FULL_DOUBLE_BYTE_GROUP,  // group 0x11
    RK_FULL_DOUBLE_BYTE_GROUP,  // group 0x12
    RK_FULL_DOUBLE_BYTE_GROUP,  // group 0x13
};

#undef RK_FULL_DOUBLE_BYTE_GROUP
#undef RK_SIXTEEN_LEAD_BYTES

namespace {

constexpr unsigned char kFirstDbcsGroup = 0x10;
constexpr unsigned char kLastDbcsGroup = 0x13;
constexpr unsigned char kLastMultibyteGroup = 0x17;
constexpr unsigned char kFirstHighByte = 0x80;
constexpr unsigned char kFirstPrintable = 0x20;
constexpr int kUnidHexDigits = 32;
constexpr int kHexDigitsPerWord = 8;

const unsigned char* Bytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

// Length of the text character at t (not at its end) as lmbcsMatch sees it: a multibyte group
// byte with the character that follows it, a control-range group byte with its one data
// byte, else one byte; never beyond the terminating zero.
size_t MatchCharLength(const unsigned char* t) {
    const char* text = reinterpret_cast<const char*>(t);
    if (IsLMBCSMultibyteGroup(t[0])) return 1 + strnlen(text + 1, LMBCSCharSizeBytes(t[1], t[0]));
    if (t[0] < kFirstPrintable) return std::max<size_t>(1, strnlen(text, nLMBCSGroupSize[t[0]]));
    return 1;
}

// Rule for one ordinary pattern byte against the text: equal after upper-casing; multibyte
// characters must agree in size and in every byte. Advances both on success.
bool MatchOneCharacter(const unsigned char*& t, const unsigned char*& p) {
    if (IsLMBCSMultibyteGroup(*t) != IsLMBCSMultibyteGroup(*p)) return false;
    if (lmbcs_toupper(*t) != lmbcs_toupper(*p)) return false;
    if (!IsLMBCSMultibyteGroup(*t)) {
        ++t;
        ++p;
        return true;
    }
    unsigned char group = *t;
    int textSize = LMBCSCharSizeBytes(t[1], group);
    if (textSize != LMBCSCharSizeBytes(p[1], group)) return false;
    const char* textChar = reinterpret_cast<const char*>(t + 1);
    const char* patternChar = reinterpret_cast<const char*>(p + 1);
    size_t textLength = strnlen(textChar, textSize);  // a character cut short by the zero
    if (textLength != strnlen(patternChar, textSize)) return false;
    if (std::memcmp(textChar, patternChar, textLength) != 0) return false;
    t += 1 + textLength;
    p += 1 + textLength;
    return true;
}

bool OnlyWildcardsLeft(const unsigned char* p) {
    for (; *p; ++p)
        if (*p != '*' && *p != '?') return false;
    return true;
}

// The wildcard match as a search over (text position, pattern position). A "*" tries every
// later text position; positions after a "*" that already failed are remembered, so each pair
// is tried at most once and the time stays polynomial in both lengths.
class WildcardMatch {
public:
    WildcardMatch(const unsigned char* text, const unsigned char* pattern)
        : text_(text), pattern_(pattern), patternSize_(std::strlen(reinterpret_cast<const char*>(pattern)) + 1) {}

    bool From(const unsigned char* t, const unsigned char* p) {
        while (*p) {
            if (*p == '*') {
                while (*p == '*') ++p;  // a run of "*" is one "*"
                if (!*p) return true;
                return AnyPositionFrom(t, p);
            }
            // A "?" still left when the text has ended matches nothing and succeeds: the other
            // tasks' stored patterns count on it.
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

private:
    bool AnyPositionFrom(const unsigned char* t, const unsigned char* p) {
        for (;; t += MatchCharLength(t)) {
            size_t key = static_cast<size_t>(t - text_) * patternSize_ + static_cast<size_t>(p - pattern_);
            if (failed_.count(key) == 0) {
                if (From(t, p)) return true;
                failed_.insert(key);
            }
            if (!*t) return false;
        }
    }

    const unsigned char* text_;
    const unsigned char* pattern_;
    size_t patternSize_;
    std::unordered_set<size_t> failed_;
};

bool IsUnidText(const char* text) {
    for (int i = 0; i < kUnidHexDigits; ++i)
        if (!std::isxdigit(static_cast<unsigned char>(text[i]))) return false;  // stops at the zero
    return text[kUnidHexDigits] == '\0';
}

DWORD HexWord(const char* digits) {
    DWORD value = 0;
    for (int i = 0; i < kHexDigitsPerWord; ++i) {
        unsigned char c = static_cast<unsigned char>(digits[i]);
        DWORD digit = std::isdigit(c) ? c - '0' : std::toupper(c) - 'A' + 10;
        value = (value << 4) | digit;
    }
    return value;
}

}  // namespace

bool IsLMBCSMultibyteGroup(unsigned char b) { return b >= kFirstDbcsGroup && b <= kLastMultibyteGroup; }

bool IsLMBCSLeadbyte(unsigned char b, unsigned char group) {
    if (group < kFirstDbcsGroup || group > kLastDbcsGroup) return true;
    if (b < kFirstHighByte) return false;  // no row entry; callers only ask about high bytes
    return fLMBCSLeadbyte[group - kFirstDbcsGroup][b - kFirstHighByte] != 0;
}

int LMBCSCharSizeBytes(unsigned char b, unsigned char group) {
    if (b < kFirstPrintable) return nLMBCSGroupSize[b];
    if (b >= kFirstHighByte) return IsLMBCSMultibyteGroup(group) && IsLMBCSLeadbyte(b, group) ? 2 : 1;
    return 1;
}

void Utf162Utf32(const unsigned short* in, unsigned int* out, int count) {
    if (in == nullptr || out == nullptr || count < 1) return;
    int copied = 0;
    for (; copied < count && in[copied] != 0; ++copied) {
        // Units of 0x8000 and above come out sign-extended: the other tasks that share this
        // library compare the results with values made the same way.
        out[copied] = static_cast<unsigned int>(static_cast<int>(static_cast<short>(in[copied])));
    }
    out[copied < count ? copied : count - 1] = 0;
}

bool convertStringToUNID(char* text, UNIVERSALNOTEID* unid) {
    if (unid == nullptr) return false;
    std::memset(unid, 0, sizeof(*unid));
    if (text == nullptr || !IsUnidText(text)) return false;
    unid->File.Innards[1] = HexWord(text);
    unid->File.Innards[0] = HexWord(text + kHexDigitsPerWord);
    unid->Note.Innards[1] = HexWord(text + 2 * kHexDigitsPerWord);
    unid->Note.Innards[0] = HexWord(text + 3 * kHexDigitsPerWord);
    return true;
}

int MkCanonicalPath(char* path, bool /*flag*/) {
    if (path == nullptr) return -1;
    std::replace(path, path + std::strlen(path), '\\', '/');
    size_t length = std::strlen(path);
    if (length > 0 && path[length - 1] == '/') path[length - 1] = '\0';
    return 0;
}

int lmbcs_toupper(int c) { return std::toupper(static_cast<unsigned char>(c)); }

void _toUpperString(const char* in, char* out) {
    if (in == nullptr || out == nullptr) return;
    size_t i = 0;
    for (; in[i] != '\0'; ++i) out[i] = static_cast<char>(lmbcs_toupper(in[i]));
    out[i] = '\0';
}

bool lmbcsMatch(const char* text, const char* pattern) {
    if (text == nullptr || pattern == nullptr) return false;
    WildcardMatch match(Bytes(text), Bytes(pattern));
    return match.From(Bytes(text), Bytes(pattern));
}
