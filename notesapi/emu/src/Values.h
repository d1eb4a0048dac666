// Reading and building item values in the platform's layouts (the bytes
// after the type WORD): TEXT, TEXT_LIST, NUMBER(_RANGE), TIME(_RANGE).
#ifndef EMU_VALUES_H
#define EMU_VALUES_H

#include <string>
#include <string_view>
#include <vector>

#include "Emu.h"

namespace emu {

// Entries of a TEXT (one entry) or TEXT_LIST value; false for other types
// or a damaged list.
bool TextEntries(WORD type, const BYTE* value, size_t length, std::vector<std::string_view>& out);
// The number of entries of such a value and the entry at `index`, when it has one (entry is left
// alone otherwise), without building the list.
bool TextEntryAt(WORD type, const BYTE* value, size_t length, size_t index, size_t& count, std::string_view& entry);
// Entries of a NUMBER or the list part of a NUMBER_RANGE.
bool NumberEntries(WORD type, const BYTE* value, size_t length, std::vector<double>& out);
// Entries of a TIME or the list part of a TIME_RANGE.
bool TimeEntries(WORD type, const BYTE* value, size_t length, std::vector<TIMEDATE>& out);
// Every value shown as text entries (numbers and times formatted); false
// for types that have no text form.
bool RenderEntries(WORD type, const BYTE* value, size_t length, std::vector<std::string>& out);

Bytes TextListValue(const std::vector<std::string_view>& entries);
Bytes NumberRangeValue(const std::vector<double>& numbers);
Bytes TimeRangeValue(const std::vector<TIMEDATE>& times);

}  // namespace emu

#endif
