#include "LmbcsText.h"

#include <unicode/stringoptions.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

namespace emu::formula::lmbcs {
namespace {

// Bytes below 0x20 start a multi-byte character (a group byte), except these fixed controls.
bool IsFixedControl(unsigned char byte) {
    return byte == 0x00 || byte == 0x09 || byte == 0x0A || byte == 0x0D || byte == 0x19;
}

constexpr unsigned char kFirstDoubleByteGroup = 0x10;
constexpr unsigned char kJapaneseGroup = 0x10;
constexpr unsigned char kLastDoubleByteGroup = 0x13;
constexpr unsigned char kUnicodeGroup = 0x14;

// In the Japanese group, 0xA1..0xDF are the one-byte half-width katakana.
bool IsDoubleByteLead(unsigned char group, unsigned char byte) {
    if (byte < 0x80) return false;
    return !(group == kJapaneseGroup && byte >= 0xA1 && byte <= 0xDF);
}

// Texts longer than this never reach ICU (its lengths are 32-bit); item values are far smaller.
constexpr size_t kMaxIcuInput = INT32_MAX / 4;

struct ConverterCloser {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

// UConverter objects are not thread-safe: one per thread.
UConverter* LmbcsConverter() {
    thread_local std::unique_ptr<UConverter, ConverterCloser> converter([] {
        UErrorCode error = U_ZERO_ERROR;
        UConverter* opened = ucnv_open("LMBCS-1", &error);
        return U_FAILURE(error) ? nullptr : opened;
    }());
    if (converter) ucnv_reset(converter.get());
    return converter.get();
}

// Runs an ICU call that writes into a buffer, growing the buffer once when ICU asks for more.
template <typename String, typename Call>
bool RunSized(String& out, size_t guess, Call call) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        out.resize(std::max<size_t>(guess, 1));
        UErrorCode error = U_ZERO_ERROR;
        int32_t length = call(out.data(), static_cast<int32_t>(out.size()), &error);
        if (error == U_BUFFER_OVERFLOW_ERROR && length > 0) {
            guess = static_cast<size_t>(length);
            continue;
        }
        if (U_FAILURE(error) || length < 0) return false;
        out.resize(static_cast<size_t>(length));
        return true;
    }
    return false;
}

bool LmbcsToUtf16(std::string_view text, std::u16string& out) {
    UConverter* converter = LmbcsConverter();
    if (!converter || text.size() > kMaxIcuInput) return false;
    return RunSized(out, text.size() + 1, [&](char16_t* buffer, int32_t capacity, UErrorCode* error) {
        return ucnv_toUChars(converter, buffer, capacity, text.data(), static_cast<int32_t>(text.size()),
                             error);
    });
}

bool Utf16ToLmbcs(const std::u16string& text, std::string& out) {
    UConverter* converter = LmbcsConverter();
    if (!converter || text.size() > kMaxIcuInput) return false;
    return RunSized(out, text.size() * 3 + 1, [&](char* buffer, int32_t capacity, UErrorCode* error) {
        return ucnv_fromUChars(converter, buffer, capacity, text.data(), static_cast<int32_t>(text.size()),
                               error);
    });
}

bool Utf16ToUtf8(const std::u16string& text, std::string& out) {
    return RunSized(out, text.size() * 3 + 1, [&](char* buffer, int32_t capacity, UErrorCode* error) {
        int32_t length = 0;
        u_strToUTF8WithSub(buffer, capacity, &length, text.data(), static_cast<int32_t>(text.size()), 0xFFFD,
                           nullptr, error);
        return length;
    });
}

enum class CaseMapping { Fold, Lower, Upper };

bool MapUtf16(CaseMapping mapping, const std::u16string& in, std::u16string& out) {
    return RunSized(out, in.size() + 8, [&](char16_t* buffer, int32_t capacity, UErrorCode* error) {
        const int32_t length = static_cast<int32_t>(in.size());
        switch (mapping) {
            case CaseMapping::Fold:
                return u_strFoldCase(buffer, capacity, in.data(), length, U_FOLD_CASE_DEFAULT, error);
            case CaseMapping::Lower:
                return u_strToLower(buffer, capacity, in.data(), length, "", error);
            case CaseMapping::Upper:
                return u_strToUpper(buffer, capacity, in.data(), length, "", error);
        }
        return int32_t{-1};
    });
}

// Maps only A-Z / a-z; other bytes are kept. Also the fallback when ICU cannot help.
void MapAscii(CaseMapping mapping, std::string_view text, std::string& out) {
    out.assign(text.data(), text.size());
    for (char& c : out) {
        if (mapping == CaseMapping::Upper) {
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        } else if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
}

// Non-ASCII path: LMBCS to UTF-16, map, then to UTF-8 (folding) or back to LMBCS (lower/upper).
bool MapThroughUnicode(CaseMapping mapping, std::string_view text, std::string& out) {
    thread_local std::u16string utf16;
    thread_local std::u16string mapped;
    if (!LmbcsToUtf16(text, utf16) || !MapUtf16(mapping, utf16, mapped)) return false;
    return mapping == CaseMapping::Fold ? Utf16ToUtf8(mapped, out) : Utf16ToLmbcs(mapped, out);
}

void MapCase(CaseMapping mapping, std::string_view text, std::string& out) {
    if (IsPlainAscii(text) || !MapThroughUnicode(mapping, text, out)) MapAscii(mapping, text, out);
}

}  // namespace

size_t CharLength(std::string_view text, size_t at) {
    const size_t remaining = text.size() - at;
    const auto byte = static_cast<unsigned char>(text[at]);
    size_t length = 2;  // a single-byte group: group byte and character byte
    if (byte >= 0x20 || IsFixedControl(byte)) {
        length = 1;
    } else if (byte == kUnicodeGroup) {
        length = 3;
    } else if (byte >= kFirstDoubleByteGroup && byte <= kLastDoubleByteGroup) {
        length = remaining > 1 && IsDoubleByteLead(byte, static_cast<unsigned char>(text[at + 1])) ? 3 : 2;
    }
    return std::min(length, remaining);
}

void FoldCase(std::string_view text, std::string& out) {
    MapCase(CaseMapping::Fold, text, out);
}
void ToLower(std::string_view text, std::string& out) {
    MapCase(CaseMapping::Lower, text, out);
}
void ToUpper(std::string_view text, std::string& out) {
    MapCase(CaseMapping::Upper, text, out);
}

bool Contains(std::string_view text, std::string_view part) {
    if (part.empty()) return true;
    for (size_t at = 0; at + part.size() <= text.size(); at += CharLength(text, at)) {
        if (std::memcmp(text.data() + at, part.data(), part.size()) == 0) return true;
    }
    return false;
}

bool Begins(std::string_view text, std::string_view part) {
    return part.size() <= text.size() && text.compare(0, part.size(), part) == 0;
}

bool Ends(std::string_view text, std::string_view part) {
    if (part.size() > text.size()) return false;
    const size_t start = text.size() - part.size();
    size_t at = 0;
    while (at < start) at += CharLength(text, at);
    return at == start && text.compare(start, part.size(), part) == 0;
}

}  // namespace emu::formula::lmbcs
