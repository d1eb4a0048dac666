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

// True when every byte is a one-byte character that means the same in ASCII. Eight bytes at a time:
// a word with no byte of 0x80 or more and none below 0x20 is plain; one with a control byte is looked
// at byte by byte (some controls are plain).
inline bool IsPlainAscii(std::string_view text) {
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHighBits = 0x8080808080808080ull;
    const char* p = text.data();
    size_t left = text.size();
    for (; left >= sizeof(uint64_t); p += sizeof(uint64_t), left -= sizeof(uint64_t)) {
        uint64_t word;
        std::memcpy(&word, p, sizeof word);
        if (word & kHighBits) return false;
        if (((word - kOnes * 0x20) & ~word & kHighBits) == 0) continue;
        for (size_t i = 0; i < sizeof word; ++i) {
            if (!IsPlainAsciiByte(static_cast<unsigned char>(p[i]))) return false;
        }
    }
    for (size_t i = 0; i < left; ++i) {
        if (!IsPlainAsciiByte(static_cast<unsigned char>(p[i]))) return false;
    }
    return true;
}

// True when the plain-ASCII `raw` has the caseless form `folded`: for such text that form is its ASCII
// lower case (FoldCase's own fast path), so no folded copy has to be made.
inline bool AsciiFoldsTo(std::string_view raw, std::string_view folded) {
    if (raw.size() != folded.size()) return false;
    for (size_t i = 0; i < raw.size(); ++i) {
        char c = raw[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != folded[i]) return false;
    }
    return true;
}

}  // namespace emu::formula::lmbcs

#endif  // EMU_FORMULA_LMBCSTEXT_H
