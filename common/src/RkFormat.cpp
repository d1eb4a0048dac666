// Bounded printf-style formatters.
#include "RkFormat.h"

#include <cstdarg>
#include <cstdio>

int rk_snprintf(char* out, size_t size, const char* format, ...) {
    if (format == nullptr || (out == nullptr && size > 0)) return -1;
    va_list args;
    va_start(args, format);
    int result = std::vsnprintf(out, size, format, args);
    va_end(args);
    if (size > 0) {
        if (result < 0) out[0] = '\0';  // the C library leaves the text unspecified on errors
        out[size - 1] = '\0';
    }
    return result;
}

int rk_snwprintf(wchar_t* out, size_t size, const wchar_t* format, ...) {
    if (size == 0 || out == nullptr || format == nullptr) return -1;
    va_list args;
    va_start(args, format);
    int result = std::vswprintf(out, size, format, args);
    va_end(args);
    out[size - 1] = L'\0';  // vswprintf does not promise a terminator when the text is cut
    return result;
}
