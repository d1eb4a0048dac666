// LMBCS text helpers for the formula engine: character boundaries, case folding and case mapping.
// Plain ASCII takes a fast path; anything else goes through ICU's "LMBCS-1" converter.
#ifndef EMU_FORMULA_LMBCSTEXT_H
#define EMU_FORMULA_LMBCSTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace emu::formula::lmbcs {

// Length in bytes of the character starting at text[at] (at < text.size()); never past the end.
size_t CharLength(std::string_view text, size_t at);

// True when every byte is a one-byte character that means the same in ASCII.
bool IsPlainAscii(std::string_view text);

// The caseless form used for comparisons: Unicode full case folding, as UTF-8. Equal for two texts
// exactly when they are equal ignoring case; byte order of the results is code point order.
void FoldCase(std::string_view text, std::string& out);

// True when the plain-ASCII `raw` has the caseless form `folded`: for such text that form is its ASCII
// lower case (FoldCase's own fast path), so no folded copy has to be made.
bool AsciiFoldsTo(std::string_view raw, std::string_view folded);

// Case mapping that stays in LMBCS (@LowerCase, @UpperCase).
void ToLower(std::string_view text, std::string& out);
void ToUpper(std::string_view text, std::string& out);

// Case-sensitive substring tests that only match on character boundaries.
bool Contains(std::string_view text, std::string_view part);
bool Begins(std::string_view text, std::string_view part);
bool Ends(std::string_view text, std::string_view part);

}  // namespace emu::formula::lmbcs

#endif  // EMU_FORMULA_LMBCSTEXT_H
