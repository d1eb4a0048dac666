// The LMBCS utilities that call the platform: translation (OSTranslate) and the bounded copies,
// which step characters with NLS_goto_next. Kept apart from RkLMBCS.cpp so that programs
// without the platform library can use the pure ones.
#include "global.h"
#include "nls.h"
#include "osmisc.h"

#include "RkLMBCS.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Buffers of this many bytes hold at most 255 bytes of text and the zero.
constexpr WORD kShortTextSize = 256;

// Translates the zero-ended text into out (outSize bytes, at least 1) and zero-ends it.
void TranslateTerminated(WORD mode, const char* text, char* out, WORD outSize) {
    out[0] = '\0';
    size_t length = std::strlen(text);
    if (length == 0) return;
    WORD inLength = static_cast<WORD>(std::min<size_t>(length, MAXWORD - 1));
    WORD written = OSTranslate(mode, text, inLength, out, static_cast<WORD>(outSize - 1));
    out[std::min<WORD>(written, static_cast<WORD>(outSize - 1))] = '\0';
}

// Bytes of whole characters of in (available bytes) that fit in limit bytes.
size_t WholeCharactersWithin(const char* in, size_t available, size_t limit, NLS_PINFO cls) {
    size_t copied = 0;
    while (copied < available) {
        BYTE* next = reinterpret_cast<BYTE*>(const_cast<char*>(in + copied));
        WORD remaining = static_cast<WORD>(std::min<size_t>(available - copied, NLS_NULLTERM - 1));
        WORD size = NLS_goto_next(&next, remaining, cls);
        if (size == 0 || copied + size > limit) break;
        copied += size;
    }
    return copied;
}

}  // namespace

int nls_strncpy(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                unsigned short maxLength, NLS_PINFO cls) {
    if (out == nullptr || outSize == 0) return RK_NLS_BADPARM;
    if (in == nullptr) {
        out[0] = '\0';
        return RK_NLS_BADPARM;
    }
    const size_t limit = std::min<size_t>(outSize - 1u, maxLength);
    const size_t available = strnlen(in, inLength);  // NLS_NULLTERM: up to the zero
    size_t copied = WholeCharactersWithin(in, available, limit, cls);
    std::memmove(out, in, copied);
    out[copied] = '\0';
    return 0;
}

int nls_strncat(char* out, unsigned short outSize, const char* in, unsigned short inLength,
                unsigned short maxLength, NLS_PINFO cls) {
    if (out == nullptr || in == nullptr) return RK_NLS_BADPARM;
    size_t length = strnlen(out, outSize);
    if (outSize <= length) return RK_NLS_BADPARM;
    return nls_strncpy(out + length, static_cast<unsigned short>(outSize - length), in, inLength, maxLength,
                       cls);
}

void _toUpperStringLMBCS(const char* in, char* out) {
    if (in == nullptr || out == nullptr) return;
    char lmbcs[kShortTextSize];
    TranslateTerminated(OS_TRANSLATE_NATIVE_TO_LMBCS, in, lmbcs, sizeof(lmbcs));
    TranslateTerminated(OS_TRANSLATE_LOWER_TO_UPPER, lmbcs, out, kShortTextSize);
    out[kShortTextSize - 1] = '\0';
}

char* lmbcs_itoa(char* out, int size, int value, int radix) {
    if (out == nullptr || size < 1) return out;
    char native[16] = "";
    if (radix == 10)
        std::snprintf(native, sizeof(native), "%d", value);
    else if (radix == 16)
        std::snprintf(native, sizeof(native), "%x", static_cast<unsigned int>(value));
    TranslateTerminated(OS_TRANSLATE_NATIVE_TO_LMBCS, native, out,
                        static_cast<WORD>(std::min<int>(size, MAXWORD)));
    return out;
}

long lmbc_strtol(const char* text, int radix) {
    if (text == nullptr) return 0;
    char native[kShortTextSize];
    TranslateTerminated(OS_TRANSLATE_LMBCS_TO_NATIVE, text, native, sizeof(native));
    return std::strtol(native, nullptr, radix);
}

int lmbc_atoi(const char* text) { return static_cast<int>(lmbc_strtol(text, 10)); }
