// The pure LMBCS utilities: character sizes, wildcard matching, upper-casing, bounded copies,
// UNID parsing and path tidying. Nothing here calls the platform.
#include "RkLMBCS.h"

#include <algorithm>
#include <cctype>
#include <cstring>

static_assert(static_cast<unsigned int>(RK_NLS_BADPARM) == 0xFFFFABADu,
              "RK_NLS_BADPARM is NLS_BADPARM widened with its sign");

const int nLMBCSGroupSize[32] = {
    1, 2, 2, 2, 2, 2, 2, 2,  // 0x00 - 0x07
    2, 1, 1, 2, 2, 1, 2, 2,  // 0x08 - 0x0F
    3, 3, 3, 3, 3, 3, 3, 3,  // 0x10 - 0x17
    2, 2, 2, 2, 2, 2, 2, 2,  // 0x18 - 0x1F
};

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
    {  // group 0x11
        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x80 - 0x8F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x90 - 0x9F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xA0 - 0xAF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xB0 - 0xBF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xC0 - 0xCF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xD0 - 0xDF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xE0 - 0xEF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0,  // 0xF0 - 0xFF
    },
    {  // group 0x12
        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x80 - 0x8F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x90 - 0x9F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xA0 - 0xAF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xB0 - 0xBF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xC0 - 0xCF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xD0 - 0xDF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xE0 - 0xEF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0,  // 0xF0 - 0xFF
    },
    {  // group 0x13
        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x80 - 0x8F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0x90 - 0x9F
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xA0 - 0xAF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xB0 - 0xBF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xC0 - 0xCF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xD0 - 0xDF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // 0xE0 - 0xEF
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0,  // 0xF0 - 0xFF
    },
};

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

bool MatchFrom(const unsigned char* t, const unsigned char* p) {
    while (*p) {
        if (*p == '*') {
            while (*p == '*') ++p;  // a run of "*" is one "*"
            if (!*p) return true;
            for (;; t += MatchCharLength(t)) {
                if (MatchFrom(t, p)) return true;
                if (!*t) return false;
            }
        }
        // A "?" still left when the text has ended matches nothing and succeeds: intended.
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

// Bytes of the character at in[0] for copying, never past the available bytes.
size_t CopyCharLength(unsigned char b, size_t available, unsigned char group) {
    return std::min<size_t>(static_cast<size_t>(LMBCSCharSizeBytes(b, group)), available);
}

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
        // Units of 0x8000 and above come out with the upper 16 bits set: intended.
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
    return MatchFrom(Bytes(text), Bytes(pattern));
}

// Characters are stepped with LMBCSCharSizeBytes rather than the platform's NLS_goto_next so
// that these copies stay pure: they work without the platform library.
int nls_strncpy_group(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                      unsigned short maxLength, unsigned char group) {
    if (out == nullptr || outSize == 0) return RK_NLS_BADPARM;
    if (in == nullptr) {
        out[0] = '\0';
        return RK_NLS_BADPARM;
    }
    const size_t limit = std::min<size_t>(outSize - 1u, maxLength);
    const size_t available = strnlen(in, inLength);  // NLS_NULLTERM: up to the zero
    size_t copied = 0;
    while (copied < available) {
        size_t size = CopyCharLength(Bytes(in)[copied], available - copied, group);
        if (copied + size > limit) break;
        copied += size;
    }
    std::memmove(out, in, copied);
    out[copied] = '\0';
    return 0;
}

int nls_strncat_group(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                      unsigned short maxLength, unsigned char group) {
    if (out == nullptr || in == nullptr) return RK_NLS_BADPARM;
    size_t length = strnlen(out, outSize);
    if (outSize <= length) return RK_NLS_BADPARM;
    return nls_strncpy_group(out + length, static_cast<unsigned short>(outSize - length), in, inLength,
                             maxLength, group);
}

int nls_strncpy(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                unsigned short maxLength, NLS_PINFO /*cls*/) {
    return nls_strncpy_group(out, outSize, in, inLength, maxLength, RK_LMBCS_DEFAULT_DBCS_GROUP);
}

int nls_strncat(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                unsigned short maxLength, NLS_PINFO /*cls*/) {
    return nls_strncat_group(out, outSize, in, inLength, maxLength, RK_LMBCS_DEFAULT_DBCS_GROUP);
}
