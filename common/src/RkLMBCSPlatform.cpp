// The LMBCS utilities that translate text through the platform (OSTranslate). Kept apart from
// RkLMBCS.cpp so that programs without the platform library can use the pure ones.
#include "global.h"
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

}  // namespace

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
