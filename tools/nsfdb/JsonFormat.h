// The JSON form of a database (see ARCHITECTURE.md, "JSON formats"):
// reading it into a DatabaseData with an error that names the place of any
// fault, and writing the shortest form that reads back to the same data.
#ifndef NSFDB_JSONFORMAT_H
#define NSFDB_JSONFORMAT_H

#include <string>

#include <nlohmann/json.hpp>

#include "DbModel.h"

namespace nsfdb {

// Objects keep their keys in the order written: items are ordered.
using Json = nlohmann::ordered_json;

// Parses JSON text. Syntax errors and a key given twice in one object throw
// ToolError with the line and column or the key's place.
Json ParseJsonText(const std::string& text);

// Checks and converts; throws ToolError("<place>: <problem>"), e.g.
// "notes[2].items.Count: ...". Needs the platform (texts become LMBCS,
// formulas are compiled).
DatabaseData DatabaseFromJson(const Json& root);

Json DatabaseToJson(const DatabaseData& db);
// An item's value as the dump writes it.
Json ItemValueToJson(const ItemData& item);
Json AclEntryToJson(const AclEntryData& entry);
// A note class as the dump writes it: its name, or its number.
std::string NoteClassText(WORD noteClass);
// One-line JSON text (", " and ": " between members), UTF-8 kept as it is.
std::string OneLine(const Json& value);
// The dump's layout: one line per database field, ACL entry, note field and
// item; ends with a newline.
std::string DumpText(const Json& database);

}  // namespace nsfdb

#endif
