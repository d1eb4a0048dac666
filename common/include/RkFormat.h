// Bounded printf-style formatters: never write more than size elements and always zero-end
// the output when size is at least 1.
#ifndef RK_FORMAT_H
#define RK_FORMAT_H

#include <cstddef>
#include <cwchar>

#if defined(__GNUC__)
#define RK_FORMAT_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define RK_FORMAT_PRINTF(fmt, args)
#endif

// Returns what vsnprintf returns: the length the whole text needs (so a result >= size means
// it was cut), or a negative value on a format error. Size 0 writes nothing.
int rk_snprintf(char* out, size_t size, const char* format, ...) RK_FORMAT_PRINTF(3, 4);
// Returns what vswprintf returns: the length written, or a negative value when the text was
// cut or could not be formatted (the cut text is still zero-ended). Size 0 writes nothing
// and gives -1, as vswprintf does.
int rk_snwprintf(wchar_t* out, size_t size, const wchar_t* format, ...);

#endif
