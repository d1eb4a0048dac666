// LMBCS text helpers for the formula engine: character boundaries, case folding and case mapping.
// Plain ASCII takes a fast path; anything else goes through ICU's "LMBCS-1" converter.
#ifndef EMU_FORMULA_LMBCSTEXT_H
#define EMU_FORMULA_LMBCSTEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace emu::formula::lmbcs {

// Length in bytes of the character starting at text[at] (at < text.size()); never past the end.
size_t CharLength(std::string_view text, size_t at);

// The caseless form used for comparisons: Unicode full case folding, as UTF-8. Equal for two texts
// exactly when they are equal ignoring case; byte order of the results is code point order.
void FoldCase(std::string_view text, std::string& out);

// Case mapping that stays in LMBCS (@LowerCase, @UpperCase).
void ToLower(std::string_view text, std::string& out);
void ToUpper(std::string_view text, std::string& out);

// Case-sensitive substring tests that only match on character boundaries.
bool Contains(std::string_view text, std::string_view part);
bool Begins(std::string_view text, std::string_view part);
bool Ends(std::string_view text, std::string_view part);

// The two tests below are defined here, not in LmbcsText.cpp: a search makes them for every note.

inline bool IsPlainAsciiByte(unsigned char byte) {
    return byte < 0x80 && (byte >= 0x20 || byte == 0x00 || byte == 0x09 || byte == 0x0A || byte == 0x0D);
}

inline bool AllPlainAsciiBytes(std::string_view text) {
    for (char c : text) {
        if (!IsPlainAsciiByte(static_cast<unsigned char>(c))) return false;
    }
    return true;
}

// True when every byte is a one-byte character that means the same in ASCII. Eight bytes at a time,
// the last word overlapping the one before (texts of 4 to 7 bytes as two overlapping halves): a text
// with no byte of 0x80 or more and none below 0x20 is plain; one with a control byte is looked at
// byte by byte (some controls are plain).
inline bool IsPlainAscii(std::string_view text) {
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHighBits = kOnes * 0x80;
    const char* p = text.data();
    const size_t n = text.size();
    uint64_t any = 0;  // the bits of every byte, to find a byte of 0x80 or more
    uint64_t low = 0;  // high bits where some byte is below 0x20
    auto take = [&](uint64_t word) {
        any |= word;
        low |= (word - kOnes * 0x20) & ~word;
    };
    if (n >= 8) {
        for (size_t i = 0; i + 8 <= n; i += 8) {
            uint64_t word;
            std::memcpy(&word, p + i, sizeof word);
            take(word);
        }
        uint64_t last;
        std::memcpy(&last, p + n - 8, sizeof last);
        take(last);
    } else if (n >= 4) {
        uint32_t first, last;
        std::memcpy(&first, p, sizeof first);
        std::memcpy(&last, p + n - 4, sizeof last);
        take(first | uint64_t{last} << 32);
    } else {
        return AllPlainAsciiBytes(text);
    }
    if (any & kHighBits) return false;
    return (low & kHighBits) == 0 || AllPlainAsciiBytes(text);
}

// `word` with its bytes 'A'..'Z' made lower case; every byte must be below 0x80 (no carries).
inline uint64_t AsciiLowerWord(uint64_t word) {
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHighBits = kOnes * 0x80;
    const uint64_t upper = (word + kOnes * (0x80 - 'A')) & ~(word + kOnes * (0x80 - 'Z' - 1)) & kHighBits;
    return word | upper >> 2;
}

// True when the plain-ASCII `raw` has the caseless form `folded`: for such text that form is its ASCII
// lower case (FoldCase's own fast path), so no folded copy has to be made. Compared eight bytes at a
// time like IsPlainAscii, which `raw` must have passed.
inline bool AsciiFoldsTo(std::string_view raw, std::string_view folded) {
    const size_t n = raw.size();
    if (n != folded.size()) return false;
    auto same = [&](size_t at, size_t length) {
        uint64_t a = 0, b = 0;
        std::memcpy(&a, raw.data() + at, length);
        std::memcpy(&b, folded.data() + at, length);
        return AsciiLowerWord(a) == b;
    };
    if (n >= 8) {
        for (size_t i = 0; i + 8 <= n; i += 8) {
            if (!same(i, 8)) return false;
        }
        return same(n - 8, 8);
    }
    if (n >= 4) return same(0, 4) && same(n - 4, 4);
    for (size_t i = 0; i < n; ++i) {
        char c = raw[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != folded[i]) return false;
    }
    return true;
}

}  // namespace emu::formula::lmbcs

#endif  // EMU_FORMULA_LMBCSTEXT_H
