// LMBCS text utilities and the platform's translation on arbitrary bytes: no read or write past
// the buffers given, and the matcher's plain rules hold. The first 0 byte splits the input into
// text and pattern.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "global.h"
#include "osmisc.h"

#include "FuzzPlatform.h"
#include "RkLMBCS.h"

namespace {

// The matcher backtracks on stars: longer inputs only cost time, not new paths.
constexpr size_t kMatchInputLimit = 64;
constexpr size_t kGuard = 16;

void ExpectGuardIntact(const unsigned char* guard) {
    for (size_t i = 0; i < kGuard; ++i) {
        if (guard[i] != 0xA5) std::abort();
    }
}

void Translate(WORD mode, const std::string& in, WORD capacity) {
    unsigned char buffer[512 + kGuard];
    std::memset(buffer, 0xA5, sizeof buffer);
    WORD length = OSTranslate(mode, in.data(), static_cast<WORD>(in.size()), reinterpret_cast<char*>(buffer), capacity);
    if (length > capacity) std::abort();
    ExpectGuardIntact(buffer + capacity);
}

void CopyWholeCharacters(const std::string& in, unsigned short outSize, unsigned short maxLength) {
    unsigned char buffer[256 + kGuard];
    std::memset(buffer, 0xA5, sizeof buffer);
    nls_strncpy(reinterpret_cast<char*>(buffer), outSize, in.c_str(), static_cast<unsigned short>(in.size()), maxLength,
                nullptr);
    ExpectGuardIntact(buffer + outSize);
    if (outSize > 0 && std::strlen(reinterpret_cast<char*>(buffer)) >= outSize) std::abort();
}

void Match(const std::string& text, const std::string& pattern) {
    std::string shortText = text.substr(0, kMatchInputLimit);
    std::string shortPattern = pattern.substr(0, kMatchInputLimit);
    lmbcsMatch(shortText.c_str(), shortPattern.c_str());
    if (!lmbcsMatch(shortText.c_str(), "*")) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 400) return 0;
    fuzz::FuzzDataDirectory();
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t split = input.find('\0');
    std::string text = input.substr(0, split);
    std::string pattern = split == std::string::npos ? std::string() : input.substr(split + 1);
    pattern = pattern.substr(0, pattern.find('\0'));

    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, input, 512);
    Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, input, 512);
    Translate(OS_TRANSLATE_NATIVE_TO_LMBCS, text, static_cast<WORD>(size % 64));
    Translate(OS_TRANSLATE_LMBCS_TO_NATIVE, text, static_cast<WORD>(size % 64));

    CopyWholeCharacters(text, static_cast<unsigned short>(1 + size % 255), static_cast<unsigned short>(size % 300));
    CopyWholeCharacters(text, 256, 0xFFFF);

    Match(text, pattern);

    char upper[256 + kGuard];
    std::memset(upper, 0xA5, sizeof upper);
    _toUpperStringLMBCS(text.substr(0, 255).c_str(), upper);
    ExpectGuardIntact(reinterpret_cast<unsigned char*>(upper) + 256);

    UNIVERSALNOTEID unid;
    std::string unidText = text.substr(0, 40);
    convertStringToUNID(&unidText[0], &unid);
    return 0;
}
