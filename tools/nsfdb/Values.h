// Item value layouts (text lists, number lists), hexadecimal bytes and the
// text forms of UNIDs and replica IDs.
#ifndef NSFDB_VALUES_H
#define NSFDB_VALUES_H

#include <optional>
#include <string>
#include <vector>

#include "global.h"
#include "nsfdata.h"

namespace nsfdb {

// Largest value an item holds: its type word and value fit in a WORD.
constexpr size_t kMaxItemValue = MAXWORD - sizeof(WORD);

// TYPE_TEXT_LIST: LIST header, one WORD length per entry, the texts.
std::string EncodeTextList(const std::vector<std::string>& entries);
// False unless the value is exactly such a list.
bool DecodeTextList(const std::string& value, std::vector<std::string>& entries);

// TYPE_NUMBER_RANGE without pairs: RANGE header, then the numbers.
std::string EncodeNumberList(const std::vector<double>& numbers);
// False unless the value is exactly such a list (no pairs).
bool DecodeNumberList(const std::string& value, std::vector<double>& numbers);

std::string EncodeNumber(double number);
bool DecodeNumber(const std::string& value, double& number);

std::string ToHex(const std::string& bytes);
std::optional<std::string> FromHex(const std::string& hex);

// "%08X%08X%08X%08X": File high, File low, Note high, Note low.
std::string UnidText(const UNID& unid);
std::optional<UNID> ParseUnid(const std::string& text);

// "0x2106".
std::string NoteIdText(NOTEID id);

// "HHHHHHHH:LLLLLLLL": high word, colon, low word (as Notes shows replica IDs).
std::string TimedateText(const TIMEDATE& time);
std::optional<TIMEDATE> ParseTimedate(const std::string& text);

}  // namespace nsfdb

#endif
